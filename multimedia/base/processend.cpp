#include "multimedia/base/processend.h"

#include "multimedia/base/threadinfo.h"
#include "multimedia/base/worker.h"

#include <QtCore/QCoreApplication>

#include <mutex>
#include <utility>

namespace multimedia {

namespace {

/// Never destroyed: an object that is itself destroyed late still takes its entry out.
class Ends
{
public:
    static Ends& instance()
    {
        static Ends& ends = *new Ends;
        static const Guard guard;
        return ends;
    }

    std::list<std::function<void()>>::iterator add(std::function<void()> end)
    {
        std::lock_guard lock(mutex);
        // Qt forgets its routines once it has called them.
        if (QCoreApplication::instance() && !std::exchange(routine_added, true))
            qAddPostRoutine([] { instance().applicationGoes(); });
        return entries.insert(entries.end(), std::move(end));
    }
    void remove(std::list<std::function<void()>>::iterator entry)
    {
        std::lock_guard lock(mutex);
        entries.erase(entry);
    }

private:
    struct Guard
    {
        ~Guard() { instance().callAll(); }
    };

    /// What an end needs is made before the guard, and so destroyed after it.
    Ends()
    {
        Worker::getThreadPool();
        ThreadInfo::instance();
    }
    void applicationGoes()
    {
        callAll();
        std::lock_guard lock(mutex);
        routine_added = false;
    }
    void callAll()
    {
        std::lock_guard lock(mutex);
        for (const std::function<void()>& end : entries)
            end();
    }

    std::mutex mutex;
    std::list<std::function<void()>> entries; ///< guarded by `mutex`
    bool routine_added = false;               ///< guarded by `mutex`
};

} // namespace

ProcessEnd::ProcessEnd(std::function<void()> end)
    : entry(Ends::instance().add(std::move(end)))
{}

ProcessEnd::~ProcessEnd()
{
    Ends::instance().remove(entry);
}

} // namespace multimedia
