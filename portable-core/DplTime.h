#pragma once

#include <cstdint>

// The monotonic clock (CLOCK_MONOTONIC), in nanoseconds. No lock, no allocation.
int64_t DplTime_GetMonotonicNanoseconds();
