#include "portable-core/CDplRingBuffer.h"

#include <algorithm>
#include <cstring>

#include "portable-core/DplAlignedMemory.h"

CDplRingBuffer::CDplRingBuffer(const char* name) : name_(name == nullptr ? "" : name) {}

CDplRingBuffer::~CDplRingBuffer()
{
    Destroy();
}

bool CDplRingBuffer::Create(int size)
{
    CDplScopedLock lock(mutex_);
    Destroy();
    if (size <= 0)
    {
        return false;
    }
    auto* block = static_cast<unsigned char*>(DplAlignedAlloc(static_cast<size_t>(size)));
    if (block == nullptr)
    {
        return false;
    }
    memset(block, 0, static_cast<size_t>(size));
    storage_ = block;
    size_.store(size, std::memory_order_relaxed);
    return true;
}

void CDplRingBuffer::Destroy()
{
    CDplScopedLock lock(mutex_);
    DplAlignedFree(storage_);
    storage_ = nullptr;
    size_.store(0, std::memory_order_relaxed);
    ClearPositions();
}

void CDplRingBuffer::Reset()
{
    CDplScopedLock lock(mutex_);
    if (storage_ != nullptr)
    {
        memset(storage_, 0, static_cast<size_t>(size_.load(std::memory_order_relaxed)));
    }
    ClearPositions();
}

void CDplRingBuffer::ClearPositions()
{
    writePosition_ = 0;
    readPosition_ = 0;
    fill_.store(0, std::memory_order_relaxed);
}

int CDplRingBuffer::GetMaxWriteSize() const
{
    return size_.load(std::memory_order_relaxed) - fill_.load(std::memory_order_relaxed);
}

int CDplRingBuffer::Write(const unsigned char* data, int length, bool* overrun, bool dropHalf)
{
    CDplScopedLock lock(mutex_);
    if (data == nullptr || storage_ == nullptr)
    {
        return 0;
    }
    if (length <= 0)
    {
        if (overrun != nullptr)
        {
            *overrun = false;
        }
        return 0;
    }
    const int32_t size = size_.load(std::memory_order_relaxed);
    // Of a write longer than the ring only the newest `size` bytes can stay.
    const int32_t stored = std::min(length, size);
    const unsigned char* source = data + (length - stored);
    const int32_t atEnd = std::min(stored, size - writePosition_);
    memcpy(storage_ + writePosition_, source, static_cast<size_t>(atEnd));
    if (stored > atEnd)
    {
        memcpy(storage_, source + atEnd, static_cast<size_t>(stored - atEnd));
    }
    writePosition_ = (writePosition_ + stored) % size;

    // Landing exactly on the reader fills the ring without losing a byte.
    const int32_t newFill = fill_.load(std::memory_order_relaxed) + stored;
    const bool overtaken = newFill > size;
    if (!overtaken)
    {
        fill_.store(newFill, std::memory_order_relaxed);
    }
    else
    {
        // The reader restarts at the oldest byte still intact: the newest
        // `fill` bytes end at the write position. Deriving the read position
        // from the fill keeps the two consistent for odd sizes as well.
        const int32_t fill = dropHalf ? size / 2 : size;
        fill_.store(fill, std::memory_order_relaxed);
        readPosition_ = (writePosition_ - fill + size) % size;
    }
    if (overrun != nullptr)
    {
        *overrun = overtaken;
    }
    return stored;
}

int CDplRingBuffer::Read(unsigned char* data, int length, bool discard)
{
    CDplScopedLock lock(mutex_);
    if (storage_ == nullptr || (data == nullptr && !discard))
    {
        return 0;
    }
    const int32_t size = size_.load(std::memory_order_relaxed);
    if (readPosition_ >= size)
    {
        readPosition_ -= size;
    }
    const int32_t n = std::min(fill_.load(std::memory_order_relaxed), length);
    if (n <= 0)
    {
        return 0;
    }
    if (!discard)
    {
        const int32_t atEnd = std::min(n, size - readPosition_);
        memcpy(data, storage_ + readPosition_, static_cast<size_t>(atEnd));
        if (n > atEnd)
        {
            memcpy(data + atEnd, storage_, static_cast<size_t>(n - atEnd));
        }
    }
    readPosition_ = (readPosition_ + n) % size;
    fill_.fetch_sub(n, std::memory_order_relaxed);
    return n;
}
