#pragma once

#include "multimedia/base/screenlist.h"
#include "multimedia/screensource/screensource.h"
#include "multimedia/screensource_linux/pipewirestream.h"
#include "multimedia/screensource_linux/screencast.h"
#include "multimedia/screensource_linux/screenpart.h"

#include <QtCore/QThread>

#include <memory>
#include <mutex>
#include <string>

namespace multimedia {

/// The screen of a Wayland desktop, as far as its user lets it be seen: the desktop's portal is asked when
/// this is made, its answer is a stream of PipeWire.
///
/// A still screen sends nothing: the newest picture is kept, and is the first of each `start`. A picture that
/// was not let in comes again, unless a newer one comes before it.
///
/// The portal lives on `thread`, PipeWire has a thread of its own, on which all pictures go out.
class PortalSource : public ScreenSource
{
public:
    explicit PortalSource(Params params);
    /// Ends what is under way, a dialog too.
    ~PortalSource() override;

    State state() const override;
    QRect area() const override;
    void open() override {}
    void start() override;
    void stop() override;
    bool canDeliver() const override { return state() == State::Ready; }

private:
    void ask();
    void onShared(int descriptor, uint32_t node);
    void onPicture(const DesktopPicture& picture);
    void become(State next);
    void end(const std::string& why);
    void deliver();
    bool isRunning() const;

    const Params params;
    const ScreenList::Screen screen;

    mutable std::mutex mutex;
    State current = State::Asking; ///< guarded by `mutex`
    QSize size;                    ///< of the pictures; guarded by `mutex`
    bool running = false;          ///< guarded by `mutex`

    // The stream's thread, or while that is locked out.
    ScreenPart part;
    FrameHandle newest;
    bool is_new = false; ///< `newest` has not gone out

    QThread thread;
    std::unique_ptr<ScreenCast> screen_cast; ///< lives on `thread`
    std::unique_ptr<PipeWireStream> stream;  ///< made and connected on `thread`
};

} // namespace multimedia
