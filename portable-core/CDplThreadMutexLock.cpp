#include "portable-core/CDplThreadMutexLock.h"

CDplThreadMutexLock::CDplThreadMutexLock()
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&mutex_, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

CDplThreadMutexLock::~CDplThreadMutexLock()
{
    pthread_mutex_destroy(&mutex_);
}

void CDplThreadMutexLock::Lock()
{
    if (IsLocked())
    {
        return;
    }
    pthread_mutex_lock(&mutex_);
    holder_.store(std::this_thread::get_id());
}

bool CDplThreadMutexLock::TryLock()
{
    if (IsLocked())
    {
        return true;
    }
    if (pthread_mutex_trylock(&mutex_) != 0)
    {
        return false;
    }
    holder_.store(std::this_thread::get_id());
    return true;
}

bool CDplThreadMutexLock::Unlock()
{
    if (!IsLocked())
    {
        return false;
    }
    holder_.store(std::thread::id());
    pthread_mutex_unlock(&mutex_);
    return true;
}

bool CDplThreadMutexLock::IsLocked() const
{
    return holder_.load() == std::this_thread::get_id();
}
