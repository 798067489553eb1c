#include "portable-core/DplDispatchTimer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "support/ThreadsTestSupport.h"

namespace
{
using std::chrono::steady_clock;
using threads_test::SecondsSince;
using threads_test::WaitUntil;

// Keeps dispatched work until the test runs it.
class ManualDispatcher : public DplDispatching
{
public:
    void dispatch(const std::function<void()>& work) override { dispatch(std::function<void()>(work)); }
    void dispatch(std::function<void()>&& work) override
    {
        std::lock_guard lock(mutex_);
        work_.push_back(std::move(work));
    }
    size_t Pending()
    {
        std::lock_guard lock(mutex_);
        return work_.size();
    }
    std::deque<std::function<void()>> Take()
    {
        std::deque<std::function<void()>> work;
        std::lock_guard lock(mutex_);
        work.swap(work_);
        return work;
    }
    // Runs and drops everything kept so far; returns how many.
    size_t RunAll()
    {
        std::deque<std::function<void()>> work = Take();
        for (auto& item : work)
        {
            item();
        }
        return work.size();
    }

private:
    std::mutex mutex_;
    std::deque<std::function<void()>> work_;
};

TEST(DplDispatchTimerThreads, EveryStartWaitsOneIntervalAndAOneShotFiresOnce)
{
    auto queue = std::make_shared<DplDispatchQueue>("timer-interval", 1);
    const steady_clock::time_point origin = steady_clock::now();
    auto sinceOrigin = [&] { return SecondsSince(origin); };
    std::atomic<double> lastCall{-1.0};
    std::atomic<int> calls{0};
    DplDispatchTimer timer(
        queue, 0.25f,
        [&]
        {
            lastCall = sinceOrigin();
            ++calls;
        },
        false);
    EXPECT_TRUE(timer.getRunning());
    ASSERT_TRUE(WaitUntil([&] { return calls.load() == 1 && !timer.getRunning(); }));
    EXPECT_GE(lastCall.load(), 0.25) << "not at once: one whole interval first";
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(calls.load(), 1) << "a one-shot fires once";

    const double restart = sinceOrigin();
    timer.start();
    ASSERT_TRUE(WaitUntil([&] { return calls.load() == 2; }));
    EXPECT_GE(lastCall.load() - restart, 0.25);
    EXPECT_TRUE(WaitUntil([&] { return !timer.getRunning(); }));

    // start() on a running timer restarts it: still one interval before the call.
    timer.start();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const double again = sinceOrigin();
    timer.start();
    ASSERT_TRUE(WaitUntil([&] { return calls.load() == 3; }));
    EXPECT_GE(lastCall.load() - again, 0.25);
}

TEST(DplDispatchTimerThreads, NotStartedUntilAskedThenRunsOnTheDispatcherRepeatedly)
{
    auto queue = std::make_shared<DplDispatchQueue>("timer-repeat", 1);
    std::atomic<int> calls{0};
    std::atomic<int> offWorker{0};
    DplDispatchTimer timer(
        queue, 0.01f,
        [&]
        {
            offWorker += queue->isCurrentWorker() ? 0 : 1;
            ++calls;
        },
        true, false);
    EXPECT_FALSE(timer.getRunning());
    timer.stop();  // nothing to stop
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(calls.load(), 0);
    timer.start();
    EXPECT_TRUE(WaitUntil([&] { return calls.load() >= 3; }));
    timer.stop();
    EXPECT_EQ(offWorker.load(), 0);
    EXPECT_FALSE(timer.getRunning());
}

TEST(DplDispatchTimerThreads, StopDuringTheWaitReturnsPromptlyWithoutACall)
{
    auto dispatcher = std::make_shared<ManualDispatcher>();
    std::atomic<int> calls{0};
    DplDispatchTimer timer(dispatcher, 30.0f, [&] { ++calls; });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const steady_clock::time_point start = steady_clock::now();
    timer.stop();
    EXPECT_LT(SecondsSince(start), 10.0) << "the wait is interrupted, not sat out";
    EXPECT_FALSE(timer.getRunning());
    dispatcher->RunAll();
    EXPECT_EQ(calls.load(), 0);
}

TEST(DplDispatchTimerThreads, StopWaitsForACallInProgressOnAnotherThread)
{
    auto queue = std::make_shared<DplDispatchQueue>("timer-inflight", 1);
    std::atomic<bool> inCallback{false};
    std::atomic<int> calls{0};
    DplDispatchTimer timer(queue, 0.005f,
                           [&]
                           {
                               inCallback = true;
                               std::this_thread::sleep_for(std::chrono::milliseconds(50));
                               ++calls;
                               inCallback = false;
                           });
    ASSERT_TRUE(WaitUntil([&] { return inCallback.load(); }));
    timer.stop();
    EXPECT_FALSE(inCallback.load()) << "the owner may free what the callback uses";
    const int settled = calls.load();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(calls.load(), settled);
}

TEST(DplDispatchTimerThreads, WorkDispatchedBeforeStopStaysSilentEvenAfterARestart)
{
    auto dispatcher = std::make_shared<ManualDispatcher>();
    std::atomic<int> calls{0};
    DplDispatchTimer timer(dispatcher, 0.01f, [&] { ++calls; });
    ASSERT_TRUE(WaitUntil([&] { return dispatcher->Pending() >= 2; }));
    // Positive control: what is dispatched calls the callback while running.
    ASSERT_GE(dispatcher->RunAll(), 2U);
    const int before = calls.load();
    EXPECT_GE(before, 2);

    ASSERT_TRUE(WaitUntil([&] { return dispatcher->Pending() >= 1; }));
    timer.stop();
    std::deque<std::function<void()>> stale = dispatcher->Take();
    ASSERT_GE(stale.size(), 1U);
    // Work of the stopped run stays silent while stopped, and after a restart too.
    for (auto& work : stale)
    {
        work();
    }
    EXPECT_EQ(calls.load(), before) << "no call after stop()";
    timer.start();
    EXPECT_TRUE(timer.getRunning());
    for (auto& work : stale)
    {
        work();
    }
    EXPECT_EQ(calls.load(), before) << "no call from work of a stopped run";
    // The new run calls as usual.
    EXPECT_TRUE(WaitUntil(
        [&]
        {
            dispatcher->RunAll();
            return calls.load() >= before + 2;
        }));
    timer.stop();
    EXPECT_FALSE(timer.getRunning());
}

TEST(DplDispatchTimerThreads, WithoutDispatcherOrCallbackNothingStarts)
{
    std::atomic<int> calls{0};
    DplDispatchTimer orphan(nullptr, 0.01f, [&] { ++calls; });
    EXPECT_FALSE(orphan.getRunning());
    auto queue = std::make_shared<DplDispatchQueue>("timer-empty", 1);
    DplDispatchTimer empty(queue, 0.01f, std::function<void()>());
    EXPECT_FALSE(empty.getRunning());
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(calls.load(), 0);
}

TEST(DplDispatchTimerThreads, CallbackMayDestroyItsOwnTimer)
{
    auto queue = std::make_shared<DplDispatchQueue>("timer-self", 1);
    std::atomic<int> calls{0};
    std::atomic<bool> destroyed{false};
    auto holder = std::make_shared<std::unique_ptr<DplDispatchTimer>>();
    auto destroyOwnTimer = [&calls, &destroyed, holder]
    {
        ++calls;
        holder->reset();
        destroyed = true;
    };
    *holder = std::make_unique<DplDispatchTimer>(queue, 0.01f, destroyOwnTimer, true, false);
    (*holder)->start();  // only once the holder is filled
    ASSERT_TRUE(WaitUntil([&] { return destroyed.load(); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(calls.load(), 1);
}

TEST(DplDispatchTimerThreads, CallbackMayStopAndRestartItsTimer)
{
    auto queue = std::make_shared<DplDispatchQueue>("timer-restart-self", 1);
    std::atomic<int> calls{0};
    std::unique_ptr<DplDispatchTimer> timer;
    std::atomic<DplDispatchTimer*> self{nullptr};
    timer = std::make_unique<DplDispatchTimer>(
        queue, 0.01f,
        [&]
        {
            if (++calls == 1)
            {
                self.load()->stop();
                self.load()->start();
            }
        },
        true, false);
    self = timer.get();
    timer->start();
    EXPECT_TRUE(WaitUntil([&] { return calls.load() >= 3; }));
    timer->stop();
}
}  // namespace
