#pragma once

#include <cstdint>

#include "portable-core/DplTime.h"

namespace tidemix::platform
{

// Host time is the monotonic clock; device threads, the audio thread and the
// time stamps of captured packets all run on it.
inline int64_t HostTimeNanoseconds()
{
    return DplTime_GetMonotonicNanoseconds();
}

}  // namespace tidemix::platform
