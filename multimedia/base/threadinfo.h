#pragma once

#include <QtCore/QThread>

#include <functional>
#include <mutex>

namespace multimedia {

/// The background thread, "multimedia_thread", for objects that need an event loop.
///
/// It runs while an object lives on it: the first one moved here starts it, the destruction of the last one
/// ends it. Starting and ending exclude each other under `mutex`. It belongs to the main thread.
class ThreadInfo : public QThread
{
    Q_OBJECT

public:
    static ThreadInfo& instance();

    ThreadInfo();
    ~ThreadInfo() override;

    /// Counts `object`, which lives on this thread from now on, until it is destroyed.
    void addInstance(QObject& object);
    void startThread();

private:
    void removeInstance();
    void shutDown();

    std::mutex mutex;
    int instance_count = 0; ///< guarded by `mutex`
    bool quitting = false;  ///< told to end, and not started since; guarded by `mutex`
};

/// Gives `object`, which has no parent and lives on the caller's thread, to the background thread. It must be
/// destroyed by its owner as ever, from any thread. The thread is started by the main thread's event loop.
void moveToThread(QObject& object);

/// Runs `function` on the thread on which `object` lives and waits for it: at once when that is the caller's
/// thread. Not called at all, and false, when that thread does not run.
bool runOnThreadOf(const QObject& object, const std::function<void()>& function);

} // namespace multimedia
