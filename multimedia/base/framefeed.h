#pragma once

#include "multimedia/base/mediahandle.h"

#include <functional>
#include <memory>

namespace multimedia {

/// Hands frames to a stage one at a time: the next one when the stage has let go of the one before.
///
/// `Encode` discards what waits in a batch behind a frame that gave no packet; in a batch of one nothing
/// waits. So every frame that is pushed here is numbered, and none shifts those behind it.
class FrameFeed
{
public:
    /// @param next  the stage's push operation; the stage must take every frame up, or `close` be called
    explicit FrameFeed(std::function<void(FrameHandle)> next);
    /// As `close`.
    ~FrameFeed();
    FrameFeed(const FrameFeed&) = delete;
    FrameFeed& operator=(const FrameFeed&) = delete;

    /// Blocks until the stage has let go of the frame before. One thread at a time.
    void push(FrameHandle frame);
    /// Blocks until the stage has let go of the last frame.
    void finish();
    /// Nobody waits any more, and what is pushed from now on is dropped. Any thread.
    void close();

private:
    struct State;

    void wait();

    const std::function<void(FrameHandle)> next;
    const std::shared_ptr<State> state; ///< shared with the release callable of the frame under way
};

} // namespace multimedia
