#include "portable-core/DplTime.h"

#include <ctime>

int64_t DplTime_GetMonotonicNanoseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}
