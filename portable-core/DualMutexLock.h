#pragma once

#include "portable-core/CDplThreadMutexLock.h"

// Takes both locks without risk of a lock-order deadlock: a held lock is never
// waited on while the other is being waited for. Locks the caller already
// holds stay as they are; `a` and `b` may be the same lock. Afterwards the
// caller holds both; Unlock() each (a second Unlock of the same lock is a no-op).
void DualMutexLock(CDplThreadMutexLock& a, CDplThreadMutexLock& b);
