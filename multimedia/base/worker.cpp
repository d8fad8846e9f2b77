#include "multimedia/base/worker.h"

#include "multimedia/base/warning.h"

#include <QtCore/QThreadPool>

#include <exception>
#include <utility>

namespace multimedia {

Worker::Worker(Body body, Executor& executor)
    : body(std::move(body))
    , executor(executor)
{}

Worker::~Worker()
{
    stop();
}

QThreadPool* Worker::getThreadPool()
{
    return QThreadPool::globalInstance();
}

void Worker::start()
{
    std::lock_guard lock(mutex);
    if (in_flight) {
        start_requested = true;
        return;
    }
    in_flight = true;
    submit();
}

void Worker::stop()
{
    std::unique_lock lock(mutex);
    if (!in_flight)
        return;
    BlockingSection blocking;
    condition.wait(lock, [this] { return !in_flight; });
}

bool Worker::isRunning() const
{
    std::lock_guard lock(mutex);
    return in_flight;
}

void Worker::submit()
{
    executor.execute([this] { run(); });
}

void Worker::run()
{
    {
        std::lock_guard lock(mutex);
        start_requested = false;
    }
    const bool again = runBody();
    std::lock_guard lock(mutex);
    if (again || start_requested) {
        submit();
        return;
    }
    in_flight = false;
    condition.notify_all();
}

bool Worker::runBody() const
{
    const Executor::Scope scope(executor);
    // What is thrown here would end in the pool, and whoever waits for the body would wait for ever.
    try {
        return body();
    } catch (const std::exception& exception) {
        warning("run", exception.what());
        return false;
    }
}

} // namespace multimedia
