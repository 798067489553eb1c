#include "portable-core/OCQueue.h"

#include <cstring>
#include <initializer_list>

#include "portable-core/DplAlignedMemory.h"

namespace
{
bool IsPowerOfTwo(int value)
{
    return value > 0 && (value & (value - 1)) == 0;
}

int32_t Difference(uint32_t later, uint32_t earlier)
{
    return static_cast<int32_t>(later - earlier);
}
}  // namespace

OCQueueIndex::OCQueueIndex(int size)
{
    if (!IsPowerOfTwo(size))
    {
        throw -1;
    }
    size_ = static_cast<uint32_t>(size);
}

OCQueueIndex::OCQueueIndex(int size, uint32_t firstCount) : OCQueueIndex(size)
{
    for (std::atomic<uint32_t>* counter :
         {&getCommit_, &getEnd_, &getBegin_, &putCommit_, &putEnd_, &putBegin_})
    {
        counter->store(firstCount, std::memory_order_relaxed);
    }
}

void OCQueueIndex::RaiseTo(std::atomic<uint32_t>& commit, uint32_t value)
{
    uint32_t current = commit.load(std::memory_order_relaxed);
    while (
        Difference(value, current) > 0 &&
        !commit.compare_exchange_weak(current, value, std::memory_order_release, std::memory_order_relaxed))
    {
    }
}

int OCQueueIndex::BeginPut(int count)
{
    if (count <= 0)
    {
        return -1;
    }
    uint32_t begin = putBegin_.load(std::memory_order_relaxed);
    for (;;)
    {
        // Acquire: the consumers' reads of these slots are over before we overwrite them.
        const uint32_t released = getCommit_.load(std::memory_order_acquire);
        // A stale `begin` can make this difference negative; the exchange below then fails.
        if (Difference(begin + static_cast<uint32_t>(count), released) >= static_cast<int32_t>(size_))
        {
            return -1;
        }
        if (putBegin_.compare_exchange_weak(begin, begin + static_cast<uint32_t>(count),
                                            std::memory_order_relaxed, std::memory_order_relaxed))
        {
            return static_cast<int>(begin & (size_ - 1));
        }
    }
}

void OCQueueIndex::EndPut(int count)
{
    // acq_rel: each finisher's release heads a chain that the one who
    // publishes reads, so every copy that ended is visible to consumers.
    const uint32_t ended = putEnd_.fetch_add(static_cast<uint32_t>(count), std::memory_order_acq_rel) +
                           static_cast<uint32_t>(count);
    if (ended == putBegin_.load(std::memory_order_relaxed))
    {
        RaiseTo(putCommit_, ended);
    }
}

int OCQueueIndex::BeginGet(int count)
{
    if (count <= 0)
    {
        return -1;
    }
    uint32_t begin = getBegin_.load(std::memory_order_relaxed);
    for (;;)
    {
        const uint32_t published = putCommit_.load(std::memory_order_acquire);
        if (Difference(published, begin) < count)
        {
            return -1;
        }
        if (getBegin_.compare_exchange_weak(begin, begin + static_cast<uint32_t>(count),
                                            std::memory_order_relaxed, std::memory_order_relaxed))
        {
            return static_cast<int>(begin & (size_ - 1));
        }
    }
}

void OCQueueIndex::EndGet(int count)
{
    const uint32_t ended = getEnd_.fetch_add(static_cast<uint32_t>(count), std::memory_order_acq_rel) +
                           static_cast<uint32_t>(count);
    if (ended == getBegin_.load(std::memory_order_relaxed))
    {
        RaiseTo(getCommit_, ended);
    }
}

int OCQueueIndex::MinLength() const
{
    const int32_t length =
        Difference(putCommit_.load(std::memory_order_acquire), getBegin_.load(std::memory_order_relaxed));
    return length < 0 ? 0 : length;
}

void OCQueue::DumbCopy(void* dst, const void* src, int size)
{
    memcpy(dst, src, static_cast<size_t>(size));
}

void OCQueue::DumbCopyOut(void* dst, void* src, int size)
{
    memcpy(dst, src, static_cast<size_t>(size));
}

OCQueue::OCQueue(int count, int recordSize, CopyIn copyIn, CopyOut copyOut, uint32_t firstCount)
    : OCQueueIndex(count, firstCount), recordSize_(recordSize), copyIn_(copyIn), copyOut_(copyOut)
{
    if (recordSize <= 0)
    {
        throw -1;
    }
    storage_ = static_cast<unsigned char*>(
        DplAlignedAlloc(static_cast<size_t>(count) * static_cast<size_t>(recordSize)));
    if (storage_ == nullptr)
    {
        throw -1;
    }
}

OCQueue::~OCQueue()
{
    DplAlignedFree(storage_);
}

bool OCQueue::Enqueue(const void* record)
{
    const int slot = BeginPut(1);
    if (slot < 0)
    {
        return false;
    }
    if (record != nullptr && copyIn_ != nullptr)
    {
        copyIn_(storage_ + static_cast<size_t>(slot) * static_cast<size_t>(recordSize_), record, recordSize_);
    }
    EndPut(1);
    return true;
}

bool OCQueue::Dequeue(void* record)
{
    const int slot = BeginGet(1);
    if (slot < 0)
    {
        return false;
    }
    if (record != nullptr && copyOut_ != nullptr)
    {
        copyOut_(record, storage_ + static_cast<size_t>(slot) * static_cast<size_t>(recordSize_),
                 recordSize_);
    }
    EndGet(1);
    return true;
}
