#pragma once

#include <functional>

namespace multimedia {

/// Runs tasks on threads of its own.
///
/// All operations may be called from any thread. An executor outlives its tasks.
class Executor
{
public:
    virtual ~Executor() = default;
    Executor& operator=(const Executor&) = delete;

    /// Runs `task` as soon as a thread is free. The task must not throw.
    virtual void execute(std::function<void()> task) = 0;
    /// The task that calls is about to block; another one may have its thread.
    virtual void releaseThread() = 0;
    /// It goes on.
    virtual void reserveThread() = 0;

    /// Where the task of this thread runs, so that what it makes runs there, too; elsewhere the global thread
    /// pool.
    static Executor& current();

    /// Makes an executor the current one of this thread.
    class Scope
    {
    public:
        explicit Scope(Executor& executor);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        Executor* const previous;
    };

protected:
    Executor() = default;
    Executor(const Executor&) = default;
};

/// Lends the caller's thread to other tasks of its executor for as long as the caller blocks.
class BlockingSection
{
public:
    BlockingSection();
    ~BlockingSection();
    BlockingSection(const BlockingSection&) = delete;
    BlockingSection& operator=(const BlockingSection&) = delete;

private:
    Executor& executor;
};

} // namespace multimedia
