#include "multimedia/base/threadinfo.h"
#include "multimedia/base/worker.h"
#include "tests/support/threadexecutor.h"

#include <QtTest/QtTest>

#include <atomic>
#include <list>
#include <thread>
#include <vector>

using multimedia::Worker;

class TestWorker : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void start_neverRunsTwoBodies_whenCalledFromManyThreads();
    void start_losesNoItem_whenPushedWhileTheBodyEnds();
    void stop_waitsForTheBody_onAPoolOfOneThread();
    void moveToThread_startsAndEndsTheThread_withItsObjects();
};

void TestWorker::start_neverRunsTwoBodies_whenCalledFromManyThreads()
{
    std::atomic<int> inside = 0;
    std::atomic<int> most = 0;
    std::atomic<int> passes = 0;
    Worker worker([&] {
        most = std::max(most.load(), ++inside);
        std::this_thread::yield();
        --inside;
        return ++passes % 3 != 0;
    });
    std::list<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int n = 0; n < 2000; ++n)
                worker.start();
        });
    for (std::thread& thread : threads)
        thread.join();
    worker.stop();
    QVERIFY(!worker.isRunning());
    QVERIFY(passes > 0);
    QCOMPARE(most.load(), 1);
}

void TestWorker::start_losesNoItem_whenPushedWhileTheBodyEnds()
{
    constexpr int kItems = 200'000;
    std::mutex mutex;
    std::list<int> queue;
    std::vector<int> taken;
    Worker worker([&] {
        std::list<int> batch;
        {
            std::lock_guard lock(mutex);
            batch.swap(queue);
        }
        taken.insert(taken.end(), batch.begin(), batch.end());
        std::lock_guard lock(mutex);
        return !queue.empty();
    });
    for (int i = 0; i < kItems; ++i) {
        std::lock_guard lock(mutex);
        queue.push_back(i);
        worker.start();
    }
    worker.stop();
    QCOMPARE(int(taken.size()), kItems);
    for (int i = 0; i < kItems; ++i)
        QCOMPARE(taken[size_t(i)], i);
}

void TestWorker::stop_waitsForTheBody_onAPoolOfOneThread()
{
    QThreadPool* pool = Worker::getThreadPool();
    const int threads = pool->maxThreadCount();
    pool->setMaxThreadCount(1);
    int passes = 0;
    Worker inner([&] { return ++passes < 100; });
    Worker outer([&] {
        inner.start();
        inner.stop(); // on the pool's only thread
        return false;
    });
    outer.start();
    outer.stop();
    pool->setMaxThreadCount(threads);
    QCOMPARE(passes, 100);
}

void TestWorker::moveToThread_startsAndEndsTheThread_withItsObjects()
{
    if (!kQueuedCallsAreSeen)
        QSKIP("queued calls");
    for (int round = 0; round < 20; ++round) {
        auto first = std::make_unique<QObject>();
        auto second = std::make_unique<QObject>();
        multimedia::moveToThread(*first);
        multimedia::moveToThread(*second);
        QThread* thread = first->thread();
        QCOMPARE(thread->objectName(), QStringLiteral("multimedia_thread"));
        QTRY_VERIFY(thread->isRunning());

        QThread* seen = nullptr;
        QTRY_VERIFY(multimedia::runOnThreadOf(*first, [&] { seen = QThread::currentThread(); }));
        QCOMPARE(seen, thread);

        first.reset();
        QVERIFY(thread->isRunning());
        // The last one goes on a thread of the pool, as the recorder's do.
        Worker worker([&] {
            second.reset();
            return false;
        });
        worker.start();
        worker.stop();
        QVERIFY(!thread->isRunning());
    }
}

QTEST_GUILESS_MAIN(TestWorker)
#include "test_worker.moc"
