#include "multimedia/screenrecord/pace.h"

extern "C" {
#include <libavutil/frame.h>
}

#include <algorithm>
#include <cmath>
#include <utility>

namespace multimedia {

namespace {

constexpr std::chrono::seconds kFinishTimeout(300);

FrameHandle reference(const FrameHandle& picture)
{
    return {picture ? av_frame_clone(picture.get()) : nullptr, destroyFrame};
}

} // namespace

Pace::Pace(Params given)
    : params(std::move(given))
    , tick_length(std::nano::den / std::max(1, params.frame_rate))
    , worker([this] { return run(); })
{}

Pace::~Pace()
{
    std::lock_guard lock(mutex);
    running = false;
    end_tick = next_tick;
    changed.notify_all();
}

void Pace::start()
{
    std::lock_guard lock(mutex);
    running = true;
    started = std::chrono::steady_clock::now();
    period_zero.reset();
    base_tick = next_tick;
    announced_tick = next_tick - 1;
    end_tick = INT64_MAX;
    announced.clear();
    arrived.clear();
    worker.start();
}

bool Pace::announce(Time captured)
{
    std::lock_guard lock(mutex);
    if (!running)
        return false;
    if (!period_zero) // ticks in step with the pictures, from the start on
        period_zero = captured - (captured - started) / tick_length * tick_length;
    const int64_t tick = tickOf(captured);
    if (tick <= announced_tick || tick >= end_tick)
        return false;
    announced_tick = tick;
    announced.push_back({tick, captured});
    return true;
}

void Pace::forget(Time captured)
{
    std::lock_guard lock(mutex);
    const auto lost =
        std::find_if(announced.begin(), announced.end(),
                     [captured](const Announcement& waiting) { return waiting.captured == captured; });
    if (lost == announced.end())
        return;
    announced.erase(lost);
    changed.notify_all();
}

void Pace::take(FrameHandle picture)
{
    std::lock_guard lock(mutex);
    if (announced.empty()) // of a period that is over
        return;
    arrived.push_back({announced.front().tick, std::move(picture)});
    announced.pop_front();
    changed.notify_all();
}

bool Pace::finish(Time end, Time patience)
{
    BlockingSection blocking;
    std::unique_lock lock(mutex);
    if (!running)
        return true;
    changed.wait_until(lock, patience, [this] { return last || !announced.empty() || !arrived.empty(); });
    if (!period_zero)
        period_zero = started;
    end_tick = std::max({next_tick, base_tick + 1, tickOf(end)});
    changed.notify_all();
    const bool finished = changed.wait_for(lock, kFinishTimeout, [this] { return isFinished(); });
    running = false;
    changed.notify_all();
    return finished;
}

std::optional<Pace::Time> Pace::zero() const
{
    std::lock_guard lock(mutex);
    return period_zero;
}

int64_t Pace::ticks() const
{
    std::lock_guard lock(mutex);
    return next_tick;
}

FrameHandle Pace::newest() const
{
    std::lock_guard lock(mutex);
    return reference(last);
}

bool Pace::run()
{
    std::unique_lock lock(mutex);
    if (!running)
        return false;
    if (FrameHandle picture = next()) {
        delivering = true;
        lock.unlock();
        params.on_frame(std::move(picture));
        lock.lock();
        delivering = false;
        changed.notify_all();
        return running;
    }
    BlockingSection blocking;
    changed.wait_for(lock, tick_length / 2);
    return running;
}

/// The picture of the next tick, if that one is due.
FrameHandle Pace::next()
{
    while (!arrived.empty() && arrived.front().tick < next_tick) { // its tick has been filled meanwhile
        last = std::move(arrived.front().picture);
        arrived.pop_front();
    }
    if (next_tick >= end_tick)
        return {};
    if (!arrived.empty() && (!last || arrived.front().tick == next_tick)) {
        last = std::move(arrived.front().picture);
        arrived.pop_front();
    } else if (!last || (arrived.empty() && !tickIsDue())) {
        return {};
    }
    FrameHandle picture = reference(last);
    if (picture)
        ++next_tick;
    return picture;
}

/// Whether a tick that nothing has come for may be filled: no picture of it is on its way, and none can be
/// captured any more.
bool Pace::tickIsDue()
{
    if (!announced.empty())
        return false;
    if (end_tick != INT64_MAX)
        return true;
    const Time now = std::chrono::steady_clock::now();
    if (!period_zero && now > started + 2 * tick_length) // nothing new since the pause
        period_zero = started;
    return period_zero && now > timeOf(next_tick) + 2 * tick_length;
}

int64_t Pace::tickOf(Time captured) const
{
    const double ticks = std::chrono::duration<double>(captured - *period_zero) / tick_length;
    return base_tick + std::llround(ticks);
}

Pace::Time Pace::timeOf(int64_t tick) const
{
    return *period_zero + (tick - base_tick) * tick_length;
}

bool Pace::isFinished() const
{
    if (delivering || !announced.empty())
        return false;
    return next_tick >= end_tick || (!last && arrived.empty());
}

} // namespace multimedia
