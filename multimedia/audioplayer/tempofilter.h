#pragma once

#include "multimedia/base/ffmpegptr.h"

namespace multimedia {

/// The filter graph of a playback: whatever a decoder gives becomes 16-bit stereo at 44100 Hz, at the speed
/// asked for. One thread.
class TempoFilter
{
public:
    /// Builds the graph anew; what the old one still held is lost.
    ///
    /// @param speed  see `AudioPlayer::setSpeed`
    /// @return false for a speed or a format that cannot be filtered. `push` may then not be called.
    bool open(const AVCodecContext& codec, AVRational time_base, double speed);
    void close();
    /// Takes over what `frame` holds; null flushes what the tempo filter holds back.
    bool push(AVFrame* frame);
    /// False when there is no more for now.
    bool pull(AVFrame* frame);

private:
    FilterGraphPtr graph;
    AVFilterContext* source = nullptr; ///< of `graph`
    AVFilterContext* sink = nullptr;   ///< of `graph`
};

} // namespace multimedia
