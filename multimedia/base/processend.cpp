#include "multimedia/base/processend.h"

#include "multimedia/base/threadinfo.h"
#include "multimedia/base/worker.h"

#include <QtCore/QCoreApplication>

#include <algorithm>
#include <mutex>

namespace multimedia {

/// Never destroyed: an object that is itself destroyed late still takes its entry out.
class ProcessEnd::Ends
{
public:
    static Ends& instance()
    {
        static Ends& ends = *new Ends;
        return ends;
    }

    std::list<Entry>::iterator add(std::function<void()> end)
    {
        std::lock_guard lock(mutex);
        // Qt forgets its routines once it has called them.
        if (QCoreApplication::instance() && !std::exchange(routine_added, true))
            qAddPostRoutine([] { instance().applicationGoes(); });
        return entries.insert(entries.end(), {std::move(end), round});
    }
    void remove(std::list<Entry>::iterator entry)
    {
        std::lock_guard lock(mutex);
        entries.erase(entry);
    }
    void callAll()
    {
        std::lock_guard lock(mutex);
        ++round;
        const auto is_left = [this](const Entry& entry) { return entry.round != round; };
        // An end may take entries out, its own too.
        for (auto next = entries.begin();
             (next = std::find_if(entries.begin(), entries.end(), is_left)) != entries.end();) {
            next->round = round;
            const std::function<void()> end = next->end;
            end();
        }
    }

private:
    /// What every end needs is made before any is called at the exit, and so destroyed after that.
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

    std::recursive_mutex mutex;
    std::list<Entry> entries;   ///< guarded by `mutex`
    unsigned round = 0;         ///< guarded by `mutex`
    bool routine_added = false; ///< guarded by `mutex`
};

ProcessEnd::AtExit::~AtExit()
{
    Ends::instance().callAll();
}

ProcessEnd::ProcessEnd(std::function<void()> end)
    : entry(Ends::instance().add(std::move(end)))
{}

ProcessEnd::~ProcessEnd()
{
    Ends::instance().remove(entry);
}

} // namespace multimedia
