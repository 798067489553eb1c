#include "portable-core/CDplThreadMutex.h"

#include <cerrno>
#include <ctime>

CDplThreadMutex::CDplThreadMutex()
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&mutex_, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

CDplThreadMutex::~CDplThreadMutex()
{
    pthread_mutex_destroy(&mutex_);
}

void CDplThreadMutex::Lock()
{
    pthread_mutex_lock(&mutex_);
}

void CDplThreadMutex::Unlock()
{
    pthread_mutex_unlock(&mutex_);
}

bool CDplThreadMutex::TryLock()
{
    return pthread_mutex_trylock(&mutex_) == 0;
}

CDplThreadCondition::CDplThreadCondition()
{
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&condition_, &attributes);
    pthread_condattr_destroy(&attributes);
}

CDplThreadCondition::~CDplThreadCondition()
{
    pthread_cond_destroy(&condition_);
}

int CDplThreadCondition::Wait(CDplThreadMutex& mutex, int64_t timeoutNanoseconds)
{
    if (timeoutNanoseconds < 0)
    {
        return pthread_cond_wait(&condition_, mutex.NativeHandle());
    }
    timespec deadline{};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    constexpr int64_t kNanosecondsPerSecond = 1000000000;
    const int64_t total = static_cast<int64_t>(deadline.tv_nsec) + timeoutNanoseconds % kNanosecondsPerSecond;
    deadline.tv_sec +=
        static_cast<time_t>(timeoutNanoseconds / kNanosecondsPerSecond + total / kNanosecondsPerSecond);
    deadline.tv_nsec = static_cast<long>(total % kNanosecondsPerSecond);
    return pthread_cond_timedwait(&condition_, mutex.NativeHandle(), &deadline);
}

void CDplThreadCondition::Signal()
{
    pthread_cond_signal(&condition_);
}

void CDplThreadCondition::Broadcast()
{
    pthread_cond_broadcast(&condition_);
}
