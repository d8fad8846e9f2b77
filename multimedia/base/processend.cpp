#include "multimedia/base/processend.h"

#include "multimedia/base/threadinfo.h"
#include "multimedia/base/worker.h"

#include <QtCore/QCoreApplication>

#include <algorithm>
#include <condition_variable>
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
        return entries.insert(entries.end(), {std::move(end), round, {}});
    }
    void remove(std::list<Entry>::iterator entry)
    {
        std::unique_lock lock(mutex);
        called.wait(lock, [entry] {
            return entry->caller == std::thread::id() || entry->caller == std::this_thread::get_id();
        });
        entries.erase(entry);
    }
    void callAll()
    {
        std::unique_lock lock(mutex);
        ++round;
        const auto is_left = [this](const Entry& entry) { return entry.round != round; };
        for (auto next = entries.begin();
             (next = std::find_if(entries.begin(), entries.end(), is_left)) != entries.end();) {
            next->round = round;
            call(next, lock);
        }
    }

private:
    /// What every end needs is made before any is called at the exit, and so destroyed after that.
    Ends()
    {
        Worker::getThreadPool();
        ThreadInfo::instance();
    }
    /// Not with the lock held: what is waited for may add entries. The end may take entries out, its own too.
    void call(std::list<Entry>::iterator entry, std::unique_lock<std::mutex>& lock)
    {
        entry->caller = std::this_thread::get_id();
        const std::function<void()> end = entry->end;
        const Entry* const address = &*entry;
        lock.unlock();
        end();
        lock.lock();
        for (Entry& left : entries) {
            if (&left == address)
                left.caller = {};
        }
        called.notify_all();
    }
    void applicationGoes()
    {
        callAll();
        std::lock_guard lock(mutex);
        routine_added = false;
    }

    std::mutex mutex;
    std::condition_variable called;
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
