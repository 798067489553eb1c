#pragma once

#include <cstdint>
#include <vector>

#include "portable-core/CDplThreadMutex.h"

// One heap block that a CDplSharedQueue owns: a capacity and a current size.
class CDplSharedQueueBuffer
{
public:
    // A negative capacity counts as 0.
    explicit CDplSharedQueueBuffer(int capacity);
    virtual ~CDplSharedQueueBuffer();
    CDplSharedQueueBuffer(const CDplSharedQueueBuffer&) = delete;
    CDplSharedQueueBuffer& operator=(const CDplSharedQueueBuffer&) = delete;

    // Sets how many bytes are in use; false (and no change) outside 0..capacity.
    virtual bool SetBufferSize(int size);
    virtual uint8_t* GetHandle() const;
    virtual int BufferMax() const;
    virtual int BufferSize() const;

private:
    uint8_t* data_;
    int32_t capacity_;
    int32_t size_ = 0;
};

// A pool of buffers that move between a free list and a used list, both first
// in, first out. A producer takes a free buffer, fills it and puts it used; a
// consumer takes it used and puts it back free. The queue owns every buffer
// added to it: Clear() and the destructor delete them all, so nobody may still
// hold one by then. Timeouts are milliseconds: negative without limit, 0 none.
class CDplSharedQueue
{
public:
    CDplSharedQueue() = default;
    virtual ~CDplSharedQueue();
    CDplSharedQueue(const CDplSharedQueue&) = delete;
    CDplSharedQueue& operator=(const CDplSharedQueue&) = delete;

    // Makes a buffer of that capacity and adds it free; null for a negative size.
    virtual CDplSharedQueueBuffer* AddBuffer(int size);
    // Takes ownership and adds it free. False for null or a buffer already here.
    virtual bool AddBuffer(CDplSharedQueueBuffer* buffer);
    virtual void Clear();

    // The oldest free / used buffer. When there is none: null at once for a
    // timeout of 0, else one wait for a signal and then a second look.
    virtual CDplSharedQueueBuffer* GetFree(int64_t timeoutMs);
    virtual CDplSharedQueueBuffer* GetUsed(int64_t timeoutMs);
    // Appends and signals. False (nothing done) for a buffer that isn't this
    // queue's or that is already in a list: it would be handed out twice.
    virtual bool PutFree(CDplSharedQueueBuffer* buffer);
    virtual bool PutUsed(CDplSharedQueueBuffer* buffer);

    virtual int Size();
    virtual int Used();
    virtual int Free();

    // Walks the used buffers oldest first, under the queue's lock, until `fn` returns false.
    virtual void DoForEach(bool (*fn)(void* context, CDplSharedQueueBuffer* buffer), void* context);

    // One wait on the matching condition; returns 0 when signalled, non-zero on timeout.
    virtual int WaitUsedCondition(int64_t timeoutMs);
    virtual void SignalUsedCondition();
    virtual int WaitFreeCondition(int64_t timeoutMs);
    virtual void SignalFreeCondition();

private:
    using BufferList = std::vector<CDplSharedQueueBuffer*>;

    CDplSharedQueueBuffer* Take(BufferList& list, CDplThreadCondition& condition, int64_t timeoutMs);
    bool Put(BufferList& list, CDplThreadCondition& condition, CDplSharedQueueBuffer* buffer);
    bool IsOwned(const CDplSharedQueueBuffer* buffer) const;
    bool IsQueued(const CDplSharedQueueBuffer* buffer) const;

    BufferList all_;
    BufferList free_;
    BufferList used_;
    CDplThreadMutex mutex_;
    CDplThreadCondition usedCondition_;
    CDplThreadCondition freeCondition_;
};
