#pragma once

#include <sys/time.h>

#include <cstdint>
#include <ctime>
#include <limits>

// Clock functions for DplTimeout, in nanoseconds. The zero clock makes a
// timeout relative; the time-of-day clock (since 1970) makes it absolute.
int64_t DplZeroNowFunction();
int64_t DplGetTimeOfDayNanoseconds();

// A point in time or a span, in signed nanoseconds on the clock `Now`.
// With DplZeroNowFunction the value is a span from whenever it is used;
// with DplGetTimeOfDayNanoseconds it is a wall-clock moment.
template <int64_t (*Now)()>
class DplTimeout
{
public:
    static constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

    constexpr DplTimeout() = default;
    constexpr explicit DplTimeout(int64_t nanoseconds) : nanoseconds_(nanoseconds) {}

    static constexpr DplTimeout Never() { return DplTimeout(kNever); }
    static constexpr DplTimeout FromMilliseconds(int64_t milliseconds)
    {
        return DplTimeout(Scale(milliseconds, 1000000));
    }
    static constexpr DplTimeout FromMicroseconds(int64_t microseconds)
    {
        return DplTimeout(Scale(microseconds, 1000));
    }

    constexpr int64_t Nanoseconds() const { return nanoseconds_; }
    constexpr bool IsNever() const { return nanoseconds_ == kNever; }

    // Nanoseconds from now until this timeout; 0 or below when it has passed.
    // Never stays the maximum.
    int64_t Remaining() const
    {
        if (IsNever())
        {
            return kNever;
        }
        int64_t remaining = 0;
        if (__builtin_sub_overflow(nanoseconds_, Now(), &remaining))
        {
            return nanoseconds_ < 0 ? std::numeric_limits<int64_t>::min() : kNever - 1;
        }
        return remaining;
    }

    // The same moment on another clock; Never stays never.
    template <int64_t (*OtherNow)()>
    DplTimeout<OtherNow> On() const
    {
        const int64_t remaining = Remaining();
        if (remaining == kNever)
        {
            return DplTimeout<OtherNow>::Never();
        }
        int64_t moment = 0;
        if (__builtin_add_overflow(OtherNow(), remaining, &moment))
        {
            return DplTimeout<OtherNow>(remaining < 0 ? std::numeric_limits<int64_t>::min() : kNever - 1);
        }
        return DplTimeout<OtherNow>(moment);
    }

private:
    // Saturating multiplication for the unit conversions.
    static constexpr int64_t Scale(int64_t value, int64_t factor)
    {
        if (value > kNever / factor)
        {
            return kNever;
        }
        if (value < std::numeric_limits<int64_t>::min() / factor)
        {
            return std::numeric_limits<int64_t>::min();
        }
        return value * factor;
    }

    int64_t nanoseconds_ = 0;
};

using DplRelativeTimeout = DplTimeout<&DplZeroNowFunction>;
using DplAbsoluteTimeout = DplTimeout<&DplGetTimeOfDayNanoseconds>;

// A span as the system's pairs (for nanosleep, select and the like). A value
// below 1 gives an all-zero pair; the microsecond form rounds up to a whole
// microsecond. An absolute timeout gives the span left until it.
timespec DplMakeRelativeTimespec(const DplRelativeTimeout& timeout);
timeval DplMakeRelativeTimeval(const DplRelativeTimeout& timeout);
timespec DplMakeRelativeTimespec(const DplAbsoluteTimeout& timeout);
timeval DplMakeRelativeTimeval(const DplAbsoluteTimeout& timeout);

// A wall-clock moment (since 1970) as the system's pairs. A value below 1
// gives an all-zero pair; the microsecond form rounds up. A relative timeout
// is taken from now.
timespec DplMakeAbsoluteTimespec(const DplAbsoluteTimeout& timeout);
timeval DplMakeAbsoluteTimeval(const DplAbsoluteTimeout& timeout);
timespec DplMakeAbsoluteTimespec(const DplRelativeTimeout& timeout);
timeval DplMakeAbsoluteTimeval(const DplRelativeTimeout& timeout);
