#include "portable-core/CBarebonesSpinLocker.h"

#include "portable-core/DplSleep.h"

namespace
{
// A compare-and-swap between full fences: sequential consistency on both sides.
bool SwapWord(int volatile* lock, int from, int to)
{
    int expected = from;
    return __atomic_compare_exchange_n(lock, &expected, to, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
}
}  // namespace

void CBarebonesSpinLocker::RawInit(int volatile* lock)
{
    if (lock != nullptr)
    {
        __atomic_store_n(lock, 0, __ATOMIC_SEQ_CST);
    }
}

bool CBarebonesSpinLocker::RawLock(int volatile* lock, bool wait)
{
    if (lock == nullptr)
    {
        return true;
    }
    if (SwapWord(lock, 0, 1))
    {
        return true;
    }
    if (!wait)
    {
        return false;
    }
    for (int attempts = 0;; ++attempts)
    {
        USRSpinOrYield(attempts);
        // Read before trying, so waiters don't keep the cache line bouncing.
        if (__atomic_load_n(lock, __ATOMIC_RELAXED) == 0 && SwapWord(lock, 0, 1))
        {
            return true;
        }
        if (attempts == 1 << 30)
        {
            attempts = 1 << 20;  // stays in the sleeping part of the back-off
        }
    }
}

bool CBarebonesSpinLocker::RawUnlock(int volatile* lock)
{
    if (lock == nullptr)
    {
        return true;
    }
    return SwapWord(lock, 1, 0);
}

void CBarebonesSpinLocker::RawDeinit(int volatile* /*lock*/) {}

CBarebonesSpinLocker::CBarebonesSpinLocker(int volatile& lock, bool acquireNow) : lock_(&lock)
{
    if (acquireNow)
    {
        held_ = RawLock(lock_, true);
    }
}

CBarebonesSpinLocker::~CBarebonesSpinLocker()
{
    Release();
}

bool CBarebonesSpinLocker::Reacquire(bool wait)
{
    if (held_)
    {
        return true;
    }
    held_ = RawLock(lock_, wait);
    return held_;
}

bool CBarebonesSpinLocker::Release()
{
    if (!held_)
    {
        return true;
    }
    if (!RawUnlock(lock_))
    {
        return false;
    }
    held_ = false;
    return true;
}
