#include "multimedia/screensource_linux/portalsource.h"

#include "multimedia/base/warning.h"
#include "multimedia/base/worker.h"

extern "C" {
#include <libavutil/frame.h>
}

#include <utility>

namespace multimedia {

PortalSource::PortalSource(Params given)
    : params(std::move(given))
    , screen(ScreenList::instance().screen(params.screen_index()))
    , part(params.rect, screen.geometry.size())
{
    ScreenCast::Params asked;
    asked.screen = screen;
    asked.on_shared = [this](int descriptor, uint32_t node) { onShared(descriptor, node); };
    asked.on_end = [this](const std::string& why) { end(why); };
    screen_cast = std::make_unique<ScreenCast>(std::move(asked));
    screen_cast->moveToThread(&thread);
    thread.setObjectName(QStringLiteral("screen_portal"));
    thread.start();
    QMetaObject::invokeMethod(
        screen_cast.get(), [this] { ask(); }, Qt::QueuedConnection);
}

PortalSource::~PortalSource()
{
    BlockingSection blocking;
    QObject::connect(&thread, &QThread::finished, screen_cast.release(), &QObject::deleteLater);
    thread.quit();
    thread.wait();
    stream.reset();
}

void PortalSource::ask()
{
    PipeWireStream::Params pictures;
    pictures.frame_rate = params.frame_rate;
    pictures.on_picture = [this](const DesktopPicture& picture) { onPicture(picture); };
    pictures.on_alarm = [this] { deliver(); };
    pictures.on_end = [this](const std::string& why) { end(why); };
    stream = std::make_unique<PipeWireStream>(std::move(pictures));
    const std::string problem = stream->problem();
    if (problem.empty())
        screen_cast->ask();
    else
        end(problem);
}

void PortalSource::onShared(int descriptor, uint32_t node)
{
    stream->connect(descriptor, node);
}

ScreenSource::State PortalSource::state() const
{
    std::lock_guard lock(mutex);
    return current;
}

QRect PortalSource::area() const
{
    std::lock_guard lock(mutex);
    return {{0, 0}, size};
}

void PortalSource::start()
{
    {
        std::lock_guard lock(mutex);
        running = true;
        if (current != State::Ready)
            return;
    }
    stream->locked([this] {
        is_new = true;
        deliver();
    });
}

void PortalSource::stop()
{
    std::lock_guard lock(mutex);
    running = false;
}

void PortalSource::onPicture(const DesktopPicture& picture)
{
    FrameHandle frame = part.take(picture);
    if (!frame) {
        end("the recorded part does not lie on the screen");
        return;
    }
    newest = std::move(frame);
    is_new = true;
    become(State::Ready);
    deliver();
}

void PortalSource::deliver()
{
    if (!is_new || !isRunning())
        return;
    FrameHandle frame(av_frame_clone(newest.get()), destroyFrame);
    if (frame && (!params.admit || params.admit(&frame->buf[0]))) {
        is_new = false;
        params.on_frame(std::move(frame));
    } else {
        stream->setAlarm();
    }
}

bool PortalSource::isRunning() const
{
    std::lock_guard lock(mutex);
    return running;
}

void PortalSource::become(State next)
{
    {
        std::lock_guard lock(mutex);
        if (current == State::Ended || current == next)
            return;
        current = next;
        size = part.size();
    }
    if (params.on_change)
        params.on_change(next);
}

/// The first reason is the one that counts.
void PortalSource::end(const std::string& why)
{
    {
        std::lock_guard lock(mutex);
        if (std::exchange(current, State::Ended) == State::Ended)
            return;
    }
    warning("screen", why);
    if (params.on_change)
        params.on_change(State::Ended);
}

} // namespace multimedia
