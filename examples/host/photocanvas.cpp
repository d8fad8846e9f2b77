#include "examples/host/photocanvas.h"

#include <QtGui/QPainter>

#include <algorithm>

PhotoCanvas::PhotoCanvas(QQuickItem* parent)
    : QQuickPaintedItem(parent)
{
    setAntialiasing(true);
    connect(this, &QQuickItem::widthChanged, this, &PhotoCanvas::refresh);
    connect(this, &QQuickItem::heightChanged, this, &PhotoCanvas::refresh);
}

void PhotoCanvas::setPhoto(Photo* photo)
{
    if (picture == photo)
        return;
    if (picture)
        picture->disconnect(this);
    picture = photo;
    if (photo)
        connect(photo, &Photo::changed, this, &PhotoCanvas::refresh);
    Q_EMIT photoChanged();
    refresh();
}

void PhotoCanvas::refresh()
{
    Q_EMIT pictureRectChanged();
    update();
}

double PhotoCanvas::scale() const
{
    const QSizeF size = picture ? QSizeF(picture->size()) : QSizeF();
    return size.isEmpty() ? 0 : std::min(width() / size.width(), height() / size.height());
}

QRectF PhotoCanvas::pictureRect() const
{
    const QSizeF size = scale() > 0 ? QSizeF(picture->size()) * scale() : QSizeF(0, 0);
    return {QPointF((width() - size.width()) / 2, (height() - size.height()) / 2), size};
}

QTransform PhotoCanvas::toItem() const
{
    const QPointF corner = pictureRect().topLeft();
    return picture->orientation() * QTransform::fromScale(scale(), scale()) *
           QTransform::fromTranslate(corner.x(), corner.y());
}

void PhotoCanvas::paint(QPainter* painter)
{
    if (!picture || picture->preview().isNull() || scale() <= 0)
        return;
    painter->setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform);
    painter->setClipRect(pictureRect());
    painter->setTransform(toItem(), true);
    const QSizeF upright =
        picture->orientation().inverted().mapRect(QRectF(QPointF(), picture->size())).size();
    painter->drawImage(QRectF(QPointF(), upright), picture->preview());
    for (const DrawnThing& thing : picture->things())
        thing.paint(*painter);
}

void PhotoCanvas::beginThing(const QPointF& at, int type, const QColor& color, double line_width)
{
    if (!picture || scale() <= 0)
        return;
    const QPointF point = toItem().inverted().map(at);
    picture->draw({GraphicDefines::GraphicType(type), color, line_width / scale(), {QVector{point, point}}});
}

void PhotoCanvas::extendThing(const QPointF& at)
{
    if (picture && scale() > 0)
        picture->extendLast(toItem().inverted().map(at));
}
