#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "portable-core/CDplRingBuffer.h"
#include "portable-core/DplBipBuffer.h"
#include "portable-core/OCQueue.h"

namespace
{
// The counting signal: the stream's byte k is byte k % 4 of the 32-bit count k / 4.
unsigned char SignalByte(uint64_t k)
{
    const auto count = static_cast<uint32_t>(k / 4);
    return static_cast<unsigned char>(count >> (8 * (k % 4)));
}

constexpr uint64_t kStreamBytes = 4 * 200000;

// True when `size` bytes read at stream position `at` are the signal's; reports the first that isn't.
bool IsSignal(const unsigned char* bytes, size_t size, uint64_t at)
{
    for (size_t i = 0; i < size; ++i)
    {
        if (bytes[i] != SignalByte(at + i))
        {
            ADD_FAILURE() << "byte " << at + i << " is " << int(bytes[i]);
            return false;
        }
    }
    return true;
}

TEST(RingBufferThreads, BipBufferCarriesACountingSignalIntactAndInOrder)
{
    DplBipBuffer bip;
    ASSERT_TRUE(bip.allocate(7680));
    std::mutex lock;  // as the capture source and renderer sink do: one lock around each call
    auto locked = [&lock](auto call)
    {
        std::lock_guard guard(lock);
        return call();
    };
    std::atomic<bool> failed{false};

    std::thread producer(
        [&]
        {
            uint64_t written = 0;
            uint32_t chunk = 1;
            while (written < kStreamBytes)
            {
                chunk = (chunk * 1103515245u + 12345u);
                const size_t wanted = std::min<uint64_t>(1 + (chunk >> 8) % 3000, kStreamBytes - written);
                size_t reserved = 0;
                auto* block =
                    static_cast<unsigned char*>(locked([&] { return bip.reserve(wanted, reserved); }));
                if (block == nullptr)
                {
                    std::this_thread::yield();
                    continue;
                }
                // The reservation is the writer's alone: fill it outside the lock.
                for (size_t i = 0; i < reserved; ++i)
                {
                    block[i] = SignalByte(written + i);
                }
                locked([&] { bip.commit(reserved); });
                written += reserved;
            }
        });

    uint64_t read = 0;
    while (read < kStreamBytes && !failed.load())
    {
        size_t size = 0;
        const auto* block =
            static_cast<const unsigned char*>(locked([&] { return bip.getContiguousBlock(size); }));
        if (block == nullptr)
        {
            std::this_thread::yield();
            continue;
        }
        failed = !IsSignal(block, size, read);
        locked([&] { bip.decommitBlock(size); });
        read += size;
    }
    producer.join();
    EXPECT_EQ(read, kStreamBytes);
    bip.deallocate();
}

TEST(RingBufferThreads, LockedRingCarriesACountingSignalWithoutOverrun)
{
    CDplRingBuffer ring("stress");
    ASSERT_TRUE(ring.Create(7680 + 13));  // an odd size puts the wrap inside values
    std::atomic<int> overruns{0};

    std::thread producer(
        [&]
        {
            std::vector<unsigned char> chunk(4000);
            uint64_t written = 0;
            uint32_t state = 7;
            while (written < kStreamBytes)
            {
                state = state * 1664525u + 1013904223u;
                // Only this thread writes, so the room seen here can only grow.
                const int room = ring.GetMaxWriteSize();
                const int length = static_cast<int>(
                    std::min<uint64_t>({static_cast<uint64_t>(1 + (state >> 8) % chunk.size()),
                                        static_cast<uint64_t>(room), kStreamBytes - written}));
                if (length <= 0)
                {
                    std::this_thread::yield();
                    continue;
                }
                for (int i = 0; i < length; ++i)
                {
                    chunk[static_cast<size_t>(i)] = SignalByte(written + static_cast<uint64_t>(i));
                }
                bool overrun = false;
                const int stored = ring.Write(chunk.data(), length, &overrun, true);
                if (overrun || stored != length)
                {
                    ++overruns;
                }
                written += static_cast<uint64_t>(stored);
            }
        });

    std::vector<unsigned char> buffer(3000);
    uint64_t read = 0;
    bool intact = true;
    while (read < kStreamBytes && intact)
    {
        const int got = ring.Read(buffer.data(), static_cast<int>(buffer.size()), false);
        if (got == 0)
        {
            std::this_thread::yield();
            continue;
        }
        intact = IsSignal(buffer.data(), static_cast<size_t>(got), read);
        read += static_cast<uint64_t>(got);
    }
    producer.join();
    EXPECT_EQ(overruns.load(), 0);
    EXPECT_EQ(read, kStreamBytes);
}

struct StressRecord
{
    uint32_t producer;
    uint32_t sequence;
    uint64_t check;
    uint64_t padding[2];
};

uint64_t CheckOf(uint32_t producer, uint32_t sequence)
{
    return (static_cast<uint64_t>(producer) << 32 | sequence) * 0x9E3779B97F4A7C15ull;
}

TEST(RingBufferThreads, LockFreeQueueDeliversEveryRecordOnceUntornAcrossTheCounterWrap)
{
    constexpr uint32_t kProducers = 3;
    constexpr uint32_t kConsumers = 3;
    constexpr uint32_t kPerProducer = 40000;
    // Start close to the 32-bit wrap so that the run crosses it.
    OCQueue queue(64, sizeof(StressRecord), OCQueue::DumbCopy, OCQueue::DumbCopyOut, 0xFFFF0000u);
    std::atomic<uint32_t> consumed{0};
    std::vector<std::vector<uint8_t>> seen(kProducers, std::vector<uint8_t>(kPerProducer, 0));
    std::mutex seenLock;
    std::atomic<int> torn{0};
    std::atomic<int> outOfOrder{0};

    std::vector<std::thread> threads;
    for (uint32_t p = 0; p < kProducers; ++p)
    {
        threads.emplace_back(
            [&, p]
            {
                for (uint32_t s = 0; s < kPerProducer;)
                {
                    const StressRecord record{p, s, CheckOf(p, s), {~CheckOf(p, s), CheckOf(p, s) ^ 0xFF}};
                    if (queue.Enqueue(&record))
                    {
                        ++s;
                    }
                    else
                    {
                        std::this_thread::yield();
                    }
                }
            });
    }
    for (uint32_t c = 0; c < kConsumers; ++c)
    {
        threads.emplace_back(
            [&]
            {
                std::vector<int64_t> lastOf(kProducers, -1);
                std::vector<std::pair<uint32_t, uint32_t>> mine;
                while (consumed.load(std::memory_order_relaxed) < kProducers * kPerProducer)
                {
                    StressRecord record{};
                    if (!queue.Dequeue(&record))
                    {
                        std::this_thread::yield();
                        continue;
                    }
                    consumed.fetch_add(1, std::memory_order_relaxed);
                    if (record.producer >= kProducers || record.sequence >= kPerProducer ||
                        record.check != CheckOf(record.producer, record.sequence) ||
                        record.padding[0] != ~record.check || record.padding[1] != (record.check ^ 0xFF))
                    {
                        ++torn;
                        continue;
                    }
                    // One producer's records reach any one consumer in the order they were put.
                    if (static_cast<int64_t>(record.sequence) <= lastOf[record.producer])
                    {
                        ++outOfOrder;
                    }
                    lastOf[record.producer] = record.sequence;
                    mine.emplace_back(record.producer, record.sequence);
                }
                std::lock_guard guard(seenLock);
                for (const auto& [p, s] : mine)
                {
                    ++seen[p][s];
                }
            });
    }
    for (std::thread& t : threads)
    {
        t.join();
    }
    EXPECT_EQ(torn.load(), 0);
    EXPECT_EQ(outOfOrder.load(), 0);
    int missing = 0;
    int doubled = 0;
    for (const auto& perProducer : seen)
    {
        for (uint8_t count : perProducer)
        {
            missing += count == 0;
            doubled += count > 1;
        }
    }
    EXPECT_EQ(missing, 0);
    EXPECT_EQ(doubled, 0);
    EXPECT_EQ(queue.MinLength(), 0);
}
}  // namespace
