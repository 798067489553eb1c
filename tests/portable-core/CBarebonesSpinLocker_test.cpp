#include "portable-core/CBarebonesSpinLocker.h"

#include <gtest/gtest.h>

#include <chrono>

#include "portable-core/CBarebonesSpinCondition.h"
#include "support/ThreadsTestSupport.h"

namespace
{
TEST(CBarebonesSpinLocker, RawOperationsFollowTheLockWord)
{
    CBarebonesSpinLock word = 7;
    CBarebonesSpinLocker::RawInit(&word);
    EXPECT_EQ(word, 0);

    EXPECT_TRUE(CBarebonesSpinLocker::RawLock(&word, false));
    EXPECT_EQ(word, 1);
    EXPECT_FALSE(CBarebonesSpinLocker::RawLock(&word, false)) << "no recursion";
    EXPECT_TRUE(CBarebonesSpinLocker::RawUnlock(&word));
    EXPECT_EQ(word, 0);
    EXPECT_FALSE(CBarebonesSpinLocker::RawUnlock(&word)) << "unlocking a free word";

    // Anything but 1 is not "held": an unlock leaves a strange word alone.
    word = 2;
    EXPECT_FALSE(CBarebonesSpinLocker::RawUnlock(&word));
    EXPECT_EQ(word, 2);
    CBarebonesSpinLocker::RawDeinit(&word);
}

TEST(CBarebonesSpinLocker, NullWordsSucceedWithoutDoingAnything)
{
    CBarebonesSpinLocker::RawInit(nullptr);
    EXPECT_TRUE(CBarebonesSpinLocker::RawLock(nullptr, false));
    EXPECT_TRUE(CBarebonesSpinLocker::RawLock(nullptr, true));
    EXPECT_TRUE(CBarebonesSpinLocker::RawUnlock(nullptr));
}

TEST(CBarebonesSpinLocker, HolderTakesAndReleasesWithItsScope)
{
    CBarebonesSpinLock word = 0;
    {
        CBarebonesSpinLocker holder(word, true);
        EXPECT_TRUE(holder.IsHeld());
        EXPECT_EQ(word, 1);
    }
    EXPECT_EQ(word, 0);

    {
        CBarebonesSpinLocker idle(word, false);
        EXPECT_FALSE(idle.IsHeld());
        EXPECT_EQ(word, 0);
        EXPECT_TRUE(idle.Release()) << "releasing what isn't held succeeds";
        EXPECT_TRUE(idle.Reacquire(false));
        EXPECT_TRUE(idle.Reacquire(false)) << "already held: true at once";
        EXPECT_EQ(word, 1);
        EXPECT_TRUE(idle.Release());
        EXPECT_EQ(word, 0);
    }
    EXPECT_EQ(word, 0);
}

TEST(CBarebonesSpinLocker, ReacquireWithoutWaitFailsOnAHeldWord)
{
    CBarebonesSpinLock word = 0;
    CBarebonesSpinLocker first(word, true);
    CBarebonesSpinLocker second(word, false);
    EXPECT_FALSE(second.Reacquire(false));
    EXPECT_FALSE(second.IsHeld());
    EXPECT_TRUE(first.Release());
    EXPECT_TRUE(second.Reacquire(false));
    EXPECT_TRUE(second.IsHeld());
}

TEST(CBarebonesSpinLocker, ReleaseOfAWordSomebodyElseFreedFailsAndStaysHeld)
{
    CBarebonesSpinLock word = 0;
    {
        CBarebonesSpinLocker holder(word, true);
        CBarebonesSpinLocker::RawInit(&word);  // somebody else zeroes it
        EXPECT_FALSE(holder.Release());
        EXPECT_TRUE(holder.IsHeld());
        EXPECT_EQ(word, 0);
        // Somebody else takes it meanwhile: the holder's release now frees it.
        ASSERT_TRUE(CBarebonesSpinLocker::RawLock(&word, false));
        EXPECT_TRUE(holder.Release());
        EXPECT_FALSE(holder.IsHeld());
    }
    EXPECT_EQ(word, 0);
}

TEST(CBarebonesSpinCondition, WaitOnAFreeWordReturnsFalseAtOnce)
{
    CBarebonesSpinLock word = 0;
    CBarebonesSpinCondition condition;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(condition.Wait(word, DplTimeout<&DplZeroNowFunction>(5000000000LL)));
    EXPECT_LT(threads_test::SecondsSince(start), 2.0);
    EXPECT_EQ(word, 0) << "the word isn't taken";
    EXPECT_EQ(condition.Waiters(), 0);
}

TEST(CBarebonesSpinCondition, ZeroTimeoutPollsOnceAndKeepsTheLock)
{
    CBarebonesSpinLock word = 0;
    CBarebonesSpinLocker holder(word, true);
    CBarebonesSpinCondition condition;
    EXPECT_FALSE(condition.Wait(word, DplTimeout<&DplZeroNowFunction>(0)));
    EXPECT_EQ(word, 1) << "the lock is taken again after the wait";
    EXPECT_EQ(condition.Waiters(), 0);

    // A short timed wait without a signal fails after at least its time.
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(condition.Wait(word, DplTimeout<&DplZeroNowFunction>(20000000)));
    EXPECT_GE(threads_test::SecondsSince(start), 0.020);
    EXPECT_EQ(word, 1);
}

TEST(CBarebonesSpinCondition, SignalsWithoutWaitersAreDropped)
{
    CBarebonesSpinCondition condition;
    condition.Signal();
    condition.Broadcast();
    EXPECT_EQ(condition.PendingSignals(), 0);

    // So a later wait doesn't find a stale signal.
    CBarebonesSpinLock word = 0;
    CBarebonesSpinLocker holder(word, true);
    EXPECT_FALSE(condition.Wait(word, DplTimeout<&DplZeroNowFunction>(0)));
}
}  // namespace
