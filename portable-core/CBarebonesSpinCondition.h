#pragma once

#include <atomic>
#include <cstdint>

#include "portable-core/DplTimeout.h"

// A condition for code that holds a spin lock (see CBarebonesSpinLocker). It
// counts waiters and pending signals; a waiter polls for a signal with a
// resolution of 1 ms, so there is no wait without limit.
class CBarebonesSpinCondition
{
public:
    CBarebonesSpinCondition() = default;
    CBarebonesSpinCondition(const CBarebonesSpinCondition&) = delete;
    CBarebonesSpinCondition& operator=(const CBarebonesSpinCondition&) = delete;

    // The caller holds `lock`. Frees it while waiting up to `timeout` for a
    // signal, then takes it again. True when a signal was consumed. False at
    // once when the lock word is free (the caller can't hold it). A timeout of
    // 0 or below polls exactly once.
    bool Wait(int volatile& lock, const DplTimeout<&DplZeroNowFunction>& timeout);
    // Wakes one waiter; nothing when nobody waits.
    void Signal();
    // Wakes every current waiter.
    void Broadcast();

    int32_t Waiters() const { return waiters_.load(); }
    int32_t PendingSignals() const { return pendingSignals_.load(); }

private:
    // Brings pending signals down to the count of waiters.
    void TrimPendingSignals();

    std::atomic<int32_t> waiters_{0};
    std::atomic<int32_t> pendingSignals_{0};
};
