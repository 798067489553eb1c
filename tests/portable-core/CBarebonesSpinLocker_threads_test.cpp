#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "portable-core/CBarebonesSpinCondition.h"
#include "portable-core/CBarebonesSpinLocker.h"
#include "support/ThreadsTestSupport.h"

namespace
{
using threads_test::WaitUntil;
constexpr int64_t kTenSeconds = 10000000000LL;

TEST(CBarebonesSpinLockerThreads, ExcludesOtherHoldersUnderContention)
{
    CBarebonesSpinLock word = 0;
    long counter = 0;  // plain on purpose: only the spin lock guards it
    int inside = 0;
    bool overlapped = false;
    constexpr int kThreads = 4;
    constexpr int kRounds = 5000;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
    {
        threads.emplace_back(
            [&]
            {
                for (int i = 0; i < kRounds; ++i)
                {
                    CBarebonesSpinLocker holder(word, true);
                    if (++inside != 1)
                    {
                        overlapped = true;
                    }
                    ++counter;
                    --inside;
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(counter, kThreads * kRounds);
    EXPECT_FALSE(overlapped);
    EXPECT_EQ(word, 0);
}

TEST(CBarebonesSpinLockerThreads, WaitingLockGetsTheWordWhenItIsFreed)
{
    CBarebonesSpinLock word = 0;
    ASSERT_TRUE(CBarebonesSpinLocker::RawLock(&word, false));
    std::atomic<bool> acquired{false};
    std::thread waiter(
        [&]
        {
            CBarebonesSpinLocker holder(word, true);
            acquired = true;
        });
    // While held, nobody gets it.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(acquired.load());
    EXPECT_TRUE(CBarebonesSpinLocker::RawUnlock(&word));
    EXPECT_TRUE(WaitUntil([&] { return acquired.load(); }));
    waiter.join();
    EXPECT_EQ(word, 0);
}

TEST(CBarebonesSpinConditionThreads, BroadcastWakesEveryWaiterAndSignalOnlyOne)
{
    CBarebonesSpinLock word = 0;
    CBarebonesSpinCondition condition;
    std::atomic<int> woken{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i)
    {
        waiters.emplace_back(
            [&]
            {
                CBarebonesSpinLocker holder(word, true);
                if (condition.Wait(word, DplTimeout<&DplZeroNowFunction>(kTenSeconds * 3)))
                {
                    EXPECT_FALSE(CBarebonesSpinLocker::RawLock(&word, false))
                        << "a woken waiter holds the lock again";
                    ++woken;
                }
            });
    }
    ASSERT_TRUE(WaitUntil([&] { return condition.Waiters() == 3; }));
    condition.Signal();
    ASSERT_TRUE(WaitUntil([&] { return woken.load() == 1; }));
    // Only one signal was pending: the other two are still waiting.
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_EQ(woken.load(), 1);
    EXPECT_EQ(condition.Waiters(), 2);
    condition.Broadcast();
    for (std::thread& waiter : waiters)
    {
        waiter.join();
    }
    EXPECT_EQ(woken.load(), 3);
    EXPECT_EQ(condition.Waiters(), 0);
    EXPECT_EQ(condition.PendingSignals(), 0);
    EXPECT_EQ(word, 0);
}

TEST(CBarebonesSpinConditionThreads, SignalThatComesTooLateLeavesNothingBehind)
{
    CBarebonesSpinLock word = 0;
    CBarebonesSpinCondition condition;
    std::atomic<bool> done{false};
    std::thread waiter(
        [&]
        {
            CBarebonesSpinLocker holder(word, true);
            condition.Wait(word, DplTimeout<&DplZeroNowFunction>(5000000));  // 5 ms
            done = true;
        });
    // Race signals against the waiter's timeout.
    while (!done.load())
    {
        condition.Signal();
    }
    waiter.join();
    EXPECT_EQ(condition.Waiters(), 0);
    EXPECT_EQ(condition.PendingSignals(), 0) << "no orphan signal for later waiters";
}
}  // namespace
