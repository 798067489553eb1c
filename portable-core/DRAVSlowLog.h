#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>

#include "portable-core/DRAVLog.h"
#include "portable-core/DRAVTime.h"

// Keeps a hot path from flooding the log: lets one call in `every` pass, or
// one message per interval. Passing messages go to DRAVLogLine. Counters are
// atomic so that one instance may serve several threads.
class DRAVSlowLog
{
public:
    DRAVSlowLog(int every, eDbgPrintLevel level);
    DRAVSlowLog(DRAVDuration interval, eDbgPrintLevel level);

    // True if this call's message passed. The text is cut at 512 bytes.
    bool Log(const char* function, const char* format, ...) __attribute__((format(printf, 3, 4)));
    // Lets the next message pass at once.
    void Force() { force_.store(true, std::memory_order_relaxed); }
    int32_t GetCalls() const { return calls_.load(std::memory_order_relaxed); }
    int32_t GetSuppressed() const { return suppressed_.load(std::memory_order_relaxed); }

    // The pass decision alone, at host time `now`; counts the call.
    bool ShouldPass(DRAVTimestamp now);

private:
    static constexpr int64_t kShortIntervalLimit = 101000;

    int32_t every_ = 0;
    DRAVDuration interval_;
    eDbgPrintLevel level_;
    std::atomic<int32_t> calls_{0};
    std::atomic<int32_t> suppressed_{0};
    std::atomic<int64_t> last_{-1};
    std::atomic<bool> force_{false};
};

// vsnprintf into `buffer`; always true.
bool SafeFormatting(char* buffer, int size, const char* format, va_list& args);
