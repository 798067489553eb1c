#include "portable-core/BreakIntoDebugger.h"

#include <atomic>

#ifndef NDEBUG
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#endif

namespace
{
std::atomic<uint64_t> gCallCount{0};

#ifndef NDEBUG
// Reads TracerPid from /proc/self/status. Only debug builds pay for this, and
// only on a path that shouldn't be taken at all.
bool IsDebuggerAttached()
{
    const int fd = open("/proc/self/status", O_RDONLY | O_CLOEXEC);
    if (fd < 0)
    {
        return false;
    }
    char text[4096] = {};
    const ssize_t length = read(fd, text, sizeof(text) - 1);
    close(fd);
    if (length <= 0)
    {
        return false;
    }
    const char* tracer = strstr(text, "TracerPid:");
    return tracer != nullptr && strtol(tracer + strlen("TracerPid:"), nullptr, 10) != 0;
}
#endif
}  // namespace

void BreakIntoDebugger()
{
    gCallCount.fetch_add(1, std::memory_order_relaxed);
#ifndef NDEBUG
    if (IsDebuggerAttached())
    {
        raise(SIGTRAP);
    }
#endif
}

uint64_t BreakIntoDebugger_GetCallCount()
{
    return gCallCount.load(std::memory_order_relaxed);
}
