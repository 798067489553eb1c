#include "portable-core/DRAVSlowLog.h"

#include <cstdio>

DRAVSlowLog::DRAVSlowLog(int every, eDbgPrintLevel level) : every_(every), level_(level) {}

DRAVSlowLog::DRAVSlowLog(DRAVDuration interval, eDbgPrintLevel level) : interval_(interval), level_(level) {}

bool DRAVSlowLog::ShouldPass(DRAVTimestamp now)
{
    const int32_t calls = calls_.load(std::memory_order_relaxed);
    const bool first = force_.exchange(false, std::memory_order_relaxed) || calls == 0;
    bool passes = false;
    if (every_ > 0)
    {
        passes = calls % every_ == 0;
    }
    else if (interval_.Get() < kShortIntervalLimit)
    {
        passes = first;
    }
    else
    {
        const int64_t last = last_.load(std::memory_order_relaxed);
        passes = last < 0 || first || now.Get() - last >= interval_.Get();
    }
    calls_.fetch_add(1, std::memory_order_relaxed);
    if (passes)
    {
        last_.store(now.Get(), std::memory_order_relaxed);
        suppressed_.store(0, std::memory_order_relaxed);
    }
    else
    {
        suppressed_.fetch_add(1, std::memory_order_relaxed);
    }
    return passes;
}

bool DRAVSlowLog::Log(const char* function, const char* format, ...)
{
    const int32_t suppressedBefore = suppressed_.load(std::memory_order_relaxed);
    if (!ShouldPass(DRAVGetHostTime()))
    {
        return false;
    }
    char message[512];
    va_list args;
    va_start(args, format);
    SafeFormatting(message, sizeof(message), format, args);
    va_end(args);
    char line[640];
    if (suppressedBefore > 0)
    {
        snprintf(line, sizeof(line), "%s: %s (%d similar suppressed)", function == nullptr ? "" : function,
                 message, static_cast<int>(suppressedBefore));
    }
    else
    {
        snprintf(line, sizeof(line), "%s: %s", function == nullptr ? "" : function, message);
    }
    DRAVLogLine(level_, line);
    return true;
}

bool SafeFormatting(char* buffer, int size, const char* format, va_list& args)
{
    if (buffer != nullptr && size > 0)
    {
        vsnprintf(buffer, static_cast<size_t>(size), format == nullptr ? "" : format, args);
    }
    return true;
}
