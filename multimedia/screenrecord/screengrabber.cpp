#include "multimedia/screenrecord/screengrabber.h"

#include "multimedia/base/warning.h"
#include "multimedia/devicemgr/permission.h"
#include "multimedia/screenrecord/screengrabberprivate.h"
#include "multimedia/screenrecord/steppedgrabber.h"
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
    d->end();
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
    d->leaving = false;
    d->worker = std::make_unique<Worker>([this] { return d->start(); });
    d->state = kStarting;
    return true;
}

void ScreenGrabber::stop()
{
    if (d->state != kRunning)
        return;
    d->leave();
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
            d->worker->start();
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

void SteppedGrabber::step()
{
    d->worker->start();
}

bool ScreenGrabber::Private::start()
{
    registAll();
    ScreenSource::Params wanted;
    wanted.screen_index = [this] { return getVideoIndex(screen); };
    wanted.rect = rect;
    wanted.frame_rate = frame_rate;
    wanted.on_frame = [this](FrameHandle frame) { crop->crop(std::move(frame)); };
    wanted.on_change = [this](ScreenSource::State next) { onSourceChange(next); };
    source = createScreenSource(std::move(wanted));
    const bool asks = source->state() == ScreenSource::State::Asking;
    if (asks) // it may be stopped before there is an answer
        post(kStepEventType);
    const ScreenSource::State answer = awaitSource();
    if (answer == ScreenSource::State::Ready)
        openStages();
    if (!asks)
        post(kStepEventType);
    if (answer == ScreenSource::State::Ready)
        source->start();
    else if (answer == ScreenSource::State::Ended)
        post(kEndEventType);
    return false;
}

ScreenSource::State ScreenGrabber::Private::awaitSource()
{
    BlockingSection blocking;
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return leaving || source->state() != ScreenSource::State::Asking; });
    return source->state();
}

void ScreenGrabber::Private::onSourceChange(ScreenSource::State next)
{
    if (next == ScreenSource::State::Ended)
        post(kEndEventType);
    std::lock_guard lock(mutex);
    changed.notify_all();
}

/// Ends the wait for the source.
void ScreenGrabber::Private::leave()
{
    std::lock_guard lock(mutex);
    leaving = true;
    changed.notify_all();
}

/// For good.
void ScreenGrabber::Private::end()
{
    leave();
    if (worker)
        worker->stop();
    destroyStages();
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
    source->open();
}

bool ScreenGrabber::Private::stop()
{
    if (source)
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
