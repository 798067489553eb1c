#include "portable-core/DualMutexLock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <future>
#include <thread>

#include "portable-core/CDplThreadMutex.h"
#include "portable-core/CDplThreadSafeObject.h"
#include "support/ThreadsTestSupport.h"

namespace
{
using threads_test::SecondsSince;
using threads_test::WaitUntil;

// True when another thread can't take `lock` now.
template <typename Lock>
bool HeldElsewhere(Lock& lock)
{
    bool taken = false;
    std::thread(
        [&]
        {
            taken = lock.TryLock();
            if (taken)
            {
                lock.Unlock();
            }
        })
        .join();
    return !taken;
}

TEST(CDplThreadMutexLockThreads, LockedFlagBelongsToTheHoldingThread)
{
    CDplThreadMutexLock lock;
    EXPECT_FALSE(lock.IsLocked());
    lock.Lock();
    EXPECT_TRUE(lock.IsLocked());
    lock.Lock();  // already held: not counted
    EXPECT_TRUE(HeldElsewhere(lock));

    bool lockedSeenElsewhere = true;
    bool unlockedElsewhere = true;
    std::thread(
        [&]
        {
            lockedSeenElsewhere = lock.IsLocked();
            unlockedElsewhere = lock.Unlock();
        })
        .join();
    EXPECT_FALSE(lockedSeenElsewhere);
    EXPECT_FALSE(unlockedElsewhere);
    EXPECT_TRUE(lock.IsLocked());

    EXPECT_TRUE(lock.Unlock());
    EXPECT_FALSE(lock.IsLocked());
    EXPECT_FALSE(lock.Unlock());
    EXPECT_FALSE(HeldElsewhere(lock));
}

TEST(DualMutexLockThreads, TakesBothOrTheOneThatIsMissing)
{
    CDplThreadMutexLock a;
    CDplThreadMutexLock b;
    DualMutexLock(a, b);
    EXPECT_TRUE(a.IsLocked());
    EXPECT_TRUE(b.IsLocked());
    EXPECT_TRUE(HeldElsewhere(a));
    EXPECT_TRUE(HeldElsewhere(b));
    a.Unlock();
    b.Unlock();

    DualMutexLock(a, a);
    EXPECT_TRUE(a.IsLocked());
    EXPECT_TRUE(a.Unlock());
    EXPECT_FALSE(a.Unlock()) << "the same lock is taken once";

    b.Lock();
    DualMutexLock(a, b);
    EXPECT_TRUE(a.IsLocked());
    a.Unlock();
    DualMutexLock(b, a);
    EXPECT_TRUE(a.IsLocked());
    a.Unlock();
    b.Unlock();
    EXPECT_FALSE(HeldElsewhere(a));
    EXPECT_FALSE(HeldElsewhere(b));
}

TEST(DualMutexLockThreads, OppositeOrderFromTwoThreadsDoesNotDeadlock)
{
    CDplThreadMutexLock a;
    CDplThreadMutexLock b;
    long counter = 0;  // guarded by both locks
    constexpr int kRounds = 40;
    auto worker = [&](CDplThreadMutexLock& first, CDplThreadMutexLock& second)
    {
        for (int i = 0; i < kRounds; ++i)
        {
            DualMutexLock(first, second);
            ++counter;
            std::this_thread::sleep_for(std::chrono::microseconds(200));
            second.Unlock();
            first.Unlock();
        }
    };
    auto one = std::async(std::launch::async, worker, std::ref(a), std::ref(b));
    auto two = std::async(std::launch::async, worker, std::ref(b), std::ref(a));
    // A deadlock would hang here; fail clearly instead of waiting for the harness.
    if (one.wait_for(std::chrono::seconds(120)) != std::future_status::ready ||
        two.wait_for(std::chrono::seconds(120)) != std::future_status::ready)
    {
        ADD_FAILURE() << "DualMutexLock deadlocked";
        std::abort();
    }
    EXPECT_EQ(counter, 2 * kRounds);
}

TEST(CDplThreadMutexThreads, IsRecursiveAndExcludesOtherThreads)
{
    CDplThreadMutex mutex;
    mutex.Lock();
    EXPECT_TRUE(mutex.TryLock());
    EXPECT_TRUE(HeldElsewhere(mutex));
    mutex.Unlock();
    EXPECT_TRUE(HeldElsewhere(mutex)) << "still held once";
    mutex.Unlock();
    EXPECT_FALSE(HeldElsewhere(mutex));
}

TEST(CDplThreadSafeObjectThreads, TimedWaitsRunOutAndSignalsWake)
{
    EXPECT_EQ(CDplThreadSafeObject::MillisecondsToWaitNanoseconds(-5), -1);
    EXPECT_EQ(CDplThreadSafeObject::MillisecondsToWaitNanoseconds(7), 7000000);
    EXPECT_EQ(CDplThreadSafeObject::MillisecondsToWaitNanoseconds(std::numeric_limits<int64_t>::max()),
              std::numeric_limits<int64_t>::max());
    CDplThreadSafeObject object;
    object.Lock();
    EXPECT_NE(object.WaitCondition(0), 0) << "zero doesn't wait";
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(object.WaitCondition(30), ETIMEDOUT);
    EXPECT_GE(SecondsSince(start), 0.030);
    object.UnLock();

    bool ready = false;  // guarded by the object's lock
    std::atomic<bool> done{false};
    std::thread waiter(
        [&]
        {
            object.Lock();
            while (!ready)
            {
                object.WaitCondition(-1);
            }
            object.UnLock();
            done = true;
        });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    object.Lock();
    ready = true;
    object.SignalCondition();
    object.UnLock();
    EXPECT_TRUE(WaitUntil([&] { return done.load(); }));
    waiter.join();
}

}  // namespace
