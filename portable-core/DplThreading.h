#pragma once

#include <cstdint>

// The system's number for the calling thread, masked to 31 bits so it is never negative.
int32_t DplThreading_GetThreadId();

// The id of this process.
int32_t DplThreading_GetProcessId();
