#pragma once

#include <cstdint>

#include "portable-core/CDplThreadMutex.h"

// Base of objects that guard their state with one recursive mutex and offer
// one condition on it.
class CDplThreadSafeObject
{
public:
    CDplThreadSafeObject() = default;
    virtual ~CDplThreadSafeObject() = default;
    CDplThreadSafeObject(const CDplThreadSafeObject&) = delete;
    CDplThreadSafeObject& operator=(const CDplThreadSafeObject&) = delete;

    virtual void Lock();
    virtual void UnLock();
    // The caller holds the lock (once). Waits for a signal: a negative timeout
    // without limit, 0 not at all, otherwise that many milliseconds. Returns 0
    // when woken, non-zero (ETIMEDOUT) when the time ran out. Wake-ups may be
    // spurious: test the predicate in a loop.
    virtual int WaitCondition(int64_t timeoutMs);
    // Wakes one waiter.
    virtual void SignalCondition();

    // Milliseconds to the nanoseconds the condition takes: -1 (no limit) for
    // any negative value, saturating at the top.
    static int64_t MillisecondsToWaitNanoseconds(int64_t timeoutMs);

protected:
    CDplThreadMutex mutex_;
    CDplThreadCondition condition_;
};
