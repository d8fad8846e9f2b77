#include "multimedia/base/crop.h"

#include "multimedia/base/warning.h"

extern "C" {
#include <libavutil/error.h>
#include <libavutil/frame.h>
}

#include <QtCore/QLoggingCategory>

namespace multimedia {

Crop::Crop(Params params)
    : params(std::move(params))
    , input([this] { return run(); })
{
    const QRect& rect = this->params.rect;
    qCDebug(MultimediaCategoryLogging, "%d, %d, %d, %d", rect.left(), rect.right(), rect.top(),
            rect.bottom());
}

void Crop::crop(FrameHandle frame)
{
    input.push(std::move(frame));
}

bool Crop::run()
{
    for (FrameHandle& frame : input.take()) {
        const int code = apply(*frame);
        if (code < 0)
            warning("run", "error in crop", code);
        else
            params.on_frame(std::move(frame));
    }
    return input.refilled();
}

int Crop::apply(AVFrame& frame) const
{
    const QRect& rect = params.rect;
    // FFmpeg's margins have no sign: a negative one would pass for a rectangle that fits.
    if (!QRect(0, 0, frame.width, frame.height).contains(rect))
        return AVERROR(ERANGE);
    frame.crop_left = size_t(rect.left());
    frame.crop_right = size_t(frame.width - rect.left() - rect.width());
    frame.crop_top = size_t(rect.top());
    frame.crop_bottom = size_t(frame.height - rect.top() - rect.height());
    return av_frame_apply_cropping(&frame, AV_FRAME_CROP_UNALIGNED);
}

} // namespace multimedia
