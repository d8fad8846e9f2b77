#pragma once

#include "multimedia/base/ffmpegversion.h"

/// A sample format, layout and rate converter with its options.
///
/// Layouts are masks of `AV_CH_*` bits. Results are FFmpeg's; failures are logged. One thread at a time.
class CMediaResample
{
public:
    void setSrcopt(long long layout, int rate, AVSampleFormat format);
    void setDstopt(long long layout, int rate, AVSampleFormat format);
    /// Makes the converter from the options: 0, or a negative code and no converter.
    int initOpt();
    /// Samples per channel written to `out`, or a negative code; -1 without a converter.
    /// @param outCount  samples per channel that `out` has room for
    /// @param inCount   samples per channel in `in`
    int convert(uint8_t** out, int outCount, uint8_t** in, int inCount);
    /// Frees the converter and forgets the options.
    void reset();

private:
    static constexpr multimedia::AudioLayout kUnset = {AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_NONE, 0};

    multimedia::SwrContextPtr context;
    multimedia::AudioLayout source = kUnset;
    multimedia::AudioLayout destination = kUnset;
};
