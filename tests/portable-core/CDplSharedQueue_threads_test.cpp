#include "portable-core/CDplSharedQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "support/ThreadsTestSupport.h"

namespace
{
using threads_test::SecondsSince;
using threads_test::WaitUntil;

TEST(CDplSharedQueueBuffer, SizeStaysWithinTheCapacity)
{
    CDplSharedQueueBuffer buffer(64);
    ASSERT_NE(buffer.GetHandle(), nullptr);
    EXPECT_TRUE(buffer.SetBufferSize(64));
    EXPECT_FALSE(buffer.SetBufferSize(65));
    EXPECT_FALSE(buffer.SetBufferSize(-1));
    EXPECT_EQ(buffer.BufferSize(), 64);
    memset(buffer.GetHandle(), 0xab, 64);  // the whole capacity is usable

    CDplSharedQueueBuffer empty(-5);
    EXPECT_EQ(empty.BufferMax(), 0);
}

TEST(CDplSharedQueue, BuffersMoveFirstInFirstOut)
{
    CDplSharedQueue queue;
    // Empty lists give null, at once for a zero wait and after its time for a timed one.
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(queue.GetUsed(0), nullptr);
    EXPECT_EQ(queue.GetFree(0), nullptr);
    EXPECT_LT(SecondsSince(start), 1.0);
    const auto timedStart = std::chrono::steady_clock::now();
    EXPECT_EQ(queue.GetUsed(30), nullptr);
    EXPECT_GE(SecondsSince(timedStart), 0.030);

    CDplSharedQueueBuffer* a = queue.AddBuffer(16);
    CDplSharedQueueBuffer* b = queue.AddBuffer(32);
    CDplSharedQueueBuffer* c = queue.AddBuffer(48);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(queue.Free(), 3);

    EXPECT_EQ(queue.GetFree(0), a);
    EXPECT_EQ(queue.GetFree(0), b);
    EXPECT_EQ(queue.GetFree(0), c);
    EXPECT_EQ(queue.GetFree(0), nullptr);
    EXPECT_EQ(queue.Free(), 0);
    EXPECT_EQ(queue.Size(), 3) << "taken buffers still belong to the queue";

    // The used list's order is the producer and consumer test's.
    EXPECT_TRUE(queue.PutFree(b));
    EXPECT_EQ(queue.GetFree(0), b);
}

TEST(CDplSharedQueue, RefusesBuffersThatWouldBeHandedOutTwice)
{
    CDplSharedQueue queue;
    CDplSharedQueueBuffer* own = queue.AddBuffer(8);
    EXPECT_FALSE(queue.AddBuffer(own)) << "added twice would be deleted twice";
    EXPECT_FALSE(queue.AddBuffer(nullptr));
    EXPECT_EQ(queue.AddBuffer(-1), nullptr);
    EXPECT_EQ(queue.Size(), 1);

    EXPECT_FALSE(queue.PutUsed(own)) << "still in the free list";
    EXPECT_EQ(queue.GetFree(0), own);
    EXPECT_TRUE(queue.PutUsed(own));
    EXPECT_FALSE(queue.PutUsed(own));
    EXPECT_FALSE(queue.PutFree(own));
    EXPECT_EQ(queue.Used(), 1);
    EXPECT_EQ(queue.Free(), 0);

    CDplSharedQueueBuffer foreign(8);
    EXPECT_FALSE(queue.PutFree(&foreign));
    EXPECT_FALSE(queue.PutUsed(&foreign));
    EXPECT_FALSE(queue.PutUsed(nullptr));
}

TEST(CDplSharedQueue, DoForEachWalksUsedBuffersOldestFirstUntilTold)
{
    CDplSharedQueue queue;
    std::vector<CDplSharedQueueBuffer*> order;
    for (int i = 0; i < 4; ++i)
    {
        order.push_back(queue.AddBuffer(4));
    }
    for (CDplSharedQueueBuffer* buffer : order)
    {
        ASSERT_EQ(queue.GetFree(0), buffer);
        ASSERT_TRUE(queue.PutUsed(buffer));
    }
    std::vector<CDplSharedQueueBuffer*> seen;
    queue.DoForEach(
        [](void* context, CDplSharedQueueBuffer* buffer)
        {
            auto* walked = static_cast<std::vector<CDplSharedQueueBuffer*>*>(context);
            walked->push_back(buffer);
            return walked->size() < 3;  // told to stop after the third
        },
        &seen);
    EXPECT_EQ(seen, std::vector<CDplSharedQueueBuffer*>(order.begin(), order.begin() + 3));
    EXPECT_EQ(queue.Used(), 4) << "walking takes nothing";
    queue.DoForEach(nullptr, nullptr);
}

TEST(CDplSharedQueue, ClearDeletesEveryBufferAndEmptiesTheLists)
{
    CDplSharedQueue queue;
    queue.AddBuffer(8);
    CDplSharedQueueBuffer* used = queue.AddBuffer(8);
    queue.AddBuffer(new CDplSharedQueueBuffer(8));
    queue.GetFree(0);
    queue.GetFree(0);  // `used`, taken
    ASSERT_TRUE(queue.PutUsed(used));
    queue.Clear();  // the sanitizers see a leak or a double free here
    EXPECT_EQ(queue.Size(), 0);
    EXPECT_EQ(queue.Used(), 0);
    EXPECT_EQ(queue.Free(), 0);
    EXPECT_NE(queue.AddBuffer(8), nullptr) << "usable after a clear";
    EXPECT_EQ(queue.Size(), 1);
}

TEST(CDplSharedQueueThreads, BareSignalsWakeWaitsThatThenFindNothing)
{
    CDplSharedQueue queue;
    std::atomic<bool> finished{false};
    std::atomic<CDplSharedQueueBuffer*> received{queue.AddBuffer(1)};  // anything but null
    std::thread consumer(
        [&]
        {
            received = queue.GetUsed(-1);
            finished = true;
        });
    // A bare signal wakes the one wait, which then finds nothing: there is no second wait.
    EXPECT_TRUE(WaitUntil(
        [&]
        {
            queue.SignalUsedCondition();
            return finished.load();
        }));
    consumer.join();
    EXPECT_EQ(received.load(), nullptr);

    // The explicit condition waits wake on a signal too; a zero wait times out at once.
    EXPECT_NE(queue.WaitFreeCondition(0), 0);
    std::atomic<int> result{-1};
    std::thread waiter([&] { result = queue.WaitFreeCondition(-1); });
    EXPECT_TRUE(WaitUntil(
        [&]
        {
            queue.SignalFreeCondition();
            return result.load() != -1;
        }));
    waiter.join();
    EXPECT_EQ(result.load(), 0);
}

TEST(CDplSharedQueueThreads, ProducerAndConsumerPassEveryMessageInOrder)
{
    CDplSharedQueue queue;
    for (int i = 0; i < 4; ++i)
    {
        queue.AddBuffer(static_cast<int>(sizeof(int)));
    }
    constexpr int kMessages = 2000;
    std::vector<int> received;
    std::thread consumer(
        [&]
        {
            while (static_cast<int>(received.size()) < kMessages)
            {
                CDplSharedQueueBuffer* buffer = queue.GetUsed(-1);  // waits for what is put meanwhile
                if (buffer == nullptr)
                {
                    continue;  // woken without a buffer: look again
                }
                int value = 0;
                memcpy(&value, buffer->GetHandle(), sizeof(value));
                EXPECT_EQ(buffer->BufferSize(), static_cast<int>(sizeof(value)));
                received.push_back(value);
                queue.PutFree(buffer);
            }
        });
    for (int i = 0; i < kMessages; ++i)
    {
        CDplSharedQueueBuffer* buffer = nullptr;
        while ((buffer = queue.GetFree(100)) == nullptr)
        {
        }
        memcpy(buffer->GetHandle(), &i, sizeof(i));
        buffer->SetBufferSize(sizeof(i));
        ASSERT_TRUE(queue.PutUsed(buffer));
    }
    consumer.join();
    ASSERT_EQ(static_cast<int>(received.size()), kMessages);
    for (int i = 0; i < kMessages; ++i)
    {
        ASSERT_EQ(received[i], i);
    }
    EXPECT_EQ(queue.Free(), 4);
}
}  // namespace
