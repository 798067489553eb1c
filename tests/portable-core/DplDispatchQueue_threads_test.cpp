#include "portable-core/DplDispatchQueue.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "portable-core/BreakIntoDebugger.h"
#include "support/ThreadsTestSupport.h"

namespace
{
using threads_test::WaitUntil;

// Lets a test hold a task at a known point.
struct Gate
{
    std::atomic<bool> entered{false};
    std::atomic<bool> open{false};

    void PassWhenOpen()
    {
        entered = true;
        WaitUntil([this] { return open.load(); }, std::chrono::seconds(60));
    }
};

TEST(DplDispatchQueueThreads, OneNamedWorkerRunsTasksInDispatchOrder)
{
    std::mutex mutex;
    std::vector<int> order;
    std::atomic<int> done{0};
    std::string name;
    bool onWorker = false;
    constexpr int kTasks = 200;
    DplDispatchQueue queue("a-rather-long-queue-name", 1);  // last, so it is destroyed first
    for (int i = 0; i < kTasks; ++i)
    {
        queue.dispatch(
            [&, i]
            {
                std::lock_guard lock(mutex);
                order.push_back(i);
                if (i == kTasks - 1)
                {
                    char buffer[32] = {};
                    pthread_getname_np(pthread_self(), buffer, sizeof(buffer));
                    name = buffer;
                    onWorker = queue.isCurrentWorker();
                    queue.dispatch(  // a task may dispatch to its own queue
                        [&]
                        {
                            std::lock_guard inner(mutex);
                            order.push_back(kTasks);
                            ++done;
                        });
                }
                ++done;
            });
    }
    ASSERT_TRUE(WaitUntil([&] { return done.load() == kTasks + 1; }));
    std::lock_guard lock(mutex);
    for (int i = 0; i <= kTasks; ++i)
    {
        ASSERT_EQ(order[i], i);
    }
    EXPECT_EQ(name, "a-rather-long-q");
    EXPECT_TRUE(onWorker);
    EXPECT_FALSE(queue.isCurrentWorker());
}

TEST(DplDispatchQueueThreads, SeveralWorkersRunTasksSideBySide)
{
    std::atomic<int> arrived{0};
    std::atomic<int> metPartner{0};
    DplDispatchQueue queue("pair", 2);
    for (int i = 0; i < 2; ++i)
    {
        queue.dispatch(
            [&]
            {
                ++arrived;
                // Only a second worker can let this one through.
                if (WaitUntil([&] { return arrived.load() == 2; }))
                {
                    ++metPartner;
                }
            });
    }
    ASSERT_TRUE(WaitUntil([&] { return metPartner.load() == 2; }, std::chrono::seconds(60)));
}

TEST(DplDispatchQueueThreads, QuitBeatsQueuedWork)
{
    auto queue = std::make_unique<DplDispatchQueue>("quit", 1);
    Gate gate;
    std::atomic<bool> runningTaskFinished{false};
    std::atomic<int> queuedRan{0};
    auto token = std::make_shared<int>(0);  // captured by every queued task

    queue->dispatch(
        [&]
        {
            gate.PassWhenOpen();
            runningTaskFinished = true;
        });
    for (int i = 0; i < 10; ++i)
    {
        queue->dispatch([&queuedRan, token] { ++queuedRan; });
    }
    ASSERT_TRUE(WaitUntil([&] { return gate.entered.load(); }));
    EXPECT_EQ(token.use_count(), 11);

    std::atomic<bool> destroying{false};
    std::thread destroyer(
        [&]
        {
            destroying = true;
            queue.reset();
        });
    ASSERT_TRUE(WaitUntil([&] { return destroying.load(); }));
    // Give the destructor ample time to raise quit before the running task ends.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_FALSE(runningTaskFinished.load()) << "the destructor waits for the running task";
    gate.open = true;
    destroyer.join();

    EXPECT_TRUE(runningTaskFinished.load());
    EXPECT_EQ(queuedRan.load(), 0);
    EXPECT_EQ(token.use_count(), 1) << "the queued tasks were destroyed with the queue";
}

TEST(DplDispatchQueueThreads, DestructionFromAnotherThreadJoinsEveryWorker)
{
    for (int round = 0; round < 5; ++round)
    {
        auto queue = std::make_unique<DplDispatchQueue>("workers", 3);
        std::atomic<int> started{0};
        std::atomic<int> finished{0};
        for (int i = 0; i < 30; ++i)
        {
            queue->dispatch(
                [&]
                {
                    ++started;
                    std::this_thread::sleep_for(std::chrono::microseconds(200));
                    ++finished;
                });
        }
        std::thread destroyer([&] { queue.reset(); });
        destroyer.join();
        EXPECT_EQ(started.load(), finished.load()) << "a task that began was waited for";
        const int settled = finished.load();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(finished.load(), settled) << "nothing runs after the destructor returned";
    }
}

TEST(DplDispatchQueueThreads, DestructionFromInsideOwnTaskLetsTheWorkersEnd)
{
    for (const int workers : {1, 3})
    {
        SCOPED_TRACE(workers);
        auto queue = std::make_shared<DplDispatchQueue>("self-destroy", workers);
        std::weak_ptr<DplDispatchQueue> watcher = queue;
        auto token = std::make_shared<int>(0);
        std::atomic<bool> afterDestruction{false};
        std::atomic<int> laterRan{0};
        Gate gate;

        auto holder = std::make_shared<std::shared_ptr<DplDispatchQueue>>(queue);
        queue->dispatch(
            [holder, &afterDestruction, &gate]
            {
                gate.PassWhenOpen();
                holder->reset();  // the last owner goes away on one of the queue's own workers
                afterDestruction = true;
            });
        for (int i = 0; i < 6; ++i)
        {
            queue->dispatch(
                [&laterRan, token]
                {
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                    ++laterRan;
                });
        }
        queue.reset();
        holder.reset();
        ASSERT_TRUE(WaitUntil([&] { return gate.entered.load(); }));
        gate.open = true;

        ASSERT_TRUE(WaitUntil([&] { return afterDestruction.load(); }));
        EXPECT_TRUE(watcher.expired());
        // The workers end by themselves and free the queue's state, tasks included.
        EXPECT_TRUE(WaitUntil([&] { return token.use_count() == 1; }));
        const int settled = laterRan.load();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(laterRan.load(), settled) << "nothing runs once the state is freed";
        if (workers == 1)
        {
            EXPECT_EQ(settled, 0) << "the one worker was busy with the destroying task";
        }
    }
}

TEST(DplDispatchQueueThreads, WithoutWorkersNothingEverRuns)
{
    auto token = std::make_shared<int>(0);
    std::atomic<bool> ran{false};
    {
        DplDispatchQueue queue("idle", 0);
        queue.dispatch([&ran, token] { ran = true; });
        queue.dispatch(std::function<void()>());  // an empty task is ignored
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(token.use_count(), 2);
    }
    EXPECT_FALSE(ran.load());
    EXPECT_EQ(token.use_count(), 1);
}

TEST(DplDispatchQueueThreads, ATaskThatThrowsDoesNotStopTheQueue)
{
    std::atomic<int> errors{0};
    threads_test::ScopedLogCapture capture(
        [&](eDbgPrintLevel level, const std::string& line)
        {
            if (level == kDbgPrintLevelError && line.find("throwing") != std::string::npos)
            {
                ++errors;
            }
        });
    const uint64_t breaksBefore = BreakIntoDebugger_GetCallCount();
    std::atomic<bool> afterwards{false};
    {
        DplDispatchQueue queue("throwing", 1);
        queue.dispatch([] { throw std::runtime_error("task failure"); });
        queue.dispatch([&] { afterwards = true; });
        EXPECT_TRUE(WaitUntil([&] { return afterwards.load(); }));
    }
    EXPECT_EQ(errors.load(), 1);
    EXPECT_GE(BreakIntoDebugger_GetCallCount(), breaksBefore + 1);
}
}  // namespace
