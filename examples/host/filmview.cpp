#include "examples/host/filmview.h"

#include <QtGui/QPainter>

FilmView::FilmView(QQuickItem* parent)
    : QQuickPaintedItem(parent)
    , film_surface(*this)
{}

void FilmView::clear()
{
    picture = {};
    update();
}

void FilmView::paint(QPainter* painter)
{
    if (picture.isNull())
        return;
    const QSizeF size = QSizeF(picture.size()).scaled(width(), height(), Qt::KeepAspectRatio);
    painter->setRenderHint(QPainter::SmoothPixmapTransform);
    painter->drawImage(QRectF(QPointF((width() - size.width()) / 2, (height() - size.height()) / 2), size),
                       picture);
}

QList<QVideoFrame::PixelFormat>
FilmView::Surface::supportedPixelFormats(QAbstractVideoBuffer::HandleType type) const
{
    if (type != QAbstractVideoBuffer::NoHandle)
        return {};
    return {QVideoFrame::Format_RGB32, QVideoFrame::Format_ARGB32};
}

bool FilmView::Surface::present(const QVideoFrame& frame)
{
    // The frame's own bytes go back to the player.
    view.picture = frame.image().copy();
    view.update();
    return !view.picture.isNull();
}
