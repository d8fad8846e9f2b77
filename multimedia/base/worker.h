#pragma once

#include "multimedia/base/executor.h"

#include <condition_variable>
#include <functional>
#include <mutex>

class QThreadPool;

namespace multimedia {

/// A task that repeats itself on an executor, the global thread pool as a rule, while its body asks for it.
///
/// The body runs with no lock held and says by its result whether it wants to be called again. At most one
/// body of a Worker runs at a time; between two passes the pool may run other tasks. `start` during a pass
/// costs a lock: it asks for one more pass only if that pass ends with "no more", so that an item pushed
/// while the body was deciding is never left behind. A body must therefore bear a pass that finds nothing to
/// do. A body that throws is logged and has said "no more".
///
/// `start`, `stop` and `isRunning` may be called from any thread, not from the body, except `start`. Whether
/// a run is in flight is decided and cleared under `mutex`; once the body has said "no more", nothing of the
/// Worker is touched but the unlock.
class Worker
{
public:
    using Body = std::function<bool()>;

    explicit Worker(Body body, Executor& executor = Executor::current());
    /// Waits as `stop` does.
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    static QThreadPool* getThreadPool();

    void start();
    /// Waits until the body says "no more". Cancels nothing: the owner must end the body first.
    void stop();
    bool isRunning() const;

private:
    void submit();
    void run();
    bool runBody() const;

    const Body body;
    Executor& executor;
    mutable std::mutex mutex;
    bool in_flight = false;            ///< guarded by `mutex`
    bool start_requested = false;      ///< `start` came during the present pass; guarded by `mutex`
    std::condition_variable condition; ///< notified when `in_flight` is cleared
};

} // namespace multimedia
