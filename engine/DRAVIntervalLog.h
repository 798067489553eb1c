#pragma once

#include <atomic>
#include <cstdint>

#include "portable-core/DRAVLog.h"
#include "portable-core/DRAVTime.h"

// Lets a diagnostic line of a hot path out at most once per interval; with
// `force` set every line passes. Safe to call from several threads.
class DRAVIntervalLog
{
public:
    DRAVIntervalLog(DRAVDuration interval, eDbgPrintLevel level) : interval_(interval), level_(level) {}

    // True when the line was let out.
    bool Log(const char* function, const char* format, ...) __attribute__((format(printf, 3, 4)));

    void SetForce(bool force) { force_.store(force, std::memory_order_relaxed); }
    bool GetForce() const { return force_.load(std::memory_order_relaxed); }
    int64_t GetSuppressed() const { return suppressed_.load(std::memory_order_relaxed); }

private:
    DRAVDuration interval_;
    eDbgPrintLevel level_;
    std::atomic<int64_t> last_{-1};
    std::atomic<int64_t> suppressed_{0};
    std::atomic<bool> force_{false};
};

constexpr DRAVDuration kSlowLogInterval1 = DRAVDuration::OneMinute();
constexpr DRAVDuration kSlowLogInterval2 = DRAVDuration(2 * 60000000LL);
