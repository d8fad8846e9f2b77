#include "multimedia/screenrecord/screengrabber.h"

#include "multimedia/base/screenlist.h"
#include "multimedia/base/warning.h"
#include "multimedia/devicemgr/permission.h"
#include "multimedia/screenrecord/devicepixels.h"
#include "multimedia/screenrecord/screengrabberprivate.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QEvent>

namespace multimedia {

ScreenGrabber::ScreenGrabber(QObject* parent)
    : QObject(parent)
    , d(std::make_unique<Private>(this))
{
    ScreenList::instance();
}

ScreenGrabber::~ScreenGrabber()
{
    stop();
    if (d->worker)
        d->worker->stop();
}

ScreenGrabber::State ScreenGrabber::getState() const
{
    return d->state;
}

QScreen* ScreenGrabber::getScreen() const
{
    return d->screen;
}

QRect ScreenGrabber::getRect() const
{
    return d->rect;
}

uint8_t ScreenGrabber::getFrameRate() const
{
    return d->frame_rate;
}

bool ScreenGrabber::start(QScreen* screen, QRect rect, uint8_t frame_rate)
{
    if (d->state != kWaiting) {
        warning("start", "invalid state");
        return false;
    }
    d->screen = screen;
    d->rect = rect;
    d->frame_rate = frame_rate;
    d->worker = std::make_unique<Worker>([this] { return d->start(); });
    d->state = kStarting;
    return true;
}

void ScreenGrabber::stop()
{
    if (d->state != kRunning)
        return;
    d->worker = std::make_unique<Worker>([this] { return d->stop(); });
    d->state = kStopping;
}

Yuv420pFrame ScreenGrabber::takeFrame()
{
    std::lock_guard lock(d->mutex);
    return Yuv420pFrame(d->latest.get());
}

void ScreenGrabber::customEvent(QEvent* event)
{
    if (event->type() == Private::kFrameEventType) {
        Q_EMIT readyRead();
    } else if (event->type() != Private::kStepEventType) {
        QObject::customEvent(event);
    } else if (d->state == kStopping) {
        d->state = kWaiting;
    } else if (d->state == kStarting) {
        d->state = kRunning;
    } else {
        warning("customEvent", "invalid state");
    }
}

bool ScreenGrabber::Private::start()
{
    registAll();
    const QRect source = toDevicePixels(rect, ScreenList::instance().pixelRatio(screen));

    Scale::Params scaled;
    scaled.on_frame = [this](FrameHandle frame) { onScale(std::move(frame)); };
    scaled.size = roundUpToEven(source.size());
    scaled.pixel_format = AV_PIX_FMT_YUV420P;
    scale = std::make_unique<Scale>(std::move(scaled));

    Crop::Params cropped;
    cropped.on_frame = [this](FrameHandle frame) { scale->scale(std::move(frame)); };
    cropped.rect = source;
    crop = std::make_unique<Crop>(std::move(cropped));

    FormatHandle capture = FormatIn::createVideo({frame_rate, getVideoIndex(screen)});
    Decode::Params decoded;
    decoded.on_frame = [this](FrameHandle frame) { crop->crop(std::move(frame)); };
    decoded.format = capture.get();
    decoded.is_video = true;
    decode = std::make_unique<Decode>(std::move(decoded));

    FormatIn::Params opened;
    opened.on_video = [this](PacketHandle packet) { decode->decode(std::move(packet)); };
    opened.format = std::move(capture);
    format_in = std::make_unique<FormatIn>(std::move(opened));

    QCoreApplication::postEvent(q, new QEvent(QEvent::Type(kStepEventType)));
    format_in->start();
    return false;
}

bool ScreenGrabber::Private::stop()
{
    format_in->stop();
    destroyStages();
    QCoreApplication::postEvent(q, new QEvent(QEvent::Type(kStepEventType)));
    return false;
}

void ScreenGrabber::Private::onScale(FrameHandle frame)
{
    std::lock_guard lock(mutex);
    latest = std::move(frame);
    QCoreApplication::postEvent(q, new QEvent(QEvent::Type(kFrameEventType)));
}

void ScreenGrabber::Private::destroyStages()
{
    format_in.reset();
    decode.reset();
    crop.reset();
    scale.reset();
}

} // namespace multimedia
