#include "multimedia/screenrecord/screengrabber.h"

#include "multimedia/base/warning.h"
#include "multimedia/devicemgr/permission.h"
#include "multimedia/screenrecord/screengrabberprivate.h"
#include "multimedia/screenrecord/screengrabberstep.h"
#include "multimedia/screensource/devicepixels.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QEvent>

namespace multimedia {

ScreenGrabber::ScreenGrabber(QObject* parent)
    : QObject(parent)
    , d(std::make_unique<Private>(this))
{
    watchDesktop();
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
    } else if (event->type() == Private::kEndEventType) {
        if (d->state == kRunning) {
            stop();
            ScreenGrabberStep::run(*this);
        }
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

void ScreenGrabberStep::run(ScreenGrabber& grabber)
{
    grabber.d->worker->start();
}

bool ScreenGrabber::Private::start()
{
    registAll();
    ScreenSource::Params wanted;
    wanted.screen_index = [this] { return getVideoIndex(screen); };
    wanted.rect = rect;
    wanted.frame_rate = frame_rate;
    wanted.on_frame = [this](FrameHandle frame) {
        if (!crop)
            openStages();
        crop->crop(std::move(frame));
    };
    wanted.on_change = [this](ScreenSource::State next) {
        if (next == ScreenSource::State::Ended)
            post(kEndEventType);
    };
    source = createScreenSource(std::move(wanted));
    source->open();
    post(kStepEventType);
    source->start();
    if (source->state() == ScreenSource::State::Ended) // perhaps before the step
        post(kEndEventType);
    return false;
}

void ScreenGrabber::Private::openStages()
{
    const QRect area = source->area();
    Scale::Params scaled;
    scaled.on_frame = [this](FrameHandle frame) { onScale(std::move(frame)); };
    scaled.size = roundUpToEven(area.size());
    scaled.pixel_format = AV_PIX_FMT_YUV420P;
    scale = std::make_unique<Scale>(std::move(scaled));

    Crop::Params cropped;
    cropped.on_frame = [this](FrameHandle frame) { scale->scale(std::move(frame)); };
    cropped.rect = area;
    crop = std::make_unique<Crop>(std::move(cropped));
}

bool ScreenGrabber::Private::stop()
{
    source->stop();
    destroyStages();
    post(kStepEventType);
    return false;
}

void ScreenGrabber::Private::onScale(FrameHandle frame)
{
    std::lock_guard lock(mutex);
    latest = std::move(frame);
    post(kFrameEventType);
}

void ScreenGrabber::Private::post(int type) const
{
    QCoreApplication::postEvent(q, new QEvent(QEvent::Type(type)));
}

void ScreenGrabber::Private::destroyStages()
{
    source.reset();
    crop.reset();
    scale.reset();
}

} // namespace multimedia
