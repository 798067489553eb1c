#include "portable-core/DualMutexLock.h"

#include <utility>

#include "portable-core/DplSleep.h"

void DualMutexLock(CDplThreadMutexLock& a, CDplThreadMutexLock& b)
{
    if (&a == &b || b.IsLocked())
    {
        a.Lock();
        return;
    }
    if (a.IsLocked())
    {
        b.Lock();
        return;
    }
    CDplThreadMutexLock* first = &a;
    CDplThreadMutexLock* second = &b;
    for (;;)
    {
        if (first->TryLock())
        {
            if (second->TryLock())
            {
                return;
            }
            first->Unlock();
        }
        // Back off, then start from the other lock, which the competing holder
        // is likely to free first.
        USRSleep(10);
        std::swap(first, second);
    }
}
