#pragma once

#include <QtCore/QTimer>
#include <QtGui/QImage>
#include <QtQuick/QQuickPaintedItem>

/// Shows a whole screen live and small, where the desktop lets programs see it.
class ScreenPreview : public QQuickPaintedItem
{
    Q_OBJECT
    /// Position of the screen in `QGuiApplication::screens()`.
    Q_PROPERTY(int screenIndex MEMBER screen_index NOTIFY changed)
    Q_PROPERTY(bool running READ running WRITE setRunning NOTIFY changed)
    Q_PROPERTY(bool hasPicture READ hasPicture NOTIFY hasPictureChanged)

public:
    explicit ScreenPreview(QQuickItem* parent = nullptr);

    bool running() const { return timer.isActive(); }
    void setRunning(bool running);
    bool hasPicture() const { return !picture.isNull(); }
    void paint(QPainter* painter) override;

Q_SIGNALS:
    void changed();
    void hasPictureChanged();

private:
    void take();

    QTimer timer;
    QImage picture;
    int screen_index = 0;
};
