#pragma once

#include <cstddef>
#include <cstdint>
#include <new>

// Recycles the small blocks that frame objects are made of (the frame, its
// format, its storage record and their shared_ptr control blocks), so that a
// frame made on an audio or device thread costs no trip to the heap once the
// road has run for a moment. The sample bytes themselves come from the memory
// pool; this serves only the bookkeeping around them.
//
// Blocks are kept in size classes of 64 bytes up to kLargestBlock; a larger
// request goes to the heap. Each class keeps at most kMaxCachedPerClass free
// blocks, so a burst doesn't hold memory for ever. All blocks are 64-byte
// aligned. Thread-safe: each class has its own short lock around a pointer
// push or pop.
class DRAVFrameObjectPool
{
public:
    static constexpr size_t kClassBytes = 64;
    static constexpr size_t kClassCount = 16;
    static constexpr size_t kLargestBlock = kClassBytes * kClassCount;
    static constexpr size_t kMaxCachedPerClass = 4096;

    static void* Allocate(size_t bytes);
    static void Release(void* block, size_t bytes) noexcept;

    // Free blocks held for reuse over all classes.
    static size_t CachedBlockCount();
    // Blocks taken from the heap because their class had none free.
    static uint64_t HeapAllocationCount();
};

// A stateless allocator over DRAVFrameObjectPool, for std::allocate_shared.
template <class T>
struct DRAVFrameAllocator
{
    using value_type = T;

    DRAVFrameAllocator() noexcept = default;
    template <class U>
    DRAVFrameAllocator(const DRAVFrameAllocator<U>&) noexcept
    {
    }

    T* allocate(size_t count)
    {
        static_assert(alignof(T) <= DRAVFrameObjectPool::kClassBytes);
        return static_cast<T*>(DRAVFrameObjectPool::Allocate(count * sizeof(T)));
    }
    void deallocate(T* block, size_t count) noexcept
    {
        DRAVFrameObjectPool::Release(block, count * sizeof(T));
    }

    template <class U>
    bool operator==(const DRAVFrameAllocator<U>&) const noexcept
    {
        return true;
    }
};
