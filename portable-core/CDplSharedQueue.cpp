#include "portable-core/CDplSharedQueue.h"

#include <algorithm>

#include "portable-core/CDplThreadSafeObject.h"

CDplSharedQueueBuffer::CDplSharedQueueBuffer(int capacity)
    : data_(new uint8_t[capacity > 0 ? capacity : 0]()), capacity_(capacity > 0 ? capacity : 0)
{
}

CDplSharedQueueBuffer::~CDplSharedQueueBuffer()
{
    delete[] data_;
}

bool CDplSharedQueueBuffer::SetBufferSize(int size)
{
    if (size < 0 || size > capacity_)
    {
        return false;
    }
    size_ = size;
    return true;
}

uint8_t* CDplSharedQueueBuffer::GetHandle() const
{
    return data_;
}

int CDplSharedQueueBuffer::BufferMax() const
{
    return capacity_;
}

int CDplSharedQueueBuffer::BufferSize() const
{
    return size_;
}

CDplSharedQueue::~CDplSharedQueue()
{
    Clear();
}

CDplSharedQueueBuffer* CDplSharedQueue::AddBuffer(int size)
{
    if (size < 0)
    {
        return nullptr;
    }
    auto* buffer = new CDplSharedQueueBuffer(size);
    AddBuffer(buffer);
    return buffer;
}

bool CDplSharedQueue::AddBuffer(CDplSharedQueueBuffer* buffer)
{
    if (buffer == nullptr)
    {
        return false;
    }
    {
        CDplScopedLock lock(mutex_);
        if (IsOwned(buffer))
        {
            return false;
        }
        all_.push_back(buffer);
        free_.push_back(buffer);
    }
    freeCondition_.Signal();
    return true;
}

void CDplSharedQueue::Clear()
{
    CDplScopedLock lock(mutex_);
    free_.clear();
    used_.clear();
    for (CDplSharedQueueBuffer* buffer : all_)
    {
        delete buffer;
    }
    all_.clear();
}

CDplSharedQueueBuffer* CDplSharedQueue::GetFree(int64_t timeoutMs)
{
    return Take(free_, freeCondition_, timeoutMs);
}

CDplSharedQueueBuffer* CDplSharedQueue::GetUsed(int64_t timeoutMs)
{
    return Take(used_, usedCondition_, timeoutMs);
}

bool CDplSharedQueue::PutFree(CDplSharedQueueBuffer* buffer)
{
    return Put(free_, freeCondition_, buffer);
}

bool CDplSharedQueue::PutUsed(CDplSharedQueueBuffer* buffer)
{
    return Put(used_, usedCondition_, buffer);
}

int CDplSharedQueue::Size()
{
    CDplScopedLock lock(mutex_);
    return static_cast<int>(all_.size());
}

int CDplSharedQueue::Used()
{
    CDplScopedLock lock(mutex_);
    return static_cast<int>(used_.size());
}

int CDplSharedQueue::Free()
{
    CDplScopedLock lock(mutex_);
    return static_cast<int>(free_.size());
}

void CDplSharedQueue::DoForEach(bool (*fn)(void* context, CDplSharedQueueBuffer* buffer), void* context)
{
    if (fn == nullptr)
    {
        return;
    }
    CDplScopedLock lock(mutex_);
    // A copy: the callback may put or take buffers (the lock is recursive).
    const BufferList snapshot = used_;
    for (CDplSharedQueueBuffer* buffer : snapshot)
    {
        if (!fn(context, buffer))
        {
            return;
        }
    }
}

int CDplSharedQueue::WaitUsedCondition(int64_t timeoutMs)
{
    CDplScopedLock lock(mutex_);
    return usedCondition_.Wait(mutex_, CDplThreadSafeObject::MillisecondsToWaitNanoseconds(timeoutMs));
}

void CDplSharedQueue::SignalUsedCondition()
{
    usedCondition_.Signal();
}

int CDplSharedQueue::WaitFreeCondition(int64_t timeoutMs)
{
    CDplScopedLock lock(mutex_);
    return freeCondition_.Wait(mutex_, CDplThreadSafeObject::MillisecondsToWaitNanoseconds(timeoutMs));
}

void CDplSharedQueue::SignalFreeCondition()
{
    freeCondition_.Signal();
}

CDplSharedQueueBuffer* CDplSharedQueue::Take(BufferList& list, CDplThreadCondition& condition,
                                             int64_t timeoutMs)
{
    CDplScopedLock lock(mutex_);
    if (list.empty())
    {
        if (timeoutMs == 0)
        {
            return nullptr;
        }
        // One wait only: a caller that wants more loops itself.
        condition.Wait(mutex_, CDplThreadSafeObject::MillisecondsToWaitNanoseconds(timeoutMs));
        if (list.empty())
        {
            return nullptr;
        }
    }
    CDplSharedQueueBuffer* buffer = list.front();
    list.erase(list.begin());
    return buffer;
}

bool CDplSharedQueue::Put(BufferList& list, CDplThreadCondition& condition, CDplSharedQueueBuffer* buffer)
{
    {
        CDplScopedLock lock(mutex_);
        if (buffer == nullptr || !IsOwned(buffer) || IsQueued(buffer))
        {
            return false;
        }
        list.push_back(buffer);
    }
    condition.Signal();
    return true;
}

bool CDplSharedQueue::IsOwned(const CDplSharedQueueBuffer* buffer) const
{
    return std::find(all_.begin(), all_.end(), buffer) != all_.end();
}

bool CDplSharedQueue::IsQueued(const CDplSharedQueueBuffer* buffer) const
{
    return std::find(free_.begin(), free_.end(), buffer) != free_.end() ||
           std::find(used_.begin(), used_.end(), buffer) != used_.end();
}
