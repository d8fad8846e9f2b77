#include "multimedia/base/grabscreen.h"

#include "multimedia/base/warning.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
}

#include <QtGui/QImage>
#include <QtGui/QPixmap>
#include <QtGui/QScreen>

#include <algorithm>
#include <cstring>

namespace multimedia {

GrabScreen::GrabScreen(Params params)
    : params(std::move(params))
    , interval_ms(1000 / std::max(1, this->params.frame_rate))
    , worker([this] { return run(); })
{}

GrabScreen::~GrabScreen()
{
    stop();
    worker.stop();
}

void GrabScreen::start()
{
    std::lock_guard lock(mutex);
    next_frame = std::chrono::steady_clock::now();
    running = true;
    worker.start();
}

void GrabScreen::stop()
{
    std::lock_guard lock(mutex);
    running = false;
}

bool GrabScreen::run()
{
    {
        std::lock_guard lock(mutex);
        if (!running)
            return false;
    }
    if (FrameHandle frame = grab())
        params.on_frame(std::move(frame));
    else
        warning("run", "error in grab screen");

    BlockingSection blocking;
    std::unique_lock lock(mutex);
    next_frame += std::chrono::milliseconds(interval_ms);
    condition.wait_until(lock, next_frame, [] { return false; });
    return running;
}

FrameHandle GrabScreen::grab() const
{
    if (!params.screen)
        return {};
    const QRect& rect = params.rect;
    const QImage image =
        params.screen->grabWindow(0, rect.left(), rect.top(), rect.width(), rect.height()).toImage();
    FrameHandle frame = image.isNull() ? FrameHandle() : createFrame();
    if (!frame)
        return {};
    frame->width = image.width();
    frame->height = image.height();
    frame->format = AV_PIX_FMT_BGRA;
    if (av_frame_get_buffer(frame.get(), 0) < 0)
        return {};
    // The pixels go in as they are, whatever the depth of the screen.
    frame->linesize[0] = image.bytesPerLine();
    std::memcpy(frame->data[0], image.constBits(),
                std::min(size_t(image.sizeInBytes()), frame->buf[0]->size));
    return frame;
}

} // namespace multimedia
