#include "portable-core/DplSleep.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <limits>

namespace
{
constexpr int64_t kNanosecondsPerMicrosecond = 1000;
// The underlying sleep of some systems counts microseconds in 32 bits, so long
// sleeps go in slices well below that.
constexpr int64_t kSliceNanoseconds = 2000LL * 1000000000LL;

// Sleeps the whole span even when signals interrupt it.
void SleepSpan(int64_t nanoseconds)
{
    timespec remaining{};
    remaining.tv_sec = static_cast<time_t>(nanoseconds / 1000000000);
    remaining.tv_nsec = static_cast<long>(nanoseconds % 1000000000);
    while (nanosleep(&remaining, &remaining) != 0 && errno == EINTR)
    {
    }
}

// Counted once; processor detection proper lives elsewhere, this only needs
// the number of processors that can run a spinning holder.
int ProcessorCount()
{
    static const int count = []
    {
        const long online = sysconf(_SC_NPROCESSORS_ONLN);
        return online < 1 ? 1 : static_cast<int>(std::min<long>(online, 4096));
    }();
    return count;
}

inline void PauseProcessor()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__) || defined(__arm__)
    __asm__ __volatile__("yield");
#endif
}
}  // namespace

void USRSleepNs(int64_t nanoseconds)
{
    if (nanoseconds < 0)
    {
        return;
    }
    while (nanoseconds > kSliceNanoseconds)
    {
        SleepSpan(kSliceNanoseconds);
        nanoseconds -= kSliceNanoseconds;
    }
    const int64_t microseconds = (nanoseconds + kNanosecondsPerMicrosecond - 1) / kNanosecondsPerMicrosecond;
    if (microseconds > 0)
    {
        SleepSpan(microseconds * kNanosecondsPerMicrosecond);
    }
}

void USRSleepUs(int64_t microseconds)
{
    if (microseconds < 0)
    {
        return;
    }
    // Saturate rather than wrap; such a sleep lasts beyond any process anyway.
    constexpr int64_t kLimit = std::numeric_limits<int64_t>::max() / kNanosecondsPerMicrosecond;
    USRSleepNs(std::min(microseconds, kLimit) * kNanosecondsPerMicrosecond);
}

void USRSleep(int milliseconds)
{
    if (milliseconds < 0)
    {
        return;
    }
    USRSleepNs(static_cast<int64_t>(milliseconds) * 1000000);
}

void USRSpinOrYield(int attempts)
{
    const int processors = ProcessorCount();
    if (processors >= 2 && attempts < processors + 2)
    {
        PauseProcessor();
        return;
    }
    const int limit = std::max(2 * (processors + 2), 20);
    if (attempts < limit)
    {
        sched_yield();
        return;
    }
    SleepSpan(kNanosecondsPerMicrosecond);
}
