#include "portable-core/DplTimeout.h"

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>

#include "portable-core/DplSleep.h"
#include "support/ThreadsTestSupport.h"

namespace
{
constexpr int64_t kSecond = 1000000000;

TEST(DplTimeout, RelativeTimespecSplitsSecondsAndNanoseconds)
{
    const timespec pair = DplMakeRelativeTimespec(DplRelativeTimeout(3 * kSecond + 250));
    EXPECT_EQ(pair.tv_sec, 3);
    EXPECT_EQ(pair.tv_nsec, 250);

    for (int64_t value : {int64_t{0}, int64_t{-1}, -5 * kSecond})
    {
        const timespec zero = DplMakeRelativeTimespec(DplRelativeTimeout(value));
        EXPECT_EQ(zero.tv_sec, 0) << value;
        EXPECT_EQ(zero.tv_nsec, 0) << value;
        const timeval zeroMicro = DplMakeRelativeTimeval(DplRelativeTimeout(value));
        EXPECT_EQ(zeroMicro.tv_sec, 0) << value;
        EXPECT_EQ(zeroMicro.tv_usec, 0) << value;
    }
}

TEST(DplTimeout, TimevalRoundsUpToWholeMicroseconds)
{
    struct Case
    {
        int64_t nanoseconds;
        time_t seconds;
        suseconds_t microseconds;
    };
    for (const Case& c : {Case{1, 0, 1}, Case{1000, 0, 1}, Case{1001, 0, 2}, Case{kSecond - 1, 1, 0},
                          Case{2 * kSecond + 999999, 2, 1000}})
    {
        const timeval pair = DplMakeRelativeTimeval(DplRelativeTimeout(c.nanoseconds));
        EXPECT_EQ(pair.tv_sec, c.seconds) << c.nanoseconds;
        EXPECT_EQ(pair.tv_usec, c.microseconds) << c.nanoseconds;
    }
}

TEST(DplTimeout, UnitConstructorsSaturateInsteadOfWrapping)
{
    EXPECT_EQ(DplRelativeTimeout::FromMilliseconds(1500).Nanoseconds(), 1500000000);
    EXPECT_EQ(DplRelativeTimeout::FromMicroseconds(7).Nanoseconds(), 7000);
    EXPECT_TRUE(DplRelativeTimeout::FromMilliseconds(std::numeric_limits<int64_t>::max()).IsNever());
    EXPECT_LT(DplRelativeTimeout::FromMicroseconds(std::numeric_limits<int64_t>::min()).Nanoseconds(), 0);

    const timeval never = DplMakeRelativeTimeval(DplRelativeTimeout::Never());
    EXPECT_GT(never.tv_sec, 0);
    EXPECT_GE(never.tv_usec, 0);
    EXPECT_LT(never.tv_usec, 1000000);
}

TEST(DplTimeout, AbsoluteFormsUseTheMomentAsGiven)
{
    const timespec pair = DplMakeAbsoluteTimespec(DplAbsoluteTimeout(1700000000 * kSecond + 42));
    EXPECT_EQ(pair.tv_sec, 1700000000);
    EXPECT_EQ(pair.tv_nsec, 42);
    const timeval micro = DplMakeAbsoluteTimeval(DplAbsoluteTimeout(1700000000 * kSecond + 42));
    EXPECT_EQ(micro.tv_sec, 1700000000);
    EXPECT_EQ(micro.tv_usec, 1);  // rounded up, as the relative form does
}

TEST(DplTimeout, ConvertsBetweenRelativeAndAbsolute)
{
    const int64_t before = DplGetTimeOfDayNanoseconds();
    const timespec moment = DplMakeAbsoluteTimespec(DplRelativeTimeout(5 * kSecond));
    const int64_t after = DplGetTimeOfDayNanoseconds();
    const int64_t momentNs = static_cast<int64_t>(moment.tv_sec) * kSecond + moment.tv_nsec;
    EXPECT_GE(momentNs, before + 5 * kSecond);
    EXPECT_LE(momentNs, after + 5 * kSecond);
    // A relative timeout that has already passed gives the all-zero pair here too.
    EXPECT_EQ(DplMakeAbsoluteTimespec(DplRelativeTimeout(0)).tv_sec, 0);

    const DplAbsoluteTimeout inTwoSeconds(DplGetTimeOfDayNanoseconds() + 2 * kSecond);
    const timespec left = DplMakeRelativeTimespec(inTwoSeconds);
    EXPECT_LE(left.tv_sec, 2);
    EXPECT_TRUE(left.tv_sec > 0 || left.tv_nsec > 0);
    const timespec gone = DplMakeRelativeTimespec(DplAbsoluteTimeout(DplGetTimeOfDayNanoseconds() - kSecond));
    EXPECT_EQ(gone.tv_sec, 0);
    EXPECT_EQ(gone.tv_nsec, 0);

    EXPECT_TRUE(DplRelativeTimeout::Never().On<&DplGetTimeOfDayNanoseconds>().IsNever());
}

TEST(DplSleep, NegativeTimesReturnAtOnceOthersSleepAtLeastTheTimeAsked)
{
    auto start = std::chrono::steady_clock::now();
    USRSleep(-1);
    USRSleepUs(-1);
    USRSleepNs(-1);
    USRSleep(std::numeric_limits<int>::min());
    USRSleepNs(std::numeric_limits<int64_t>::min());
    EXPECT_LT(threads_test::SecondsSince(start), 1.0);

    start = std::chrono::steady_clock::now();
    USRSleep(20);
    EXPECT_GE(threads_test::SecondsSince(start), 0.020);

    start = std::chrono::steady_clock::now();
    USRSleepUs(15000);
    EXPECT_GE(threads_test::SecondsSince(start), 0.015);

    // A nanosecond count rounds up to a whole microsecond, never down to nothing.
    start = std::chrono::steady_clock::now();
    USRSleepNs(10000001);
    EXPECT_GE(threads_test::SecondsSince(start), 0.010);

    // Spin-or-yield goes through every step of its back-off; the late steps sleep a microsecond each.
    start = std::chrono::steady_clock::now();
    for (int attempts = 0; attempts < 200; ++attempts)
    {
        USRSpinOrYield(attempts);
    }
    EXPECT_LT(threads_test::SecondsSince(start), 10.0);
}

}  // namespace
