#pragma once

#include <cstdint>

// The monotonic clock (CLOCK_MONOTONIC), in nanoseconds. No lock, no allocation.
int64_t DplTime_GetMonotonicNanoseconds();

// The wall clock's whole seconds since 1970.
int64_t DplTime_GetSeconds();

// Reference dates that time values of files and documents may count from.
enum _DPL_TIME_EPOCH : int
{
    kDplTimeEpoch1601 = -3,
    kDplTimeEpoch1899 = -2,
    kDplTimeEpoch1904 = -1,
    kDplTimeEpoch1970 = 0,
    kDplTimeEpoch1980 = 1,
    kDplTimeEpochGps1980 = 2,
    kDplTimeEpoch2001 = 3,
};

struct DPLTIME_DEFAULT_EPOCH
{
    static constexpr _DPL_TIME_EPOCH kDefault = kDplTimeEpoch2001;
    // Seconds from 1970-01-01 to each epoch, indexed by epoch + 3.
    static constexpr int64_t kSecondsFromUnix[7] = {-11644473600LL, -2209161600LL, -2082844800LL, 0,
                                                    315532800LL,    315964800LL,   978307200LL};
    // The distance of an epoch from 1970; an epoch outside the table counts as 0.
    static constexpr int64_t SecondsFromUnix(int epoch)
    {
        return (epoch < -3 || epoch > 3) ? 0 : kSecondsFromUnix[epoch + 3];
    }
};

// A plain store, meant for start-up.
void DplTime_SetEpoch(_DPL_TIME_EPOCH epoch);
_DPL_TIME_EPOCH DplTime_GetEpoch();
// Seconds from the current epoch to `epoch`.
int64_t DplTime_GetDistanceToEpoch(int epoch);

// Local time as "hh:mm:ss.tttt " (ten-thousandths of a second, trailing blank).
// Returns dest, or "---" for a null dest.
const char* DplTime_GetCurrentTimeString(char* dest, int size);
// Local date and time in the locale's form ("%x, %X"); "---" for a null dest.
const char* DplTime_GetCurrentDateTimeString(char* dest, int size);
