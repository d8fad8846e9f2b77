#pragma once

#include "multimedia/base/executor.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <thread>
#include <utility>

/// An executor that Qt has no part in, so that ThreadSanitizer sees all of it. It has as many threads as
/// tasks want to run at once; one that has nothing to do ends, as those of Qt's pool do.
class ThreadExecutor : public multimedia::Executor
{
public:
    void execute(std::function<void()> task) override
    {
        std::lock_guard lock(mutex);
        tasks.push_back(std::move(task));
        if (int(tasks.size()) > idle)
            std::thread([this] { work(); }).detach();
        changed.notify_one();
    }
    void releaseThread() override {}
    void reserveThread() override {}

private:
    static constexpr std::chrono::milliseconds kIdleTime{100};

    void work()
    {
        std::unique_lock lock(mutex);
        while (true) {
            ++idle;
            const bool is_wanted = changed.wait_for(lock, kIdleTime, [this] { return !tasks.empty(); });
            --idle;
            if (!is_wanted)
                return;
            const std::function<void()> task = std::move(tasks.front());
            tasks.pop_front();
            lock.unlock();
            task();
            lock.lock();
        }
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::list<std::function<void()>> tasks; ///< guarded by `mutex`
    int idle = 0;                           ///< threads that wait; guarded by `mutex`
};

/// ThreadSanitizer does not see what orders Qt's queued calls.
#ifdef __SANITIZE_THREAD__
constexpr bool kQueuedCallsAreSeen = false;
/// What the tests of a program that includes this make, on its main thread, runs there.
inline const multimedia::Executor::Scope without_qt(*new ThreadExecutor);
#else
constexpr bool kQueuedCallsAreSeen = true;
#endif
