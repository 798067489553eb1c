#include "engine/DRAVIntervalLog.h"

#include <cstdarg>
#include <cstdio>

bool DRAVIntervalLog::Log(const char* function, const char* format, ...)
{
    const int64_t now = DRAVGetHostTime().Get();
    int64_t last = last_.load(std::memory_order_relaxed);
    const bool due = force_.load(std::memory_order_relaxed) || last < 0 || now - last >= interval_.Get();
    if (!due || !last_.compare_exchange_strong(last, now, std::memory_order_relaxed))
    {
        suppressed_.fetch_add(1, std::memory_order_relaxed);
        return false;
    }
    const int64_t suppressed = suppressed_.exchange(0, std::memory_order_relaxed);
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    if (suppressed > 0)
    {
        DRAVLogPrintf(level_, "%s: %s (%lld similar lines suppressed)", function, text,
                      static_cast<long long>(suppressed));
    }
    else
    {
        DRAVLogPrintf(level_, "%s: %s", function, text);
    }
    return true;
}
