#include "examples/host/screenpreview.h"

#include <QtGui/QGuiApplication>
#include <QtGui/QPainter>
#include <QtGui/QPixmap>
#include <QtGui/QScreen>
#include <QtQuick/QQuickWindow>

#include <chrono>

ScreenPreview::ScreenPreview(QQuickItem* parent)
    : QQuickPaintedItem(parent)
{
    using namespace std::chrono_literals;
    timer.setInterval(250ms);
    connect(&timer, &QTimer::timeout, this, &ScreenPreview::take);
    connect(this, &ScreenPreview::changed, this, &ScreenPreview::take);
}

void ScreenPreview::setRunning(bool running)
{
    if (running == timer.isActive())
        return;
    if (running)
        timer.start();
    else
        timer.stop();
    Q_EMIT changed();
}

void ScreenPreview::take()
{
    QScreen* screen = QGuiApplication::screens().value(screen_index);
    if (!timer.isActive() || !screen || !window())
        return;
    const QSize box = (QSizeF(width(), height()) * window()->effectiveDevicePixelRatio()).toSize();
    const bool had = hasPicture();
    picture = screen->grabWindow(0).toImage();
    if (!picture.isNull() && !box.isEmpty())
        picture = picture.scaled(box, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    if (had != hasPicture())
        Q_EMIT hasPictureChanged();
    update();
}

void ScreenPreview::paint(QPainter* painter)
{
    painter->drawImage(QRectF(0, 0, width(), height()), picture);
}
