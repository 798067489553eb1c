#include "portable-core/DplTime.h"

#include <sys/time.h>

#include <atomic>
#include <cstdio>
#include <ctime>

namespace
{
std::atomic<int> gCurrentEpoch{DPLTIME_DEFAULT_EPOCH::kDefault};
}

int64_t DplTime_GetMonotonicNanoseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

int64_t DplTime_GetSeconds()
{
    timeval now{};
    gettimeofday(&now, nullptr);
    return now.tv_sec;
}

void DplTime_SetEpoch(_DPL_TIME_EPOCH epoch)
{
    gCurrentEpoch.store(epoch, std::memory_order_relaxed);
}

_DPL_TIME_EPOCH DplTime_GetEpoch()
{
    return static_cast<_DPL_TIME_EPOCH>(gCurrentEpoch.load(std::memory_order_relaxed));
}

int64_t DplTime_GetDistanceToEpoch(int epoch)
{
    return DPLTIME_DEFAULT_EPOCH::SecondsFromUnix(epoch) -
           DPLTIME_DEFAULT_EPOCH::SecondsFromUnix(gCurrentEpoch.load(std::memory_order_relaxed));
}

const char* DplTime_GetCurrentTimeString(char* dest, int size)
{
    if (dest == nullptr)
    {
        return "---";
    }
    if (size <= 0)
    {
        return dest;
    }
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    snprintf(dest, static_cast<size_t>(size), "%02d:%02d:%02d.%04d ", local.tm_hour, local.tm_min,
             local.tm_sec, static_cast<int>(now.tv_nsec / 100000));
    return dest;
}

const char* DplTime_GetCurrentDateTimeString(char* dest, int size)
{
    if (dest == nullptr)
    {
        return "---";
    }
    if (size <= 0)
    {
        return dest;
    }
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    if (strftime(dest, static_cast<size_t>(size), "%x, %X", &local) == 0)
    {
        dest[0] = '\0';
    }
    return dest;
}
