#pragma once

#include <cstdint>

// Sleeps the calling thread. A negative time returns at once; the time is
// rounded up to whole microseconds. Long sleeps are cut into slices of 2000 s.
void USRSleep(int milliseconds);
void USRSleepUs(int64_t microseconds);
void USRSleepNs(int64_t nanoseconds);

// One step of the back-off of a spin loop, `attempts` being the count of failed
// attempts so far (from 0): on a machine of n >= 2 processors the first n + 2
// steps only pause the processor, the steps up to max(2 * (n + 2), 20) yield,
// and every later one sleeps 1 microsecond. No lock, no allocation.
void USRSpinOrYield(int attempts);
