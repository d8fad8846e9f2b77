#pragma once

#include "multimedia/base/worker.h"

#include <cstddef>
#include <list>
#include <mutex>
#include <utility>

/// @file
/// The contract of a stage, and the input queue that all stages with an input share.
///
/// A stage takes media on one side, works on them on the global thread pool and hands the result to the next
/// stage. Sources (`FormatIn`, `GetQaudio`, `GrabScreen`) have no input, the sink (`FormatOut`) no output.
///
/// **Making.** A stage takes one `Params` value in its constructor; the next stage is a callable in it. A
/// stage that fails to open logs why, stays in the chain, inert, and is destroyed like any other.
///
/// **Ownership.** Frames and packets travel as handles taken by value: whoever holds the handle owns the
/// object. What a stage cannot pass on it releases. A format or stream pointer in a `Params` without a handle
/// is not owned and must outlive the stage.
///
/// **Threads.** The push operation (`decode`, `encode`, `scale`, `crop`, `resample`, `write`) may be called
/// from any thread; order of arrival is the order under the stage's mutex. The work runs on pool threads, one
/// pass at a time, and what only passes touch (codec, scaler, resampler, muxer) needs no lock. A source
/// blocks inside its pass; it lends its pool thread out meanwhile (`BlockingSection`).
///
/// **Locks.** Stage mutex first, then the Worker's; never the reverse. The next stage is called with no lock
/// held, except by `Decode`, which holds its stage mutex: nothing behind a `Decode` may call back into it.
///
/// **Back-pressure.** There is none: queues are unbounded and nothing is dropped for being late. Who builds a
/// chain bounds what flows into it (`PictureBudget`).
///
/// **End.** There is no end-of-stream message. A chain ends by its orderly destruction from source to sink: a
/// destructor stops the input, flushes where its stage has a delay, waits for its Worker, and releases the
/// codec; the stages behind it are still alive meanwhile.

namespace multimedia {

/// Unbounded input queue of a stage, with the Worker that empties it.
///
/// A stage declares it last: so it is destroyed first, waiting for the passes while all that they use still
/// stands.
///
/// @tparam Handle  what the stage takes; moved in, moved out
template<typename Handle>
class StageInput
{
public:
    using Batch = std::list<Handle>;

    /// @param body  the stage's pass: takes the batch, works, and returns `refilled()`
    explicit StageInput(Worker::Body body)
        : worker(std::move(body))
    {}

    void push(Handle item)
    {
        std::lock_guard lock(mutex);
        items.push_back(std::move(item));
        worker.start();
    }

    /// Everything that has arrived, in order of arrival; the queue is empty afterwards.
    Batch take()
    {
        Batch batch;
        std::lock_guard lock(mutex);
        batch.swap(items);
        return batch;
    }

    /// Whether something has arrived since `take`: the result of a pass.
    bool refilled() const
    {
        std::lock_guard lock(mutex);
        return !items.empty();
    }

    /// Asks for a pass, with or without an item.
    void wake() { worker.start(); }

    /// Waits until the passes have ended. The stage's input must have ended before.
    void finish() { worker.stop(); }

    /// The stage's mutex; it guards the queue and whatever else the stage says.
    mutable std::mutex mutex;

private:
    Batch items; ///< guarded by `mutex`
    Worker worker;
};

} // namespace multimedia
