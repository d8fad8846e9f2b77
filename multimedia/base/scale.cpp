#include "multimedia/base/scale.h"

#include "multimedia/base/pixelscaler.h"
#include "multimedia/base/warning.h"

extern "C" {
#include <libavutil/imgutils.h>
}

namespace multimedia {

namespace {
/// Bytes: as wide as any vector unit reads.
constexpr int kLineAlignment = 64;
} // namespace

Scale::Scale(Params params)
    : params(std::move(params))
    , input([this] { return run(); })
{}

bool Scale::open(AVFrame* frame)
{
    if (scaler)
        return true;
    source_size = {frame->width, frame->height};
    source_format = frame->format;
    if (params.size.width() < 0 || params.size.height() < 0)
        params.size = source_size;
    scaler = makeScaler({AVPixelFormat(frame->format), frame->width, frame->height},
                        {AVPixelFormat(params.pixel_format), params.size.width(), params.size.height()},
                        SWS_BICUBIC);
    const int bytes = av_image_get_buffer_size(AVPixelFormat(params.pixel_format), params.size.width(),
                                               params.size.height(), kLineAlignment);
    pool.reset(bytes < 0 ? nullptr
                         : av_buffer_pool_init(size_t(bytes) + AV_INPUT_BUFFER_PADDING_SIZE, nullptr));
    if (!pool)
        scaler.reset();
    if (!scaler)
        return false;
    if (params.color_space != AVCOL_SPC_UNSPECIFIED) {
        constexpr int kFull = 1;
        constexpr int kLimited = 0;
        constexpr int kOne = 1 << 16; // contrast and saturation unchanged
        const int* matrix = sws_getCoefficients(params.color_space);
        sws_setColorspaceDetails(scaler.get(), matrix, kFull, matrix, kLimited, 0, kOne, kOne);
    }
    return true;
}

void Scale::close()
{
    scaler.reset();
}

void Scale::scale(FrameHandle frame)
{
    input.push(std::move(frame));
}

bool Scale::run()
{
    const auto batch = input.take();
    if (batch.empty() || !open(batch.front().get()))
        return input.refilled();
    for (const FrameHandle& frame : batch) {
        if (FrameHandle converted = convert(*frame))
            params.on_frame(std::move(converted));
        else
            warning("run", "error in scale");
    }
    return input.refilled();
}

FrameHandle Scale::convert(const AVFrame& frame) const
{
    if (frame.format != source_format || frame.width < source_size.width() ||
        frame.height < source_size.height())
        return {};
    FrameHandle converted = makeFrame();
    if (!converted)
        return {};
    // Taller frames give the rows that the scaler was made for.
    const int rows = sws_scale(scaler.get(), frame.data, frame.linesize, 0, source_size.height(),
                               converted->data, converted->linesize);
    return rows > 0 ? std::move(converted) : FrameHandle();
}

FrameHandle Scale::makeFrame() const
{
    FrameHandle frame = createFrame();
    if (!frame)
        return {};
    frame->width = params.size.width();
    frame->height = params.size.height();
    frame->format = params.pixel_format;
    frame->buf[0] = av_buffer_pool_get(pool.get());
    if (!frame->buf[0])
        return {};
    av_image_fill_arrays(frame->data, frame->linesize, frame->buf[0]->data, AVPixelFormat(frame->format),
                         frame->width, frame->height, kLineAlignment);
    return frame;
}

} // namespace multimedia
