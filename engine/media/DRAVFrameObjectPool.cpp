#include "engine/media/DRAVFrameObjectPool.h"

#include <array>
#include <atomic>
#include <mutex>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#define TIDEMIX_POISON(address, size) ASAN_POISON_MEMORY_REGION(address, size)
#define TIDEMIX_UNPOISON(address, size) ASAN_UNPOISON_MEMORY_REGION(address, size)
#else
#define TIDEMIX_POISON(address, size) ((void)(address), (void)(size))
#define TIDEMIX_UNPOISON(address, size) ((void)(address), (void)(size))
#endif

namespace
{
constexpr std::align_val_t kBlockAlignment{DRAVFrameObjectPool::kClassBytes};

struct FreeBlock
{
    FreeBlock* next;
};

struct SizeClass
{
    std::mutex lock;
    FreeBlock* head = nullptr;
    size_t count = 0;
};

struct Classes
{
    std::array<SizeClass, DRAVFrameObjectPool::kClassCount> classes;
    std::atomic<uint64_t> heapAllocations{0};
};

// Never destroyed: frames may be released by threads that outlive static
// destruction, and a freed block must always find its class.
Classes& TheClasses()
{
    static Classes* const sClasses = new Classes();
    return *sClasses;
}

size_t ClassIndex(size_t bytes)
{
    return bytes == 0 ? 0 : (bytes - 1) / DRAVFrameObjectPool::kClassBytes;
}

size_t ClassBytes(size_t index)
{
    return (index + 1) * DRAVFrameObjectPool::kClassBytes;
}
}  // namespace

// ThreadSanitizer knows a mutex by its address and forgets it only when the
// memory is freed; a recycled block would carry an old frame's lock history
// into a new frame and show lock orders that never were. Under it, every
// block comes from the heap and goes back there.
#if defined(__SANITIZE_THREAD__)
constexpr bool kRecycle = false;
#else
constexpr bool kRecycle = true;
#endif

void* DRAVFrameObjectPool::Allocate(size_t bytes)
{
    if (!kRecycle || bytes > kLargestBlock)
    {
        return ::operator new(bytes, kBlockAlignment);
    }
    const size_t index = ClassIndex(bytes);
    Classes& all = TheClasses();
    SizeClass& sizeClass = all.classes[index];
    {
        std::lock_guard<std::mutex> guard(sizeClass.lock);
        if (FreeBlock* block = sizeClass.head)
        {
            TIDEMIX_UNPOISON(block, ClassBytes(index));
            sizeClass.head = block->next;
            --sizeClass.count;
            return block;
        }
    }
    all.heapAllocations.fetch_add(1, std::memory_order_relaxed);
    return ::operator new(ClassBytes(index), kBlockAlignment);
}

void DRAVFrameObjectPool::Release(void* block, size_t bytes) noexcept
{
    if (block == nullptr)
    {
        return;
    }
    if (!kRecycle || bytes > kLargestBlock)
    {
        ::operator delete(block, kBlockAlignment);
        return;
    }
    const size_t index = ClassIndex(bytes);
    SizeClass& sizeClass = TheClasses().classes[index];
    {
        std::lock_guard<std::mutex> guard(sizeClass.lock);
        if (sizeClass.count < kMaxCachedPerClass)
        {
            auto* freeBlock = static_cast<FreeBlock*>(block);
            freeBlock->next = sizeClass.head;
            sizeClass.head = freeBlock;
            ++sizeClass.count;
            // A use after release then trips the address sanitizer, as it
            // would for a heap block; the link stays readable.
            TIDEMIX_POISON(reinterpret_cast<uint8_t*>(block) + sizeof(FreeBlock),
                           ClassBytes(index) - sizeof(FreeBlock));
            return;
        }
    }
    ::operator delete(block, kBlockAlignment);
}

size_t DRAVFrameObjectPool::CachedBlockCount()
{
    size_t total = 0;
    for (SizeClass& sizeClass : TheClasses().classes)
    {
        std::lock_guard<std::mutex> guard(sizeClass.lock);
        total += sizeClass.count;
    }
    return total;
}

uint64_t DRAVFrameObjectPool::HeapAllocationCount()
{
    return TheClasses().heapAllocations.load(std::memory_order_relaxed);
}
