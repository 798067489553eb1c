#include "portable-core/DplTimeout.h"

namespace
{
constexpr int64_t kNanosecondsPerSecond = 1000000000;
constexpr int64_t kNanosecondsPerMicrosecond = 1000;

timespec ToTimespec(int64_t nanoseconds)
{
    if (nanoseconds < 1)
    {
        return timespec{};
    }
    timespec result{};
    result.tv_sec = static_cast<time_t>(nanoseconds / kNanosecondsPerSecond);
    result.tv_nsec = static_cast<long>(nanoseconds % kNanosecondsPerSecond);
    return result;
}

timeval ToTimeval(int64_t nanoseconds)
{
    if (nanoseconds < 1)
    {
        return timeval{};
    }
    // Round up so that a wait is never shorter than asked; saturate at the top.
    const int64_t rounded =
        nanoseconds > std::numeric_limits<int64_t>::max() - (kNanosecondsPerMicrosecond - 1)
            ? std::numeric_limits<int64_t>::max()
            : nanoseconds + (kNanosecondsPerMicrosecond - 1);
    const int64_t microseconds = rounded / kNanosecondsPerMicrosecond;
    timeval result{};
    result.tv_sec = static_cast<time_t>(microseconds / 1000000);
    result.tv_usec = static_cast<suseconds_t>(microseconds % 1000000);
    return result;
}
}  // namespace

int64_t DplZeroNowFunction()
{
    return 0;
}

int64_t DplGetTimeOfDayNanoseconds()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<int64_t>(now.tv_sec) * kNanosecondsPerSecond + now.tv_nsec;
}

timespec DplMakeRelativeTimespec(const DplRelativeTimeout& timeout)
{
    return ToTimespec(timeout.Nanoseconds());
}

timeval DplMakeRelativeTimeval(const DplRelativeTimeout& timeout)
{
    return ToTimeval(timeout.Nanoseconds());
}

timespec DplMakeRelativeTimespec(const DplAbsoluteTimeout& timeout)
{
    return ToTimespec(timeout.Remaining());
}

timeval DplMakeRelativeTimeval(const DplAbsoluteTimeout& timeout)
{
    return ToTimeval(timeout.Remaining());
}

timespec DplMakeAbsoluteTimespec(const DplAbsoluteTimeout& timeout)
{
    return ToTimespec(timeout.Nanoseconds());
}

timeval DplMakeAbsoluteTimeval(const DplAbsoluteTimeout& timeout)
{
    return ToTimeval(timeout.Nanoseconds());
}

// A relative value below 1 has already passed: all zero, like an absolute one.
timespec DplMakeAbsoluteTimespec(const DplRelativeTimeout& timeout)
{
    if (timeout.Nanoseconds() < 1)
    {
        return timespec{};
    }
    return ToTimespec(timeout.On<&DplGetTimeOfDayNanoseconds>().Nanoseconds());
}

timeval DplMakeAbsoluteTimeval(const DplRelativeTimeout& timeout)
{
    if (timeout.Nanoseconds() < 1)
    {
        return timeval{};
    }
    return ToTimeval(timeout.On<&DplGetTimeOfDayNanoseconds>().Nanoseconds());
}
