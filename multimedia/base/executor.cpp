#include "multimedia/base/executor.h"

#include <QtCore/QThreadPool>

#include <utility>

namespace multimedia {

namespace {

class GlobalPool : public Executor
{
public:
    void execute(std::function<void()> task) override
    {
        QThreadPool::globalInstance()->start(std::move(task));
    }
    void releaseThread() override { QThreadPool::globalInstance()->releaseThread(); }
    void reserveThread() override { QThreadPool::globalInstance()->reserveThread(); }
};

thread_local Executor* executor_of_thread = nullptr;

} // namespace

Executor& Executor::current()
{
    // Never destroyed: static objects may still end their work by it.
    static GlobalPool& pool = *new GlobalPool;
    return executor_of_thread ? *executor_of_thread : pool;
}

Executor::Scope::Scope(Executor& executor)
    : previous(std::exchange(executor_of_thread, &executor))
{}

Executor::Scope::~Scope()
{
    executor_of_thread = previous;
}

BlockingSection::BlockingSection()
    : executor(Executor::current())
{
    executor.releaseThread();
}

BlockingSection::~BlockingSection()
{
    executor.reserveThread();
}

} // namespace multimedia
