#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "portable-core/DRAVLog.h"

namespace threads_test
{
// Generous limits: these tests run on a loaded 2-core machine under sanitizers.
constexpr std::chrono::seconds kPatience{20};

// Polls `predicate` every `poll` until it holds or `limit` passes.
inline bool WaitUntil(const std::function<bool()>& predicate,
                      std::chrono::steady_clock::duration limit = kPatience,
                      std::chrono::milliseconds poll = std::chrono::milliseconds(1))
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!predicate())
    {
        if (std::chrono::steady_clock::now() >= deadline)
        {
            return predicate();
        }
        std::this_thread::sleep_for(poll);
    }
    return true;
}

inline double SecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Installs a log handler for the scope of a test and restores the former one.
class ScopedLogCapture
{
public:
    explicit ScopedLogCapture(DRAVLogHandler handler) : former_(DRAVSetLogHandler(std::move(handler))) {}
    ~ScopedLogCapture() { DRAVSetLogHandler(std::move(former_)); }
    ScopedLogCapture(const ScopedLogCapture&) = delete;
    ScopedLogCapture& operator=(const ScopedLogCapture&) = delete;

private:
    DRAVLogHandler former_;
};
}  // namespace threads_test
