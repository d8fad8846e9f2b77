#pragma once

#include "multimedia/base/ffmpegptr.h"
#include "multimedia/base/mediahandle.h"
#include "multimedia/base/stage.h"

#include <cstdint>
#include <functional>

namespace multimedia {

/// Stage: converts audio of any layout into frames of one format and one length, as an encoder wants them.
///
/// Layout, format and rate of the input are those of the first frame. What is shorter than a frame stays in
/// the resampler; with the stage it is lost, unless `takeAll` took it out before.
class Resample
{
public:
    struct Params
    {
        std::function<void(FrameHandle)> on_frame;
        int nb_samples = 0;          ///< samples per channel in each frame
        uint64_t channel_layout = 0; ///< mask of `AV_CH_*` bits
        int sample_format = -1;      ///< an `AVSampleFormat`
        int sample_rate = 0;         ///< Hz
    };

    explicit Resample(Params params);

    /// Makes the resampler for frames like this one, unless there is one or `frame` is null, and initialises
    /// it. True if there is one afterwards.
    bool open(AVFrame* frame);
    void close();
    void resample(FrameHandle frame);
    /// Hands out what is left in the resampler as one shorter frame, behind the frames that wait now.
    void takeAll();

private:
    bool run();
    void take(bool all);
    FrameHandle makeFrame(int samples) const;

    Params params;
    SwrContextPtr resampler; ///< passes only
    bool take_all = false;   ///< guarded by the mutex of `input`
    StageInput<FrameHandle> input;
};

} // namespace multimedia
