#include "multimedia/base/threadinfo.h"

#include "multimedia/base/worker.h"

#include <QtCore/QAbstractEventDispatcher>
#include <QtCore/QCoreApplication>

namespace multimedia {

namespace {
constexpr unsigned long kShutDownTimeout_ms = 1000;
} // namespace

ThreadInfo& ThreadInfo::instance()
{
    static ThreadInfo thread_info;
    return thread_info;
}

ThreadInfo::ThreadInfo()
{
    const QCoreApplication* application = QCoreApplication::instance();
    if (application && application->thread() != QThread::currentThread())
        QObject::moveToThread(application->thread());
    setObjectName(QStringLiteral("multimedia_thread"));
}

ThreadInfo::~ThreadInfo()
{
    shutDown();
}

void ThreadInfo::addInstance(QObject& object)
{
    connect(
        &object, &QObject::destroyed, this, [this] { removeInstance(); }, Qt::DirectConnection);
    object.moveToThread(this);
    std::lock_guard lock(mutex);
    ++instance_count;
}

void ThreadInfo::startThread()
{
    std::lock_guard lock(mutex);
    if (instance_count == 0) // the object was quicker than the event loop
        return;
    if (quitting) {
        wait();
        quitting = false;
    }
    if (!isRunning())
        start(QThread::InheritPriority);
}

void ThreadInfo::removeInstance()
{
    std::lock_guard lock(mutex);
    if (--instance_count == 0)
        shutDown();
}

void ThreadInfo::shutDown()
{
    quit();
    quitting = true;
    if (QThread::currentThread() != this && !wait(kShutDownTimeout_ms))
        terminate();
}

void moveToThread(QObject& object)
{
    ThreadInfo& thread_info = ThreadInfo::instance();
    thread_info.addInstance(object);
    QMetaObject::invokeMethod(&thread_info, [&thread_info] { thread_info.startThread(); });
}

bool runOnThreadOf(const QObject& object, const std::function<void()>& function)
{
    QThread* thread = object.thread();
    if (thread == QThread::currentThread()) {
        function();
        return true;
    }
    // The dispatcher is the object that stands for a thread that runs.
    QAbstractEventDispatcher* dispatcher = QAbstractEventDispatcher::instance(thread);
    if (!dispatcher)
        return false;
    BlockingSection blocking;
    return QMetaObject::invokeMethod(dispatcher, function, Qt::BlockingQueuedConnection);
}

} // namespace multimedia
