#pragma once

#include "multimedia/base/crop.h"
#include "multimedia/base/processend.h"
#include "multimedia/base/scale.h"
#include "multimedia/base/worker.h"
#include "multimedia/screenrecord/screengrabber.h"
#include "multimedia/screensource/screensource.h"

#include <condition_variable>
#include <memory>
#include <mutex>

namespace multimedia {

/// The graph behind `ScreenGrabber`: ScreenSource > Crop > Scale > `onScale`.
///
/// `start` and `stop` are bodies of `worker`, on the pool; everything else belongs to the owner's thread. The
/// pool side talks to the owner through posted events. Where the desktop asks its user, `start` waits for the
/// answer, and is told to `leave`. A source that ends stops the grabber.
class ScreenGrabber::Private
{
public:
    static constexpr int kStepEventType = 1000;  ///< a step is done
    static constexpr int kFrameEventType = 1001; ///< a frame is ready
    static constexpr int kEndEventType = 1002;   ///< the source gives nothing any more

    explicit Private(ScreenGrabber* q)
        : q(q)
    {}
    /// From source to sink, whatever stands.
    ~Private() { destroyStages(); }

    bool start();
    bool stop();
    void openStages();
    ScreenSource::State awaitSource();
    void onSourceChange(ScreenSource::State next);
    void leave();
    void end();
    void onScale(FrameHandle frame);
    void post(int type) const;
    void destroyStages();

    ScreenGrabber* const q;
    State state = kWaiting; ///< the owner's thread only
    QScreen* screen = nullptr;
    QRect rect;                      ///< logical pixels
    uint8_t frame_rate = 0;          ///< frames per second
    std::mutex mutex;                ///< guards `latest` and `leaving`
    std::condition_variable changed; ///< the source, or `leaving`; pairs with `mutex`
    bool leaving = false;
    std::unique_ptr<Worker> worker;
    FrameHandle latest;
    std::unique_ptr<ScreenSource> source;
    std::unique_ptr<Crop> crop;
    std::unique_ptr<Scale> scale;
    const ProcessEnd process_end{[this] { end(); }};
};

} // namespace multimedia
