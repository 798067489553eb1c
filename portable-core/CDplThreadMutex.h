#pragma once

#include <pthread.h>

#include <cstdint>

// A recursive system mutex. Every mutex of the library is recursive.
class CDplThreadMutex
{
public:
    CDplThreadMutex();
    virtual ~CDplThreadMutex();
    CDplThreadMutex(const CDplThreadMutex&) = delete;
    CDplThreadMutex& operator=(const CDplThreadMutex&) = delete;

    virtual void Lock();
    virtual void Unlock();
    // True when the lock was taken.
    virtual bool TryLock();

    pthread_mutex_t* NativeHandle() { return &mutex_; }

    // Lets std::lock_guard / std::unique_lock hold it.
    void lock() { Lock(); }
    void unlock() { Unlock(); }
    bool try_lock() { return TryLock(); }

private:
    pthread_mutex_t mutex_;
};

// Scope guard for a CDplThreadMutex.
class CDplScopedLock
{
public:
    explicit CDplScopedLock(CDplThreadMutex& mutex) : mutex_(mutex) { mutex_.Lock(); }
    ~CDplScopedLock() { mutex_.Unlock(); }
    CDplScopedLock(const CDplScopedLock&) = delete;
    CDplScopedLock& operator=(const CDplScopedLock&) = delete;

private:
    CDplThreadMutex& mutex_;
};

// One condition variable on the monotonic clock.
class CDplThreadCondition
{
public:
    CDplThreadCondition();
    ~CDplThreadCondition();
    CDplThreadCondition(const CDplThreadCondition&) = delete;
    CDplThreadCondition& operator=(const CDplThreadCondition&) = delete;

    // The caller holds `mutex` exactly once. A negative timeout waits without
    // limit. Returns 0 when signalled (or woken spuriously), non-zero
    // (ETIMEDOUT) when the time ran out.
    int Wait(CDplThreadMutex& mutex, int64_t timeoutNanoseconds);
    void Signal();
    void Broadcast();

private:
    pthread_cond_t condition_;
};
