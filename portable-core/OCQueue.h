#pragma once

#include <atomic>
#include <cstdint>

// The index of a lock-free ring of `size` slots (a power of two) for any
// number of producers and consumers. Six counters only grow (wrapping at
// 2^32: every comparison is by difference); a slot's index is
// `counter & (size - 1)`. A put or get first claims slots (Begin), copies,
// then ends (End); claimed slots become visible to the other side only when
// every claim that began before has ended. At most size - 1 slots are in use.
class OCQueueIndex
{
public:
    // Throws the int -1 when `size` is not a power of two.
    explicit OCQueueIndex(int size);
    // As above, with every counter starting at `firstCount` instead of 0 (to
    // exercise the wrap of the counters at 2^32).
    OCQueueIndex(int size, uint32_t firstCount);
    OCQueueIndex(const OCQueueIndex&) = delete;
    OCQueueIndex& operator=(const OCQueueIndex&) = delete;

    // The first of `count` claimed slots, or -1 when they aren't there.
    int BeginGet(int count);
    void EndGet(int count);
    int BeginPut(int count);
    void EndPut(int count);
    // A lower bound of what can be read.
    int MinLength() const;
    int Size() const { return static_cast<int>(size_); }

private:
    static void RaiseTo(std::atomic<uint32_t>& commit, uint32_t value);

    // Each counter on a line of its own, so producers and consumers don't share one.
    alignas(128) std::atomic<uint32_t> getCommit_{0};
    alignas(128) std::atomic<uint32_t> getEnd_{0};
    alignas(128) std::atomic<uint32_t> getBegin_{0};
    alignas(128) std::atomic<uint32_t> putCommit_{0};
    alignas(128) std::atomic<uint32_t> putEnd_{0};
    alignas(128) std::atomic<uint32_t> putBegin_{0};
    alignas(128) uint32_t size_;
};

// A lock-free queue of fixed-size records over OCQueueIndex. Neither side blocks.
class OCQueue : public OCQueueIndex
{
public:
    using CopyIn = void (*)(void* dst, const void* src, int size);
    using CopyOut = void (*)(void* dst, void* src, int size);

    static void DumbCopy(void* dst, const void* src, int size);
    static void DumbCopyOut(void* dst, void* src, int size);

    // Throws the int -1 when `count` is not a power of two or the store can't be had.
    OCQueue(int count, int recordSize, CopyIn copyIn = DumbCopy, CopyOut copyOut = DumbCopyOut,
            uint32_t firstCount = 0);
    ~OCQueue();

    // False when full. A null record claims and releases a slot without a copy.
    bool Enqueue(const void* record);
    // False when empty. A null record drops one record.
    bool Dequeue(void* record);
    int RecordSize() const { return recordSize_; }

private:
    unsigned char* storage_ = nullptr;
    int32_t recordSize_ = 0;
    CopyIn copyIn_ = nullptr;
    CopyOut copyOut_ = nullptr;
};
