// Counts every heap call of this process, to show that the pool's steady path
// makes none. Without a sanitizer the malloc family and the global operator
// new/delete are replaced here; under AddressSanitizer (which owns malloc)
// its allocator hooks count instead, and operator new/delete still are ours.
// operator new and delete here are malloc and free underneath, on purpose.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <vector>

#include "engine/media/DRAVAudioBuffer.h"
#include "engine/media/DRAVBufferRAM.h"
#include "engine/media/DRAVFrameObjectPool.h"
#include "engine/media/DRAVMediaBufferLock.h"
#include "engine/media/DRAVMemoryPoolRAM.h"

namespace
{
std::atomic<bool> gCounting{false};
std::atomic<int64_t> gHeapCalls{0};

void CountHeapCall()
{
    if (gCounting.load(std::memory_order_relaxed))
    {
        gHeapCalls.fetch_add(1, std::memory_order_relaxed);
    }
}

void KeepAlive(void* p)
{
    asm volatile("" : : "r"(p) : "memory");
}
}  // namespace

#if defined(__SANITIZE_ADDRESS__)
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*malloc_hook)(const volatile void*, size_t),
                                                         void (*free_hook)(const volatile void*));
namespace
{
void MallocHook(const volatile void*, size_t)
{
    CountHeapCall();
}
void FreeHook(const volatile void*)
{
    CountHeapCall();
}
const int gHooksInstalled = __sanitizer_install_malloc_and_free_hooks(MallocHook, FreeHook);
}  // namespace
// The allocator hooks already see what operator new takes from malloc.
#define TIDEMIX_HEAP_FROM_MALLOC(size) malloc(size)
#define TIDEMIX_HEAP_FREE(p) free(p)
#define TIDEMIX_COUNT_IN_NEW() \
    do                         \
    {                          \
    } while (false)
#else
extern "C"
{
    void* __libc_malloc(size_t size);
    void __libc_free(void* p);
    void* __libc_calloc(size_t count, size_t size);
    void* __libc_realloc(void* p, size_t size);
    void* __libc_memalign(size_t alignment, size_t size);

    void* malloc(size_t size)
    {
        CountHeapCall();
        return __libc_malloc(size);
    }
    void free(void* p)
    {
        if (p != nullptr)
        {
            CountHeapCall();
        }
        __libc_free(p);
    }
    void* calloc(size_t count, size_t size)
    {
        CountHeapCall();
        return __libc_calloc(count, size);
    }
    void* realloc(void* p, size_t size)
    {
        CountHeapCall();
        return __libc_realloc(p, size);
    }
    void* memalign(size_t alignment, size_t size)
    {
        CountHeapCall();
        return __libc_memalign(alignment, size);
    }
    void* aligned_alloc(size_t alignment, size_t size)
    {
        CountHeapCall();
        return __libc_memalign(alignment, size);
    }
    int posix_memalign(void** out, size_t alignment, size_t size)
    {
        CountHeapCall();
        void* p = __libc_memalign(alignment, size);
        if (p == nullptr)
        {
            return ENOMEM;
        }
        *out = p;
        return 0;
    }
}
namespace
{
const int gHooksInstalled = 1;
}
#define TIDEMIX_HEAP_FROM_MALLOC(size) __libc_malloc(size)
#define TIDEMIX_HEAP_FREE(p) __libc_free(p)
#define TIDEMIX_COUNT_IN_NEW() CountHeapCall()
#endif

// operator new and delete are counted in every build.
void* operator new(size_t size)
{
    TIDEMIX_COUNT_IN_NEW();
    void* p = TIDEMIX_HEAP_FROM_MALLOC(size == 0 ? 1 : size);
    if (p == nullptr)
    {
        throw std::bad_alloc();
    }
    return p;
}
void* operator new[](size_t size)
{
    return operator new(size);
}
void operator delete(void* p) noexcept
{
    if (p != nullptr)
    {
        TIDEMIX_COUNT_IN_NEW();
    }
    TIDEMIX_HEAP_FREE(p);
}
void operator delete[](void* p) noexcept
{
    operator delete(p);
}
void operator delete(void* p, size_t) noexcept
{
    operator delete(p);
}
void operator delete[](void* p, size_t) noexcept
{
    operator delete(p);
}

namespace
{
// Counts the heap calls made by `body`.
template <class Body>
int64_t HeapCallsDuring(Body&& body)
{
    gHeapCalls.store(0);
    gCounting.store(true);
    body();
    gCounting.store(false);
    return gHeapCalls.load();
}

TEST(DRAVMemoryPoolAllocations, CounterSeesEveryKindOfHeapCall)
{
    ASSERT_NE(gHooksInstalled, 0);
    EXPECT_EQ(HeapCallsDuring(
                  []
                  {
                      void* p = malloc(100);
                      KeepAlive(p);
                      free(p);
                  }),
              2);
    EXPECT_EQ(HeapCallsDuring(
                  []
                  {
                      int* p = new int(3);
                      KeepAlive(p);
                      delete p;
                  }),
              2);
    // That the pool's own aligned heap calls are seen is AFullPoolGoesToTheHeap's check.
}

TEST(DRAVMemoryPoolAllocations, SteadyGetAndFreeMakeNoHeapCall)
{
    DRAVMemoryPoolRAM pool(kMemoryPoolRAMName, kMaxRAMPoolItems, kMaxRAMPoolSizeMB);
    const std::string owners[] = {"a source whose name is long enough to leave the small string store",
                                  "mixer"};
    const int64_t sizes[] = {7680, 3840, 1920};
    std::vector<uint8_t*> held;
    held.reserve(64);  // before counting, so the vector itself never reaches the heap
    auto round = [&]
    {
        for (int i = 0; i < 12; ++i)
            held.push_back(pool.GetBuffer(owners[i % 2], sizes[i % 3], true));
        for (uint8_t* p : held)
            pool.FreeBuffer(p);
        held.clear();
    };
    round();  // warm-up: the pool makes its items
    const int64_t itemsAfterWarmUp = pool.GetNumItems();
    const int64_t calls = HeapCallsDuring(
        [&]
        {
            for (int iteration = 0; iteration < 1000; ++iteration)
                round();
        });
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(pool.GetNumItems(), itemsAfterWarmUp);
}

TEST(DRAVMemoryPoolAllocations, AFullPoolGoesToTheHeap)
{
    DRAVMemoryPoolRAM pool("small", 1, 1);
    uint8_t* inPool = pool.GetBuffer("a", 100, true);
    uint8_t* outside = nullptr;
    const int64_t calls = HeapCallsDuring(
        [&]
        {
            outside = pool.GetBuffer("b", 100, true);
            pool.FreeBuffer(outside);
        });
    EXPECT_GE(calls, 2) << "the counter must see the allocation outside the pool and its release";
    pool.FreeBuffer(inPool);
}
// A whole frame, as the audio thread makes one per block and sink: the frame
// object, its format, its storage record and their control blocks, and the
// sample bytes. Once warm, none of it reaches the heap, whatever the owner's
// name, and frames of several owners may be alive at once.
TEST(DRAVMemoryPoolAllocations, SteadyFramesMakeNoHeapCall)
{
    auto pool = std::make_shared<DRAVMemoryPoolRAM>(kMemoryPoolRAMName, kMaxRAMPoolItems, kMaxRAMPoolSizeMB);
    std::shared_ptr<DRAVMemoryPoolRAM> former = DRAVMemoryPoolRAM::InstallShared(pool);
    const DRAVAudioFormat format(48000, 2, kDRAVAudioSampleTypeFloat, 0, true);
    const std::string owners[] = {"DRAVMultiChannelAudioMixerCoreAudio: Local Mixer (Core Audio)", "sink"};
    std::vector<std::shared_ptr<DRAVAudioBuffer>> held;
    held.reserve(16);
    auto round = [&]
    {
        for (int i = 0; i < 8; ++i)
        {
            auto frame = DRAVAudioBuffer::GetAudioBuffer(owners[i % 2], 7680, format, nullptr, 0);
            ASSERT_NE(frame, nullptr);
            std::shared_ptr<DRAVBufferRAM> storage;
            DRAVResult locked;
            {
                DRAVMediaBufferWriteLock<DRAVBufferRAM> lock(frame, &storage, &locked);
                ASSERT_TRUE(locked.Succeeded());
                storage->GetData()[0] = static_cast<uint8_t>(i);
            }
            frame->SetTimestamp(DRAVTimestamp(i));
            held.push_back(std::move(frame));
        }
        held.clear();
    };
    round();  // warm-up: the pools make their items and blocks
    const uint64_t heapBlocksAfterWarmUp = DRAVFrameObjectPool::HeapAllocationCount();

    const int64_t calls = HeapCallsDuring(
        [&]
        {
            for (int iteration = 0; iteration < 500; ++iteration)
            {
                round();
            }
        });
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(DRAVFrameObjectPool::HeapAllocationCount(), heapBlocksAfterWarmUp);
    DRAVMemoryPoolRAM::InstallShared(former);
}

// Blocks of every size class come back to their class and are handed out
// again; a block larger than any class goes straight to the heap and back.
TEST(DRAVMemoryPoolAllocations, FrameObjectBlocksAreRecycledByClass)
{
    void* small = DRAVFrameObjectPool::Allocate(40);
    void* large = DRAVFrameObjectPool::Allocate(DRAVFrameObjectPool::kLargestBlock);
    ASSERT_EQ(reinterpret_cast<uintptr_t>(small) % DRAVFrameObjectPool::kClassBytes, 0u);
    ASSERT_EQ(reinterpret_cast<uintptr_t>(large) % DRAVFrameObjectPool::kClassBytes, 0u);
    DRAVFrameObjectPool::Release(small, 40);
    DRAVFrameObjectPool::Release(large, DRAVFrameObjectPool::kLargestBlock);

    void* again = nullptr;
    void* againLarge = nullptr;
    const int64_t calls = HeapCallsDuring(
        [&]
        {
            again = DRAVFrameObjectPool::Allocate(64);  // same class as 40
            againLarge = DRAVFrameObjectPool::Allocate(DRAVFrameObjectPool::kLargestBlock - 10);
        });
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(again, small);
    EXPECT_EQ(againLarge, large);
    DRAVFrameObjectPool::Release(again, 64);
    DRAVFrameObjectPool::Release(againLarge, DRAVFrameObjectPool::kLargestBlock - 10);

    const int64_t oversized = HeapCallsDuring(
        [&]
        {
            void* block = DRAVFrameObjectPool::Allocate(DRAVFrameObjectPool::kLargestBlock + 1);
            KeepAlive(block);
            DRAVFrameObjectPool::Release(block, DRAVFrameObjectPool::kLargestBlock + 1);
        });
    EXPECT_GE(oversized, 2);
}
}  // namespace
