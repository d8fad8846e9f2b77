#pragma once

#include "multimedia/base/mediahandle.h"
#include "multimedia/base/worker.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>

namespace multimedia {

/// The clock of a recording: hands out one picture a tick, whatever the source did.
///
/// A source announces a picture when it has been captured; the picture itself comes later, through stages
/// that keep the order. Each tick gets the picture that was captured nearest to it; a tick without one
/// repeats the picture before, as a reference, and a second picture of a tick is left out. A source that
/// sends nothing while its screen is still is repeated as time goes by.
///
/// The first picture of a running period sets the beat: `zero`, where its ticks begin, is less than one tick
/// behind the start, and whole ticks before that picture, which then stands for those before it, too. Ticks
/// are counted over all periods; the time between two is not in them.
///
/// `announce`, `forget` and `take` from any thread, the rest from the recorder's. `on_frame` is called from a
/// pass of the pool, with no lock held, and may block.
class Pace
{
public:
    using Time = std::chrono::steady_clock::time_point;

    struct Params
    {
        std::function<void(FrameHandle)> on_frame;
        int frame_rate = 0; ///< ticks per second
    };

    explicit Pace(Params params);
    /// What is not handed out yet is dropped.
    ~Pace();

    /// A running period begins.
    void start();
    /// A picture was captured and is about to come. False when it has no tick to itself: it is to be left
    /// out.
    bool announce(Time captured);
    /// The picture announced for this moment is lost. Does nothing when it has come.
    void forget(Time captured);
    /// The picture that was announced first of those that are still to come.
    void take(FrameHandle picture);
    /// Ends the period: waits until its ticks up to `end` are handed out. A period has one tick at least, if
    /// there is any picture.
    ///
    /// @param patience  until when the first picture of the recording is waited for
    /// @return false when that took too long
    bool finish(Time end, Time patience);

    /// Of the present period, or the last one.
    std::optional<Time> zero() const;
    /// Handed out so far.
    int64_t ticks() const;
    /// A reference to the picture of the last tick; null before the first.
    FrameHandle newest() const;

private:
    struct Arrival
    {
        int64_t tick = 0;
        FrameHandle picture;
    };
    struct Announcement
    {
        int64_t tick = 0;
        Time captured;
    };

    bool run();
    FrameHandle next();
    bool tickIsDue();
    int64_t tickOf(Time captured) const;
    Time timeOf(int64_t tick) const;
    bool isFinished() const;

    const Params params;
    const std::chrono::nanoseconds tick_length;

    mutable std::mutex mutex; ///< guards what follows
    std::condition_variable changed;
    bool running = false; ///< a period is under way
    bool delivering = false;
    Time started;
    std::optional<Time> period_zero;
    int64_t base_tick = 0; ///< first tick of the period
    int64_t next_tick = 0;
    int64_t announced_tick = -1; ///< the last that was given to a picture
    int64_t end_tick = INT64_MAX;
    std::deque<Announcement> announced; ///< pictures on their way
    std::deque<Arrival> arrived;
    FrameHandle last; ///< the newest picture

    Worker worker; ///< last: its passes use all of the above
};

} // namespace multimedia
