#pragma once

#include "multimedia/base/mediahandle.h"
#include "multimedia/base/worker.h"

#include <QtCore/QRect>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

class QScreen;

namespace multimedia {

/// Source stage: grabs a rectangle of a screen through Qt, at a fixed pace, as BGRA frames.
///
/// Frames keep their schedule: a slow grab shortens the next rest. `start` and `stop` from any thread; the
/// grabs run on the pool, which is possible where Qt's platform bears pixmaps off the main thread (xcb does).
/// Where a grab gives nothing (offscreen, wayland) it is logged and no frame is made.
class GrabScreen
{
public:
    struct Params
    {
        std::function<void(FrameHandle)> on_frame;
        QScreen* screen = nullptr; ///< not owned; must outlive the stage
        QRect rect;                ///< logical pixels
        int frame_rate = 0;        ///< frames per second; less than 1 counts as 1
    };

    explicit GrabScreen(Params params);
    ~GrabScreen();

    void start();
    /// Ends the grabs. Does not wait, nor wake a pass that rests.
    void stop();

private:
    bool run();
    FrameHandle grab() const;

    Params params;
    std::mutex mutex;
    std::condition_variable condition;                ///< pairs with `mutex`; what a pass rests on
    std::chrono::steady_clock::time_point next_frame; ///< guarded by `mutex`
    const int interval_ms;
    bool running = true; ///< guarded by `mutex`
    Worker worker;
};

} // namespace multimedia
