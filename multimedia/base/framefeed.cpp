#include "multimedia/base/framefeed.h"

#include "multimedia/base/executor.h"

#include <condition_variable>
#include <mutex>
#include <utility>

namespace multimedia {

struct FrameFeed::State
{
    std::mutex mutex;
    std::condition_variable changed; ///< pairs with `mutex`
    bool under_way = false;          ///< guarded by `mutex`
    bool closed = false;             ///< guarded by `mutex`

    void released()
    {
        std::lock_guard lock(mutex);
        under_way = false;
        changed.notify_all();
    }
};

FrameFeed::FrameFeed(std::function<void(FrameHandle)> next)
    : next(std::move(next))
    , state(std::make_shared<State>())
{}

FrameFeed::~FrameFeed()
{
    close();
}

void FrameFeed::push(FrameHandle frame)
{
    wait();
    {
        std::lock_guard lock(state->mutex);
        if (state->closed || !frame)
            return;
        state->under_way = true;
    }
    auto destroy = frame.get_deleter();
    next({frame.release(), [state = state, destroy = std::move(destroy)](AVFrame* released) {
              destroy(released);
              state->released();
          }});
}

void FrameFeed::finish()
{
    wait();
}

void FrameFeed::close()
{
    std::lock_guard lock(state->mutex);
    state->closed = true;
    state->changed.notify_all();
}

void FrameFeed::wait()
{
    std::unique_lock lock(state->mutex);
    if (!state->under_way || state->closed)
        return;
    BlockingSection blocking;
    state->changed.wait(lock, [this] { return !state->under_way || state->closed; });
}

} // namespace multimedia
