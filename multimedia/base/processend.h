#pragma once

#include <functional>
#include <list>

namespace multimedia {

/// Ends what still runs when the process ends.
///
/// While the object lives, `end` is called when the application object goes, and again when static objects
/// are destroyed (`exit` may come without an application's end); on that thread. It waits until its owner's
/// work has ended, and does nothing when there is none. The global thread pool and "multimedia_thread" still
/// work then. Without it Qt would wait for ever for tasks that repeat themselves.
class ProcessEnd
{
public:
    explicit ProcessEnd(std::function<void()> end);
    /// Waits for an `end` under way.
    ~ProcessEnd();
    ProcessEnd(const ProcessEnd&) = delete;
    ProcessEnd& operator=(const ProcessEnd&) = delete;

private:
    std::list<std::function<void()>>::iterator entry;
};

} // namespace multimedia
