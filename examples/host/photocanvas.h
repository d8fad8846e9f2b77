#pragma once

#include "examples/host/photo.h"

#include <QtCore/QPointer>
#include <QtQuick/QQuickPaintedItem>

/// Shows a `Photo` as large as it fits, and takes what is drawn on it.
class PhotoCanvas : public QQuickPaintedItem
{
    Q_OBJECT
    Q_PROPERTY(Photo* photo READ photo WRITE setPhoto NOTIFY photoChanged)
    /// Where the picture stands in this item.
    Q_PROPERTY(QRectF pictureRect READ pictureRect NOTIFY pictureRectChanged)

public:
    explicit PhotoCanvas(QQuickItem* parent = nullptr);

    Photo* photo() const { return picture; }
    void setPhoto(Photo* photo);
    QRectF pictureRect() const;
    void paint(QPainter* painter) override;

public Q_SLOTS:
    /// @param type        a `GraphicDefines::GraphicType`
    /// @param line_width  in pixels of this item
    void beginThing(const QPointF& at, int type, const QColor& color, double line_width);
    void extendThing(const QPointF& at);

Q_SIGNALS:
    void photoChanged();
    void pictureRectChanged();

private:
    void refresh();
    double scale() const;
    /// From the file's pixels to this item.
    QTransform toItem() const;

    QPointer<Photo> picture;
};
