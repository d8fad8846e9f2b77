#pragma once

#include "multimedia/base/mediahandle.h"

#include <QtCore/QRect>

#include <functional>
#include <memory>

struct AVBufferRef;

namespace multimedia {

/// Source of a graph: the pictures of a screen, from whoever lets programs see it on this desktop.
///
/// `CaptureSource` is FFmpeg's capture; on a Wayland desktop, where that sees nothing, `PortalSource` asks
/// the desktop. `createScreenSource` chooses.
///
/// `state` from any thread; the rest from the steps of whoever builds the graph, one at a time. The callables
/// come from threads of the source, with no lock held that `start` or `stop` would want. The destructor waits
/// until none is called any more.
class ScreenSource
{
public:
    enum class State {
        Asking, ///< the desktop is asked, and perhaps the user, who has all the time in the world
        Ready,  ///< `area` is known, and pictures can come
        Ended,  ///< refused or taken away; why is in the log
    };

    struct Params
    {
        /// Position of the screen in `QGuiApplication::screens()`, asked anew whenever a capture is opened.
        std::function<int()> screen_index;
        QRect rect;         ///< what is wanted: logical pixels, relative to the screen
        int frame_rate = 0; ///< pictures per second
        /// Whether a picture that has just been captured may go on; may put another buffer in the place of
        /// its own. Everything goes on where this is empty.
        std::function<bool(AVBufferRef**)> admit;
        std::function<void(FrameHandle)> on_frame;
        std::function<void(State)> on_change; ///< `state` is now this; may be empty
    };

    ScreenSource() = default;
    virtual ~ScreenSource() = default;
    ScreenSource(const ScreenSource&) = delete;
    ScreenSource& operator=(const ScreenSource&) = delete;

    virtual State state() const = 0;
    /// Where in its pictures `Params::rect` is: pixels, which may lie outside of them. Empty before `Ready`.
    virtual QRect area() const = 0;
    /// Once, when the graph behind it stands.
    virtual void open() = 0;
    /// Begins to hand out pictures, or goes on after `stop`; while the desktop is asked, once it has
    /// answered.
    virtual void start() = 0;
    /// Does not wait: one picture more may come.
    virtual void stop() = 0;
    /// False when nothing will come of `start`.
    virtual bool canDeliver() const = 0;
};

/// The source of this desktop. First called on the main thread, or `watchDesktop` was; then on any.
std::unique_ptr<ScreenSource> createScreenSource(ScreenSource::Params params);

/// Finds out, on the main thread, what a source on another thread has to know of the desktop.
void watchDesktop();

} // namespace multimedia
