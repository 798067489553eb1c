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

    // Null words succeed without doing anything.
    CBarebonesSpinLocker::RawInit(nullptr);
    EXPECT_TRUE(CBarebonesSpinLocker::RawLock(nullptr, false));
    EXPECT_TRUE(CBarebonesSpinLocker::RawLock(nullptr, true));
    EXPECT_TRUE(CBarebonesSpinLocker::RawUnlock(nullptr));
}

TEST(CBarebonesSpinLocker, HolderTakesReacquiresAndReleasesWithItsScope)
{
    CBarebonesSpinLock word = 0;
    {
        CBarebonesSpinLocker holder(word, true);
        EXPECT_TRUE(holder.IsHeld());
        EXPECT_EQ(word, 1);
        CBarebonesSpinLocker second(word, false);
        EXPECT_FALSE(second.Reacquire(false)) << "held by the first";
        EXPECT_FALSE(second.IsHeld());
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

    {
        CBarebonesSpinLocker holder(word, true);
        CBarebonesSpinLocker::RawInit(&word);  // somebody else zeroes it: the release fails, still held
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

TEST(CBarebonesSpinCondition, WaitsWithoutSignalFailAndSignalsWithoutWaitersAreDropped)
{
    CBarebonesSpinLock word = 0;
    CBarebonesSpinCondition condition;
    // On a free word: false at once, the word isn't taken.
    auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(condition.Wait(word, DplTimeout<&DplZeroNowFunction>(5000000000LL)));
    EXPECT_LT(threads_test::SecondsSince(start), 2.0);
    EXPECT_EQ(word, 0);

    condition.Signal();
    condition.Broadcast();
    EXPECT_EQ(condition.PendingSignals(), 0);

    CBarebonesSpinLocker holder(word, true);
    EXPECT_FALSE(condition.Wait(word, DplTimeout<&DplZeroNowFunction>(0))) << "no stale signal found";
    EXPECT_EQ(word, 1) << "the lock is taken again after the wait";
    EXPECT_EQ(condition.Waiters(), 0);
    // A short timed wait without a signal fails after at least its time.
    start = std::chrono::steady_clock::now();
    EXPECT_FALSE(condition.Wait(word, DplTimeout<&DplZeroNowFunction>(20000000)));
    EXPECT_GE(threads_test::SecondsSince(start), 0.020);
    EXPECT_EQ(word, 1);
}
}  // namespace
