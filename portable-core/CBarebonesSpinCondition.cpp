#include "portable-core/CBarebonesSpinCondition.h"

#include <algorithm>

#include "portable-core/CBarebonesSpinLocker.h"
#include "portable-core/DplSleep.h"

namespace
{
constexpr int64_t kPollNanoseconds = 1000000;
constexpr int64_t kNanosecondsPerMicrosecond = 1000;
}  // namespace

bool CBarebonesSpinCondition::Wait(int volatile& lock, const DplTimeout<&DplZeroNowFunction>& timeout)
{
    if (__atomic_load_n(&lock, __ATOMIC_SEQ_CST) == 0)
    {
        return false;
    }
    if (pendingSignals_.load() > waiters_.load())
    {
        return false;
    }
    waiters_.fetch_add(1);
    int64_t remaining = timeout.Nanoseconds() > 0 ? timeout.Nanoseconds() : -1;
    CBarebonesSpinLocker::RawUnlock(&lock);

    bool signalled = false;
    for (;;)
    {
        int32_t pending = pendingSignals_.load();
        if (pending > 0 && pendingSignals_.compare_exchange_strong(pending, pending - 1))
        {
            signalled = true;
            break;
        }
        if (pending > 0)
        {
            continue;  // lost a race for a signal: look again before sleeping
        }
        if (remaining < 1)
        {
            break;
        }
        const int64_t slice = std::min(remaining, kPollNanoseconds);
        const int64_t rounded = (slice + kNanosecondsPerMicrosecond - 1) / kNanosecondsPerMicrosecond *
                                kNanosecondsPerMicrosecond;
        USRSleepNs(rounded);
        remaining -= rounded;
    }

    waiters_.fetch_sub(1);
    // A signal meant for this waiter that came too late would otherwise stay
    // behind with nobody to take it, and turn every later wait into a failure.
    TrimPendingSignals();
    CBarebonesSpinLocker::RawLock(&lock, true);
    return signalled;
}

void CBarebonesSpinCondition::Signal()
{
    const int32_t waiters = waiters_.load();
    if (waiters < 1 || pendingSignals_.load() >= waiters)
    {
        return;
    }
    pendingSignals_.fetch_add(1);
    TrimPendingSignals();
}

void CBarebonesSpinCondition::Broadcast()
{
    int32_t waiters = waiters_.load();
    int32_t pending = pendingSignals_.load();
    while (waiters > 0 && pending != waiters)
    {
        if (pendingSignals_.compare_exchange_weak(pending, waiters))
        {
            break;
        }
        waiters = waiters_.load();
    }
}

void CBarebonesSpinCondition::TrimPendingSignals()
{
    int32_t pending = pendingSignals_.load();
    for (;;)
    {
        const int32_t waiters = std::max(waiters_.load(), 0);
        if (pending <= waiters || pendingSignals_.compare_exchange_weak(pending, waiters))
        {
            return;
        }
    }
}
