// Throughput of the byte rings per 960-frame stereo float block (7680 bytes),
// against a plain copy of the same bytes and boost's lock-free SPSC queue,
// and the hand-off latency of OCQueue between two threads.
#include <benchmark/benchmark.h>

#include <atomic>
#include <boost/lockfree/spsc_queue.hpp>
#include <cstring>
#include <mutex>
#include <thread>

#include "portable-core/CDplRingBuffer.h"
#include "portable-core/DplAlignedMemory.h"
#include "portable-core/DplBipBuffer.h"
#include "portable-core/OCQueue.h"

namespace
{
constexpr size_t kBlock = 960 * 2 * sizeof(float);
constexpr size_t kRingBlocks = 4;

struct AlignedBlock
{
    AlignedBlock() : data(static_cast<unsigned char*>(DplAlignedAlloc(kBlock))) { memset(data, 1, kBlock); }
    ~AlignedBlock() { DplAlignedFree(data); }
    AlignedBlock(const AlignedBlock&) = delete;
    AlignedBlock& operator=(const AlignedBlock&) = delete;
    unsigned char* data;
};

void SetBlockCounters(benchmark::State& state, int copiesPerBlock)
{
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kBlock));
    state.counters["copies/block"] = copiesPerBlock;
}

// The physical floor: one copy of a block between aligned buffers.
void BM_Memcpy(benchmark::State& state)
{
    AlignedBlock in;
    AlignedBlock out;
    for (auto _ : state)
    {
        memcpy(out.data, in.data, kBlock);
        benchmark::ClobberMemory();
    }
    SetBlockCounters(state, 1);
}
BENCHMARK(BM_Memcpy);

// A ring moves a block with two copies, in and out: this is its floor.
void BM_MemcpyTwice(benchmark::State& state)
{
    AlignedBlock in;
    AlignedBlock middle;
    AlignedBlock out;
    for (auto _ : state)
    {
        memcpy(middle.data, in.data, kBlock);
        benchmark::ClobberMemory();
        memcpy(out.data, middle.data, kBlock);
        benchmark::ClobberMemory();
    }
    SetBlockCounters(state, 2);
}
BENCHMARK(BM_MemcpyTwice);

void BM_BipBuffer(benchmark::State& state)
{
    DplBipBuffer bip;
    bip.allocate(kRingBlocks * kBlock + 64);  // not a whole number of blocks, so regions move around
    AlignedBlock in;
    AlignedBlock out;
    std::mutex lock;  // its users hold one around each call
    for (auto _ : state)
    {
        size_t reserved = 0;
        void* target = nullptr;
        {
            std::lock_guard guard(lock);
            target = bip.reserve(kBlock, reserved);
        }
        memcpy(target, in.data, reserved);
        size_t size = 0;
        {
            std::lock_guard guard(lock);
            bip.commit(reserved);
        }
        {
            std::lock_guard guard(lock);
            void* source = bip.getContiguousBlock(size);
            memcpy(out.data, source, size);
            bip.decommitBlock(size);
        }
        benchmark::ClobberMemory();
    }
    SetBlockCounters(state, 2);
    bip.deallocate();
}
BENCHMARK(BM_BipBuffer);

void BM_RingBuffer(benchmark::State& state)
{
    CDplRingBuffer ring("bench");
    ring.Create(static_cast<int>(kRingBlocks * kBlock + 64));
    AlignedBlock in;
    AlignedBlock out;
    bool overrun = false;
    for (auto _ : state)
    {
        ring.Write(in.data, static_cast<int>(kBlock), &overrun, true);
        ring.Read(out.data, static_cast<int>(kBlock), false);
        benchmark::ClobberMemory();
    }
    SetBlockCounters(state, 2);
}
BENCHMARK(BM_RingBuffer);

void BM_BoostSpscQueue(benchmark::State& state)
{
    boost::lockfree::spsc_queue<unsigned char> queue(kRingBlocks * kBlock + 64);
    AlignedBlock in;
    AlignedBlock out;
    for (auto _ : state)
    {
        queue.push(in.data, kBlock);
        queue.pop(out.data, kBlock);
        benchmark::ClobberMemory();
    }
    SetBlockCounters(state, 2);
}
BENCHMARK(BM_BoostSpscQueue);

// The same hand-off between a producer and a consumer thread.
struct TwoThreadRing
{
    DplBipBuffer bip;
    std::mutex bipLock;
    CDplRingBuffer ring{"bench2"};
    boost::lockfree::spsc_queue<unsigned char> spsc{kRingBlocks * kBlock + 64};
    TwoThreadRing()
    {
        bip.allocate(kRingBlocks * kBlock + 64);
        ring.Create(static_cast<int>(kRingBlocks * kBlock + 64));
    }
    ~TwoThreadRing() { bip.deallocate(); }
};
TwoThreadRing* gShared = nullptr;

bool PutBlock(const unsigned char* data)
{
    std::lock_guard guard(gShared->bipLock);
    size_t size = 0;
    void* target = gShared->bip.reserve(kBlock, size);
    if (target == nullptr || size < kBlock)
    {
        gShared->bip.commit(0);
        return false;
    }
    memcpy(target, data, kBlock);
    gShared->bip.commit(kBlock);
    return true;
}

bool TakeBlock(unsigned char* data)
{
    std::lock_guard guard(gShared->bipLock);
    size_t size = 0;
    void* source = gShared->bip.getContiguousBlock(size);
    if (source == nullptr || size < kBlock)
    {
        return false;
    }
    memcpy(data, source, kBlock);
    gShared->bip.decommitBlock(kBlock);
    return true;
}

void BM_BipBufferTwoThreads(benchmark::State& state)
{
    if (state.thread_index() == 0)
    {
        gShared = new TwoThreadRing();
    }
    AlignedBlock block;
    const bool producer = state.thread_index() == 0;
    for (auto _ : state)
    {
        while (!(producer ? PutBlock(block.data) : TakeBlock(block.data)))
        {
            std::this_thread::yield();
        }
    }
    if (producer)
    {
        state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kBlock));
    }
    if (state.thread_index() == 0)
    {
        delete gShared;
        gShared = nullptr;
    }
}

void BM_RingBufferTwoThreads(benchmark::State& state)
{
    if (state.thread_index() == 0)
    {
        gShared = new TwoThreadRing();
    }
    AlignedBlock block;
    const bool producer = state.thread_index() == 0;
    bool overrun = false;
    for (auto _ : state)
    {
        if (producer)
        {
            while (gShared->ring.GetMaxWriteSize() < static_cast<int>(kBlock))
            {
                std::this_thread::yield();
            }
            gShared->ring.Write(block.data, static_cast<int>(kBlock), &overrun, false);
        }
        else
        {
            while (gShared->ring.GetFill() < static_cast<int>(kBlock))
            {
                std::this_thread::yield();
            }
            gShared->ring.Read(block.data, static_cast<int>(kBlock), false);
        }
    }
    if (producer)
    {
        state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kBlock));
    }
    if (state.thread_index() == 0)
    {
        delete gShared;
        gShared = nullptr;
    }
}

void BM_BoostSpscQueueTwoThreads(benchmark::State& state)
{
    if (state.thread_index() == 0)
    {
        gShared = new TwoThreadRing();
    }
    AlignedBlock block;
    const bool producer = state.thread_index() == 0;
    for (auto _ : state)
    {
        if (producer)
        {
            while (gShared->spsc.write_available() < kBlock)
            {
                std::this_thread::yield();
            }
            gShared->spsc.push(block.data, kBlock);
        }
        else
        {
            while (gShared->spsc.read_available() < kBlock)
            {
                std::this_thread::yield();
            }
            gShared->spsc.pop(block.data, kBlock);
        }
    }
    if (producer)
    {
        state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kBlock));
    }
    if (state.thread_index() == 0)
    {
        delete gShared;
        gShared = nullptr;
    }
}
BENCHMARK(BM_BipBufferTwoThreads)->Threads(2)->UseRealTime();
BENCHMARK(BM_RingBufferTwoThreads)->Threads(2)->UseRealTime();
BENCHMARK(BM_BoostSpscQueueTwoThreads)->Threads(2)->UseRealTime();

// One record to another thread and one back: two hand-offs per iteration.
void BM_OCQueuePingPong(benchmark::State& state)
{
    OCQueue there(64, 64);
    OCQueue back(64, 64);
    std::atomic<bool> stop{false};
    std::thread echo(
        [&]
        {
            unsigned char record[64];
            while (!stop.load(std::memory_order_relaxed))
            {
                if (!there.Dequeue(record))
                {
                    std::this_thread::yield();
                }
                else
                {
                    while (!back.Enqueue(record))
                    {
                        std::this_thread::yield();
                    }
                }
            }
        });
    unsigned char record[64] = {};
    for (auto _ : state)
    {
        while (!there.Enqueue(record))
        {
            std::this_thread::yield();
        }
        for (int spins = 0; !back.Dequeue(record); ++spins)
        {
            if (spins > 64)
            {
                std::this_thread::yield();
            }
        }
    }
    stop = true;
    echo.join();
    state.counters["handoffs/iteration"] = 2;
}
BENCHMARK(BM_OCQueuePingPong)->UseRealTime();

// Many records one way: the cost per record when the consumer keeps up.
void BM_OCQueueStream(benchmark::State& state)
{
    OCQueue queue(1024, 64);
    std::atomic<bool> stop{false};
    std::atomic<int64_t> received{0};
    std::thread consumer(
        [&]
        {
            unsigned char record[64];
            int64_t count = 0;
            while (!stop.load(std::memory_order_relaxed))
            {
                if (queue.Dequeue(record))
                {
                    ++count;
                }
                else
                {
                    std::this_thread::yield();
                }
            }
            while (queue.Dequeue(record))
            {
                ++count;
            }
            received = count;
        });
    unsigned char record[64] = {};
    for (auto _ : state)
    {
        while (!queue.Enqueue(record))
        {
            std::this_thread::yield();
        }
    }
    stop = true;
    consumer.join();
    state.SetItemsProcessed(received.load());
}
BENCHMARK(BM_OCQueueStream)->UseRealTime();
}  // namespace
