#include "engine/media/DRAVMemoryPoolRAM.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "engine/media/DRAVAudioBuffer.h"
#include "engine/media/DRAVBufferRAM.h"

namespace
{
// Counts the pool's calls to the heap, and can make a reallocation fail.
class CountingPool : public DRAVMemoryPoolRAM
{
public:
    CountingPool(int32_t maxItems) : DRAVMemoryPoolRAM("TEST POOL", maxItems, 64) {}

    int allocs = 0;
    int reallocs = 0;
    int frees = 0;
    bool failRealloc = false;

protected:
    uint8_t* DoAlloc(const int64_t& size) override
    {
        ++allocs;
        return DRAVMemoryPoolRAM::DoAlloc(size);
    }
    uint8_t* DoRealloc(uint8_t* memory, const int64_t& size) override
    {
        ++reallocs;
        return failRealloc ? nullptr : DRAVMemoryPoolRAM::DoRealloc(memory, size);
    }
    void DoFree(uint8_t* memory) override
    {
        ++frees;
        DRAVMemoryPoolRAM::DoFree(memory);
    }
};

bool IsAligned(const void* p)
{
    return reinterpret_cast<uintptr_t>(p) % kDRAVMemoryAlignment == 0;
}

// Installs a pool for one test and puts the former one back.
class SharedPoolScope
{
public:
    explicit SharedPoolScope(std::shared_ptr<DRAVMemoryPoolRAM> pool)
        : former_(DRAVMemoryPoolRAM::InstallShared(std::move(pool)))
    {
    }
    ~SharedPoolScope() { DRAVMemoryPoolRAM::InstallShared(former_); }

private:
    std::shared_ptr<DRAVMemoryPoolRAM> former_;
};

TEST(DRAVMemoryPool, FreeItemIsReusedBySimilarSizesButNotBySmallOnes)
{
    CountingPool pool(10);
    uint8_t* a = pool.GetBuffer("a", 20000, false);
    ASSERT_NE(a, nullptr);
    pool.FreeBuffer(a);
    EXPECT_EQ(pool.GetNumItemsInUse(), 0);
    EXPECT_EQ(pool.GetBuffer("b", 15000, false), a);
    EXPECT_EQ(pool.allocs, 1);
    uint8_t* small = pool.GetBuffer("small", 100, false);
    ASSERT_NE(small, nullptr);
    EXPECT_NE(small, a);
    EXPECT_EQ(pool.GetNumItems(), 2);
    EXPECT_EQ(pool.reallocs, 0);
    pool.FreeBuffer(small);
    pool.FreeBuffer(a);
}

TEST(DRAVMemoryPool, SmallerFreeItemGrowsAlignedAndKeepsItsContentOrStaysWholeOnFailure)
{
    CountingPool pool(10);
    uint8_t* a = pool.GetBuffer("a", 20000, false);
    memset(a, 0x5a, 20000);
    pool.FreeBuffer(a);
    pool.failRealloc = true;
    EXPECT_EQ(pool.GetBuffer("b", 2000000, false), nullptr);
    EXPECT_EQ(pool.GetNumItemsInUse(), 0);
    // The old block is still whole and serves a request that fits.
    EXPECT_EQ(pool.GetBuffer("c", 20000, false), a);
    pool.FreeBuffer(a);

    pool.failRealloc = false;
    uint8_t* grown = pool.GetBuffer("b", 2000000, false);
    ASSERT_NE(grown, nullptr);
    EXPECT_EQ(pool.reallocs, 2);
    EXPECT_EQ(pool.GetNumItems(), 1);
    EXPECT_TRUE(IsAligned(grown));
    EXPECT_EQ(grown[0], 0x5a);
    EXPECT_EQ(grown[19999], 0x5a);
    EXPECT_EQ(pool.GetTotalSizeMB(), 1);
    memset(grown, 0, 2000000);  // the whole size is usable
    pool.FreeBuffer(grown);
}

TEST(DRAVMemoryPool, FullPoolAllocatesOutsideOnlyWhenAllowed)
{
    CountingPool pool(3);
    std::vector<uint8_t*> held;
    for (int i = 0; i < 3; ++i)
    {
        held.push_back(pool.GetBuffer("held", 4096, false));
        ASSERT_NE(held.back(), nullptr);
    }
    EXPECT_EQ(pool.GetBuffer("refused", 4096, false), nullptr);
    uint8_t* outside = pool.GetBuffer("outside", 4096, true);
    ASSERT_NE(outside, nullptr);
    EXPECT_TRUE(IsAligned(outside));
    EXPECT_EQ(pool.GetNumItems(), 3);
    EXPECT_EQ(pool.GetNumOutsideAllocations(), 1);

    const int freesBefore = pool.frees;
    pool.FreeBuffer(outside);
    EXPECT_EQ(pool.frees, freesBefore + 1) << "memory outside the pool goes back to the heap";
    for (uint8_t* p : held)
        pool.FreeBuffer(p);
    EXPECT_EQ(pool.frees, freesBefore + 1) << "pool items are kept for reuse";
    EXPECT_EQ(pool.GetNumItemsInUse(), 0);
}

TEST(DRAVMemoryPool, PoolWithoutItemsIsAPlainAllocatorAndForeignMemoryGoesToTheHeap)
{
    CountingPool pool(0);
    EXPECT_EQ(pool.GetBuffer("x", 100, false), nullptr);
    uint8_t* p = pool.GetBuffer("x", 100, true);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(pool.GetNumItems(), 0);
    pool.FreeBuffer(p);
    EXPECT_EQ(pool.frees, 1);
    pool.FreeBuffer(nullptr);
    EXPECT_EQ(pool.frees, 1);
    pool.FreeBuffer(DRAVMemoryPoolRAM::AllocateAligned(256));
    EXPECT_EQ(pool.frees, 2);
    EXPECT_EQ(pool.GetBuffer("neg", -1, true), nullptr);
}

TEST(DRAVMemoryPool, EveryBlockIsAlignedWhateverItsSize)
{
    CountingPool pool(64);
    std::vector<uint8_t*> held;
    for (int64_t size : {0LL, 1LL, 7LL, 63LL, 64LL, 65LL, 3840LL, 7681LL, 0xFFFFFLL, 0x100001LL})
    {
        uint8_t* p = pool.GetBuffer("align", size, false);
        ASSERT_NE(p, nullptr) << size;
        EXPECT_TRUE(IsAligned(p)) << size;
        held.push_back(p);
    }
    for (uint8_t* p : held)
        pool.FreeBuffer(p);
}

TEST(DRAVMemoryPool, ClearDetachesItemsInUseSoTheyAreFreedOnce)
{
    CountingPool pool(4);
    uint8_t* inUse = pool.GetBuffer("in use", 1000, false);
    uint8_t* idle = pool.GetBuffer("idle", 1000, false);
    pool.FreeBuffer(idle);
    pool.Clear();
    EXPECT_EQ(pool.frees, 1) << "only the free item goes";
    EXPECT_EQ(pool.GetNumItems(), 0);
    inUse[999] = 1;  // still valid for its holder
    pool.FreeBuffer(inUse);
    EXPECT_EQ(pool.frees, 2);
}

TEST(DRAVBufferRAM, TakesItsBlockFromTheSharedPoolAndGivesItBack)
{
    auto pool = std::make_shared<CountingPool>(8);
    SharedPoolScope scope(pool);
    uint8_t* first = nullptr;
    {
        DRAVBufferRAM buffer("frame", 3840);
        ASSERT_TRUE(buffer.IsValid());
        first = buffer.GetData();
        EXPECT_EQ(pool->GetNumItemsInUse(), 1);
    }
    EXPECT_EQ(pool->GetNumItemsInUse(), 0);
    DRAVBufferRAM again("frame", 3840);
    EXPECT_EQ(again.GetData(), first);
    EXPECT_EQ(pool->allocs, 1);
}

TEST(DRAVBufferRAM, FillResetAndSizeLimits)
{
    DRAVBufferRAM buffer("heap", 16, nullptr);
    ASSERT_TRUE(buffer.IsValid());
    const uint8_t bytes[20] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20};
    ASSERT_TRUE(buffer.FillBuffer(bytes, 10).Succeeded());
    EXPECT_EQ(buffer.GetSizeCurrent(), 10);
    EXPECT_FALSE(buffer.FillBuffer(bytes, 20).Succeeded());
    EXPECT_EQ(buffer.GetSizeCurrent(), 10) << "an oversized fill changes nothing";
    EXPECT_EQ(buffer.GetData()[9], 10);
    EXPECT_FALSE(buffer.SetSizeCurrent(17).Succeeded());
    EXPECT_FALSE(buffer.SetSizeCurrent(-1).Succeeded());
    buffer.ResetBuffer();
    for (int i = 0; i < 16; ++i)
        ASSERT_EQ(buffer.GetData()[i], 0);
}

TEST(DRAVBufferRAM, FrameOutlivesThePoolOwner)
{
    auto pool = std::make_shared<CountingPool>(8);
    std::weak_ptr<CountingPool> watch = pool;
    std::shared_ptr<DRAVAudioBuffer> frame;
    {
        SharedPoolScope scope(pool);
        frame = DRAVAudioBuffer::GetAudioBuffer("survivor", 3840, kDefaultAudioFormatFloat, nullptr, 0);
        ASSERT_TRUE(frame);
        // The owner shuts down as the manager does: clear, then let go.
        pool->Clear();
        pool.reset();
    }
    ASSERT_FALSE(watch.expired()) << "the frame keeps its pool";
    frame->GetStorage()->ResetBuffer();
    EXPECT_EQ(frame->GetStorage()->GetData()[3839], 0);
    frame.reset();
    EXPECT_TRUE(watch.expired());
}

TEST(DRAVBufferRAM, FramesWithoutAPoolComeFromTheHeap)
{
    SharedPoolScope scope(nullptr);
    auto frame = DRAVAudioBuffer::GetAudioBuffer("heap", 3840, kDefaultAudioFormatFloat, nullptr, 0);
    ASSERT_TRUE(frame);
    EXPECT_TRUE(IsAligned(frame->GetStorage()->GetData()));
}
}  // namespace
