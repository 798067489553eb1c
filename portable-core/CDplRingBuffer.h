#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "portable-core/CDplThreadMutex.h"

// A byte ring under a recursive mutex, with a policy for writes that
// overtake the reader: keep the newest `size` bytes, or drop to the newest
// half. The fill always stays between 0 and the size, and the readable bytes
// are always the newest `fill` bytes written, in order.
class CDplRingBuffer
{
public:
    explicit CDplRingBuffer(const char* name);
    virtual ~CDplRingBuffer();
    CDplRingBuffer(const CDplRingBuffer&) = delete;
    CDplRingBuffer& operator=(const CDplRingBuffer&) = delete;

    // Replaces any former storage by `size` zeroed bytes; false if that fails
    // (the ring then has no storage).
    bool Create(int size);
    void Destroy();
    // Zeroes the bytes and forgets what was in the ring.
    void Reset();

    // Room before the next write overruns; read without the lock.
    int GetMaxWriteSize() const;
    int GetFill() const { return fill_.load(std::memory_order_relaxed); }
    int GetSize() const { return size_.load(std::memory_order_relaxed); }
    const std::string& GetName() const { return name_; }

    // Stores the last min(length, size) bytes of `data` and returns that
    // count. `*overrun` (when given) tells whether unread bytes were lost;
    // with `dropHalf` an overrun leaves only the newest half of the ring
    // readable. Null data or no storage: 0, and `*overrun` is not written.
    int Write(const unsigned char* data, int length, bool* overrun, bool dropHalf);
    // Moves up to `length` bytes out; with `discard` they are consumed
    // without a copy and `data` may be null.
    int Read(unsigned char* data, int length, bool discard);
    int Skip(int length) { return Read(nullptr, length, true); }

private:
    void ClearPositions();

    CDplThreadMutex mutex_;
    unsigned char* storage_ = nullptr;
    std::atomic<int32_t> size_{0};
    int32_t writePosition_ = 0;
    int32_t readPosition_ = 0;
    std::atomic<int32_t> fill_{0};
    std::string name_;
};
