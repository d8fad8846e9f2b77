#pragma once

#include "multimedia/base/mediahandle.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>

namespace multimedia {

/// Puts the sound of a microphone where it belongs on the recorder's clock.
///
/// A microphone delivers samples and no times. When a frame comes, its last sample was captured some delay
/// ago; the delay has a floor, and what is above it is a busy machine. So frames are held back for a moment
/// (`kHold`), and the least delay seen in it tells when the first of them was captured:
///
/// - a gap that stays (an overrun, a machine that slept, a device that paused) is filled with silence;
/// - samples too many, after silence stood in for them, are cut off;
/// - a microphone whose clock runs a little fast or slow loses or repeats a single sample now and then;
/// - what was captured before the start is left away, to the sample.
///
/// Interleaved samples of one format; what comes first says which. Any thread; `on_frame` is called with the
/// mutex held, so that the order stays, and must not call back.
class SoundPace
{
public:
    using Time = std::chrono::steady_clock::time_point;

    struct Format
    {
        int sample_format = -1; ///< an `AVSampleFormat`, interleaved
        int sample_rate = 0;    ///< Hz
        uint64_t channel_layout = 0;
    };

    struct Params
    {
        std::function<void(FrameHandle)> on_frame;
        Format format; ///< of the silence, as long as no sound has come
    };

    explicit SoundPace(Params params);

    /// `zero` is where the sound begins. Only the first call counts.
    void start(Time zero);
    /// The samples that follow those of the frame before.
    void take(FrameHandle sound, Time arrived);
    /// Silence where nothing has come for long. To be called again and again.
    void advance(Time now);
    /// Fills up to `end`, waiting a moment for what was captured until then, and ends: with a little silence
    /// more, which pushes the last samples out of the stages behind.
    void finish(Time end);

private:
    struct Piece
    {
        FrameHandle sound;
        int64_t begin = 0; ///< samples that the microphone had delivered before
        Time arrived;
        double offset_s = 0; ///< from the microphone's count of samples to the clock, at the latest
    };

    void placeReady(Time now);
    void place(Piece& piece, double offset_s);
    double leastOffset() const;
    void passOn(AVFrame& sound, int skip, int count);
    void silence(int64_t samples);
    FrameHandle makeFrame(int samples) const;
    int64_t sampleAt(double seconds) const;
    double sinceZero(Time time) const;
    bool hasAllUpTo(Time end) const;

    const Params params;
    std::condition_variable changed; ///< notified of each piece that comes
    std::mutex mutex;                ///< guards what follows
    Format format;
    std::optional<Time> zero;
    bool finished = false;
    int64_t taken = 0;  ///< samples that have come
    int64_t passed = 0; ///< samples that went on: the position in the file
    std::optional<Time> last_arrival;
    std::deque<Piece> held;
};

} // namespace multimedia
