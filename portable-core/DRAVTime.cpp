#include "portable-core/DRAVTime.h"

#include <cstdio>
#include <cstdlib>

#include "portable-core/DplTime.h"

namespace
{
// Taken once at library load.
const int64_t gInitialHostTime = DplTime_GetMonotonicNanoseconds() / 1000;

struct ClockParts
{
    const char* sign;
    int hours;
    int minutes;
    int seconds;
    int milliseconds;
};

ClockParts Split(int64_t microseconds)
{
    const bool negative = microseconds < 0;
    // Magnitude without overflow for INT64_MIN.
    const uint64_t magnitude = negative ? 0 - static_cast<uint64_t>(microseconds) : static_cast<uint64_t>(microseconds);
    const uint64_t totalMilliseconds = magnitude / 1000;
    const uint64_t totalSeconds = totalMilliseconds / 1000;
    return ClockParts{negative ? "-" : "",
                      static_cast<int>((totalSeconds / 3600) % 24),
                      static_cast<int>((totalSeconds / 60) % 60),
                      static_cast<int>(totalSeconds % 60),
                      static_cast<int>(totalMilliseconds % 1000)};
}
}  // namespace

std::string DRAVTimestamp::ToStringMilliseconds() const
{
    const ClockParts parts = Split(value_);
    char buffer[64];
    snprintf(buffer, sizeof(buffer), "%s%02d:%02d:%02d.%03d", parts.sign, parts.hours, parts.minutes,
             parts.seconds, parts.milliseconds);
    return buffer;
}

std::string DRAVTimestamp::ToStringSeconds() const
{
    const ClockParts parts = Split(value_);
    char buffer[64];
    snprintf(buffer, sizeof(buffer), "%s%02d:%02d:%02d", parts.sign, parts.hours, parts.minutes, parts.seconds);
    return buffer;
}

int64_t DRAVGetMonotonicMicroseconds()
{
    return DplTime_GetMonotonicNanoseconds() / 1000;
}

DRAVTimestamp DRAVGetHostTime()
{
    return DRAVTimestamp(DRAVGetMonotonicMicroseconds() - gInitialHostTime);
}
