#include "examples/host/screenpreview.h"

extern "C" {
#include <libswscale/swscale.h>
}

#include <QtGui/QGuiApplication>
#include <QtGui/QPainter>
#include <QtGui/QScreen>
#include <QtQuick/QQuickWindow>

#include <chrono>
#include <memory>
#include <utility>

using multimedia::ScreenGrabber;

namespace {

constexpr uint8_t kFramesPerSecond = 5;

/// The planes lie one behind the other, each of lines that may be longer than the picture is wide.
QImage toImage(const multimedia::Yuv420pFrame& frame, const QSize& size)
{
    const int height = frame.getHeight();
    if (frame.getWidth() == 0 || height == 0 || size.isEmpty())
        return {};
    const uint8_t* const planes[] = {frame.getYChannel(), frame.getUChannel(), frame.getVChannel(), nullptr};
    const int lines[] = {int((planes[1] - planes[0]) / height), int((planes[2] - planes[1]) / (height / 2)),
                         int((planes[2] - planes[1]) / (height / 2)), 0};
    const std::unique_ptr<SwsContext, void (*)(SwsContext*)> scaler(
        sws_getContext(frame.getWidth(), height, AV_PIX_FMT_YUV420P, size.width(), size.height(),
                       AV_PIX_FMT_BGR0, SWS_AREA, nullptr, nullptr, nullptr),
        sws_freeContext);
    QImage image(size, QImage::Format_RGB32);
    if (!scaler || image.isNull())
        return {};
    uint8_t* const target[] = {image.bits(), nullptr, nullptr, nullptr};
    const int target_lines[] = {image.bytesPerLine(), 0, 0, 0};
    sws_scale(scaler.get(), planes, lines, 0, height, target, target_lines);
    return image;
}

} // namespace

ScreenPreview::ScreenPreview(QQuickItem* parent)
    : QQuickPaintedItem(parent)
{
    using namespace std::chrono_literals;
    timer.setInterval(50ms);
    connect(&timer, &QTimer::timeout, this, &ScreenPreview::advance);
    connect(&grabber, &ScreenGrabber::readyRead, this, &ScreenPreview::take);
    connect(this, &ScreenPreview::changed, this, [this] {
        setRefused(false);
        advance();
    });
}

void ScreenPreview::setRunning(bool running)
{
    if (running == is_wanted)
        return;
    is_wanted = running;
    Q_EMIT changed();
}

void ScreenPreview::askAgain()
{
    setRefused(false);
    advance();
}

void ScreenPreview::advance()
{
    const ScreenGrabber::State state = grabber.getState();
    if (state == ScreenGrabber::kWaiting && std::exchange(grabbed_index, -1) >= 0) {
        show({}); // it has stopped by itself
        setRefused(true);
    } else if (state == ScreenGrabber::kWaiting && is_wanted && !is_refused) {
        start();
    } else if (state == ScreenGrabber::kRunning && (!is_wanted || grabbed_index != screen_index)) {
        stop();
    }
    if (grabber.getState() == ScreenGrabber::kWaiting && !is_wanted)
        timer.stop();
    else
        timer.start();
}

void ScreenPreview::start()
{
    QScreen* screen = QGuiApplication::screens().value(screen_index);
    if (!screen || !grabber.start(screen, {{0, 0}, screen->size()}, kFramesPerSecond))
        return;
    grabbed_index = screen_index;
    grabber.step();
}

void ScreenPreview::stop()
{
    grabbed_index = -1;
    grabber.stop();
    grabber.step();
}

void ScreenPreview::take()
{
    if (is_wanted && grabbed_index == screen_index && window())
        show(toImage(grabber.takeFrame(),
                     (QSizeF(width(), height()) * window()->effectiveDevicePixelRatio()).toSize()));
}

void ScreenPreview::show(const QImage& next)
{
    const bool had = hasPicture();
    picture = next;
    if (had != hasPicture())
        Q_EMIT hasPictureChanged();
    update();
}

void ScreenPreview::setRefused(bool refused)
{
    if (std::exchange(is_refused, refused) != refused)
        Q_EMIT refusedChanged();
}

void ScreenPreview::paint(QPainter* painter)
{
    painter->drawImage(QRectF(0, 0, width(), height()), picture);
}
