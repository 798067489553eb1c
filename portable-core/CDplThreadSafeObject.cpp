#include "portable-core/CDplThreadSafeObject.h"

#include <limits>

void CDplThreadSafeObject::Lock()
{
    mutex_.Lock();
}

void CDplThreadSafeObject::UnLock()
{
    mutex_.Unlock();
}

int CDplThreadSafeObject::WaitCondition(int64_t timeoutMs)
{
    return condition_.Wait(mutex_, MillisecondsToWaitNanoseconds(timeoutMs));
}

void CDplThreadSafeObject::SignalCondition()
{
    condition_.Signal();
}

int64_t CDplThreadSafeObject::MillisecondsToWaitNanoseconds(int64_t timeoutMs)
{
    constexpr int64_t kNanosecondsPerMillisecond = 1000000;
    if (timeoutMs < 0)
    {
        return -1;
    }
    if (timeoutMs > std::numeric_limits<int64_t>::max() / kNanosecondsPerMillisecond)
    {
        return std::numeric_limits<int64_t>::max();
    }
    return timeoutMs * kNanosecondsPerMillisecond;
}
