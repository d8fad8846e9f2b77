#pragma once

#include <functional>
#include <list>
#include <thread>
#include <utility>

namespace multimedia {

/// Ends what still runs when the process ends: whoever has something at work beside the thread that made it
/// keeps one of these. It stands last among the members, so that what it ends is whole.
///
/// While the object lives, its function is called when the application object goes, and again when static
/// objects are destroyed (`exit` may come without an application's end); on that thread. It waits until the
/// work of its owner has ended, and does nothing when there is none. It may be called any number of times,
/// and may destroy other owners. The global thread pool and "multimedia_thread" still work then. Without it
/// Qt would wait for ever for tasks that repeat themselves, and what the work uses would go from under it.
///
/// What an owner uses may be a static object that is made later than the owner. Then one more of these, a
/// static one whose function does nothing, stands behind the place where that is made: at the exit every end
/// is called before anything goes that was there before any of these objects.
class ProcessEnd
{
public:
    /// @param end  to be written at the place of the call, so that owners of different kinds have functions
    ///             of different types: of static objects those are outlived that were there when the first
    ///             of its kind came
    template<typename End>
    explicit ProcessEnd(End end)
        : ProcessEnd(std::function<void()>(std::move(end)))
    {
        static const AtExit at_exit;
    }
    /// Waits for an end under way on another thread.
    ~ProcessEnd();
    ProcessEnd(const ProcessEnd&) = delete;
    ProcessEnd& operator=(const ProcessEnd&) = delete;

private:
    struct Entry
    {
        std::function<void()> end;
        unsigned round = 0;     ///< of the last time that all were called
        std::thread::id caller; ///< the thread that is calling it
    };
    class Ends;
    struct AtExit
    {
        ~AtExit();
    };

    explicit ProcessEnd(std::function<void()> end);

    std::list<Entry>::iterator entry;
};

} // namespace multimedia
