#include "portable-core/DplThreading.h"

#include <sys/syscall.h>
#include <unistd.h>

int32_t DplThreading_GetThreadId()
{
    return static_cast<int32_t>(static_cast<uint32_t>(syscall(SYS_gettid)) & 0x7fffffffU);
}

int32_t DplThreading_GetProcessId()
{
    return static_cast<int32_t>(getpid());
}
