#pragma once

#include <pthread.h>

#include <atomic>
#include <thread>

// A system mutex with a "locked" flag that a holder can test. The flag belongs
// to the thread that holds the mutex: IsLocked() is true only on that thread,
// so a lock that another thread holds never looks taken by the caller. Lock()
// on a lock the caller already holds does nothing (it isn't counted), and
// Unlock() by a thread that doesn't hold it does nothing and returns false.
class CDplThreadMutexLock
{
public:
    CDplThreadMutexLock();
    ~CDplThreadMutexLock();
    CDplThreadMutexLock(const CDplThreadMutexLock&) = delete;
    CDplThreadMutexLock& operator=(const CDplThreadMutexLock&) = delete;

    void Lock();
    // True when the caller holds the lock afterwards.
    bool TryLock();
    // True when the caller held it.
    bool Unlock();
    // True when the calling thread holds this lock.
    bool IsLocked() const;

private:
    pthread_mutex_t mutex_;
    std::atomic<std::thread::id> holder_{};
};
