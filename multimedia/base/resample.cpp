#include "multimedia/base/resample.h"

#include "multimedia/base/ffmpegversion.h"
#include "multimedia/base/warning.h"

namespace multimedia {

Resample::Resample(Params params)
    : params(std::move(params))
    , input([this] { return run(); })
{}

bool Resample::open(AVFrame* frame)
{
    if (frame && !resampler)
        resampler =
            makeResampler({params.channel_layout, AVSampleFormat(params.sample_format), params.sample_rate},
                          {channelMask(*frame), AVSampleFormat(frame->format), frame->sample_rate});
    // Once: to initialise it again would throw away what is buffered in it.
    if (resampler && !swr_is_initialized(resampler.get()) && swr_init(resampler.get()) < 0)
        resampler.reset();
    return resampler != nullptr;
}

void Resample::close()
{
    resampler.reset();
}

void Resample::resample(FrameHandle frame)
{
    input.push(std::move(frame));
}

void Resample::takeAll()
{
    std::lock_guard lock(input.mutex);
    take_all = true;
    input.wake();
}

bool Resample::run()
{
    const auto batch = input.take();
    if (!open(batch.empty() ? nullptr : batch.front().get()))
        return input.refilled();
    for (const FrameHandle& frame : batch) {
        const int code = swr_convert_frame(resampler.get(), nullptr, frame.get());
        if (code != 0)
            warning("run", "error in convert in", code);
        take(false);
    }
    bool all = false;
    {
        std::lock_guard lock(input.mutex);
        std::swap(all, take_all);
    }
    if (all)
        take(true);
    return input.refilled();
}

void Resample::take(bool all)
{
    for (;;) {
        const int64_t delay = swr_get_delay(resampler.get(), params.sample_rate);
        if (all ? delay <= 0 : delay < params.nb_samples)
            return;
        FrameHandle frame = makeFrame(all ? int(delay) : params.nb_samples);
        const int code = frame ? swr_convert_frame(resampler.get(), frame.get(), nullptr) : AVERROR(ENOMEM);
        if (code != 0) {
            warning("take", "error in convert out", code);
            return;
        }
        if (frame->nb_samples == 0) // what is left is the resampler's own history
            return;
        params.on_frame(std::move(frame));
    }
}

FrameHandle Resample::makeFrame(int samples) const
{
    FrameHandle frame = createFrame();
    if (!frame)
        return {};
    frame->format = params.sample_format;
    setChannelMask(*frame, params.channel_layout);
    frame->sample_rate = params.sample_rate;
    frame->nb_samples = samples;
    if (av_frame_get_buffer(frame.get(), 0) < 0)
        return {};
    return frame;
}

} // namespace multimedia
