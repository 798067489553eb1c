#include "engine/units/DRAVThreadedBufferQueue.h"

#include <gtest/gtest.h>
#include <time.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

namespace
{
using Queue = DRAVThreadedBufferQueue;
using namespace std::chrono_literals;

std::shared_ptr<DRAVMediaBuffer> Frame(int64_t timestamp, int64_t duration = 10000)
{
    auto frame = DRAVAudioBuffer::GetAudioBuffer("test", 64, kDefaultAudioFormatFloat, nullptr, 0);
    frame->SetTimestamp(DRAVTimestamp(timestamp));
    frame->SetDuration(DRAVDuration(duration));
    return frame;
}

// A frame that is no audio frame.
class DataBuffer : public DRAVMediaBuffer
{
public:
    DataBuffer() : DRAVMediaBuffer("data", nullptr) {}
    DRAVMediaType GetMediaType() const override { return kDRAVMediaTypeData; }
};

// Collects what a queue delivers, with the thread and time of delivery.
class Receiver : public DRAVMediaBufferDelegate
{
public:
    struct Delivery
    {
        int64_t timestamp;
        std::thread::id thread;
        int64_t hostTime;
    };

    DRAVResult MediaBufferReceived(std::shared_ptr<DRAVObject>,
                                   std::shared_ptr<DRAVMediaBuffer> buffer) override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        deliveries_.push_back(
            Delivery{buffer->GetTimestamp().Get(), std::this_thread::get_id(), DRAVGetHostTime().Get()});
        changed_.notify_all();
        return DRAVResult();
    }
    std::string DRAVMediaBufferDelegateFriendlyName() override { return "receiver"; }

    // Waits (generously) until `count` frames arrived.
    bool WaitFor(size_t count, std::chrono::milliseconds limit = 20000ms)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, limit, [&] { return deliveries_.size() >= count; });
    }
    std::vector<Delivery> Deliveries()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return deliveries_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Delivery> deliveries_;
};

// A pull queue, ready to take frames.
class PullQueue : public Queue
{
public:
    PullQueue(const char* name, int maxItems, int maxSize = 0, uint32_t mode = kModePull)
        : Queue(name, mode, maxItems, maxSize)
    {
        InitWithDelegate(nullptr);
    }
};

std::vector<int64_t> HeldTimestamps(Queue& queue)
{
    std::vector<int64_t> held;
    std::shared_ptr<DRAVMediaBuffer> frame;
    while (queue.PullBuffer(DRAVTimestamp(-1), &frame, true).Succeeded())
        held.push_back(frame->GetTimestamp().Get());
    return held;
}

TEST(DRAVThreadedBufferQueueModes, PassthroughDeliversOnTheCallersThreadAndHoldsNothing)
{
    auto receiver = std::make_shared<Receiver>();
    Queue queue("pass", Queue::kModePassthrough, 120, 0x40000000);
    ASSERT_TRUE(queue.InitWithDelegate(receiver).Succeeded());
    ASSERT_TRUE(queue.AddBuffer(Frame(7)).Succeeded());
    const auto deliveries = receiver->Deliveries();
    ASSERT_EQ(deliveries.size(), 1u) << "delivered before AddBuffer returned";
    EXPECT_EQ(deliveries[0].thread, std::this_thread::get_id());
    EXPECT_EQ(deliveries[0].timestamp, 7);
    EXPECT_EQ(queue.GetCurrentNumItems(), 0);
    EXPECT_EQ(queue.AddBuffer(nullptr).GetCode(), kDRAVResultErrNullPointer);
    // A delegate that has gone loses frames quietly.
    receiver.reset();
    EXPECT_TRUE(queue.AddBuffer(Frame(1)).Succeeded());
}

TEST(DRAVThreadedBufferQueueModes, LambdaReceivesItsContext)
{
    std::atomic<int> count{0};
    Queue queue("lambda", Queue::kModeThreaded, 10, 0);
    queue.InitWithLambda(
        [](void* context, std::shared_ptr<DRAVMediaBuffer> frame)
        {
            if (frame)
                static_cast<std::atomic<int>*>(context)->fetch_add(1);
        },
        &count);
    for (int i = 0; i < 5; ++i)
        queue.AddBuffer(Frame(i));
    for (int i = 0; i < 20000 && count.load() < 5; ++i)
        std::this_thread::sleep_for(1ms);
    EXPECT_EQ(count.load(), 5);
    queue.Deinit();
}

TEST(DRAVThreadedBufferQueueOverflow, FullQueueDropsOneFrameAndKeepsTheNewest)
{
    PullQueue queue("pull", 30);
    for (int64_t i = 0; i < 31; ++i)
        ASSERT_TRUE(queue.AddBuffer(Frame(i)).Succeeded());
    EXPECT_TRUE(queue.IsQueueFull());
    EXPECT_EQ(queue.GetNumDroppedFrames(), 1);
    const auto held = HeldTimestamps(queue);
    ASSERT_EQ(held.size(), 30u);
    EXPECT_EQ(held.back(), 30) << "the newest is last";
    for (size_t i = 1; i < held.size(); ++i)
        EXPECT_LT(held[i - 1], held[i]) << "the order of the survivors stays";

    // A lowered maximum trims on the next add.
    for (int64_t i = 0; i < 6; ++i)
        queue.AddBuffer(Frame(i));
    queue.SetMaxNumItems(3);
    queue.AddBuffer(Frame(6));
    const auto trimmed = HeldTimestamps(queue);
    ASSERT_EQ(trimmed.size(), 3u);
    EXPECT_EQ(trimmed.back(), 6);
}

TEST(DRAVThreadedBufferQueueOverflow, ThreadedQueueHeldByADelayOverflowsTheSameWay)
{
    auto receiver = std::make_shared<Receiver>();
    Queue queue("held", Queue::kModeThreaded, 30, 0);
    queue.SetDelayMsec(600000);
    queue.InitWithDelegate(receiver);
    const int64_t now = DRAVGetHostTime().Get();
    for (int64_t i = 0; i < 31; ++i)
        queue.AddBuffer(Frame(now + i));
    EXPECT_EQ(queue.GetCurrentNumItems(), 30);
    EXPECT_EQ(queue.GetNumDroppedFrames(), 1);
    EXPECT_TRUE(receiver->Deliveries().empty());
    queue.Deinit();
    EXPECT_EQ(queue.GetCurrentNumItems(), 0);
}

TEST(DRAVThreadedBufferQueueOverflow, MaximumOfZeroHoldsNothingAndNeverDividesByZero)
{
    PullQueue pull("zero", 0);
    EXPECT_TRUE(pull.AddBuffer(Frame(1)).Succeeded());
    EXPECT_EQ(pull.GetCurrentNumItems(), 0);
    EXPECT_EQ(pull.GetNumDroppedFrames(), 1);

    auto receiver = std::make_shared<Receiver>();
    Queue threaded("zero-t", Queue::kModeThreaded, 0, 0);
    threaded.InitWithDelegate(receiver);
    EXPECT_TRUE(threaded.AddBuffer(Frame(1)).Succeeded());
    threaded.Deinit();

    PullQueue blocking("zero-b", 0, 0, Queue::kModePull | Queue::kModeBlocking);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(blocking.AddBuffer(Frame(1)).GetCode(), kDRAVResultErrInsufficientMemory);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 4s) << "no wait for room that cannot come";

    Queue negative("neg", Queue::kModePull, -5, 0);
    EXPECT_EQ(negative.GetMaxNumItems(), 0);
}

TEST(DRAVThreadedBufferQueueBlocking, ProducerWaitsForTheConsumerAndGivesUpAfterFiveSeconds)
{
    PullQueue queue("wait", 1, 0, Queue::kModePull | Queue::kModeBlocking);
    ASSERT_TRUE(queue.AddBuffer(Frame(0)).Succeeded());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(queue.AddBuffer(Frame(1)).GetCode(), kDRAVResultErrInsufficientMemory);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 4900ms);
    EXPECT_EQ(HeldTimestamps(queue), std::vector<int64_t>{0}) << "the refused frame is not stored";

    queue.AddBuffer(Frame(1));
    auto producer = std::async(std::launch::async, [&] { return queue.AddBuffer(Frame(2)).GetCode(); });
    EXPECT_EQ(producer.wait_for(50ms), std::future_status::timeout) << "the producer waits for room";
    std::shared_ptr<DRAVMediaBuffer> taken;
    ASSERT_TRUE(queue.PullBuffer(DRAVTimestamp(-1), &taken, true).Succeeded());
    EXPECT_EQ(producer.get(), kDRAVResultOk);
    EXPECT_EQ(HeldTimestamps(queue), std::vector<int64_t>{2});
}

TEST(DRAVThreadedBufferQueueBlocking, StopReleasesAWaitingProducer)
{
    auto receiver = std::make_shared<Receiver>();
    Queue queue("stop", Queue::kModeThreaded | Queue::kModeBlocking, 1, 0);
    queue.SetDelayMsec(600000);  // the worker takes nothing
    queue.InitWithDelegate(receiver);
    queue.AddBuffer(Frame(DRAVGetHostTime().Get()));
    const auto start = std::chrono::steady_clock::now();
    auto producer = std::async(std::launch::async, [&] { return queue.AddBuffer(Frame(1)).GetCode(); });
    std::this_thread::sleep_for(20ms);
    queue.Stop();
    EXPECT_EQ(producer.get(), kDRAVResultErrNotInitialized);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 4s);
    EXPECT_EQ(queue.AddBuffer(Frame(2)).GetCode(), kDRAVResultErrNotInitialized) << "a stopped queue refuses";
    queue.Deinit();
    EXPECT_TRUE(receiver->Deliveries().empty());
}

TEST(DRAVThreadedBufferQueuePull, PullRules)
{
    PullQueue queue("pull", 10);
    std::shared_ptr<DRAVMediaBuffer> out;
    EXPECT_EQ(queue.PullBuffer(DRAVTimestamp(0), nullptr, true).GetCode(), kDRAVResultErrNullPointer);
    EXPECT_EQ(queue.PullBuffer(DRAVTimestamp(0), &out, true).GetCode(), kDRAVResultErrNoData);
    queue.AddBuffer(Frame(1000));
    queue.AddBuffer(Frame(2000));
    EXPECT_EQ(queue.PullBuffer(DRAVTimestamp(999), &out, true).GetCode(), kDRAVResultErrNoData)
        << "not yet available";
    ASSERT_TRUE(queue.PullBuffer(DRAVTimestamp(1000), &out, false).Succeeded());
    EXPECT_EQ(out->GetTimestamp().Get(), 1000);
    EXPECT_EQ(queue.GetCurrentNumItems(), 2) << "remove=false leaves the queue as it was";
    ASSERT_TRUE(queue.PullBuffer(DRAVTimestamp(-1), &out, true).Succeeded()) << "negative time: front frame";
    EXPECT_EQ(out->GetTimestamp().Get(), 1000);
    EXPECT_EQ(queue.GetCurrentNumItems(), 1);
    EXPECT_EQ(queue
                  .PullAudioBuffer(DRAVTimestamp(0), static_cast<std::shared_ptr<DRAVAudioBuffer>*>(nullptr),
                                   int64_t{480})
                  .GetCode(),
              kDRAVResultErrNotImplemented);
}

TEST(DRAVThreadedBufferQueuePull, AudioPullNeedsTheFrontFramesDurationAndKind)
{
    PullQueue queue("audio", 10);
    std::shared_ptr<DRAVAudioBuffer> audio;
    EXPECT_EQ(queue.PullAudioBuffer(DRAVTimestamp(-1), &audio, DRAVDuration(10000)).GetCode(),
              kDRAVResultErrNoData);
    auto data = std::make_shared<DataBuffer>();
    data->SetDuration(DRAVDuration(10000));
    queue.AddBuffer(data);
    queue.AddBuffer(Frame(5, 20000));
    EXPECT_EQ(queue.PullAudioBuffer(DRAVTimestamp(-1), &audio, DRAVDuration(10000)).GetCode(),
              kDRAVResultErrInvalidCast);
    EXPECT_EQ(queue.GetCurrentNumItems(), 2) << "a frame of another kind is not lost";
    std::shared_ptr<DRAVMediaBuffer> skip;
    queue.PullBuffer(DRAVTimestamp(-1), &skip, true);
    EXPECT_EQ(queue.PullAudioBuffer(DRAVTimestamp(-1), &audio, DRAVDuration(10000)).GetCode(),
              kDRAVResultErrInsufficientMemory);
    ASSERT_TRUE(queue.PullAudioBuffer(DRAVTimestamp(-1), &audio, DRAVDuration(20000)).Succeeded());
    EXPECT_EQ(audio->GetTimestamp().Get(), 5);
}

TEST(DRAVThreadedBufferQueuePull, FlushKeepsTheNewestWhenPreserving)
{
    PullQueue queue("flush", 10);
    EXPECT_TRUE(queue.Flush().Succeeded());
    for (int64_t i = 0; i < 4; ++i)
        queue.AddBuffer(Frame(i));
    queue.SetPreserveBuffer(true);
    queue.Flush();
    EXPECT_EQ(HeldTimestamps(queue), std::vector<int64_t>{3});
    queue.SetPreserveBuffer(false);
    queue.AddBuffer(Frame(4));
    queue.Flush();
    EXPECT_EQ(queue.GetCurrentNumItems(), 0);
}

TEST(DRAVThreadedBufferQueuePull, DropBuffersBefore)
{
    PullQueue queue("drop", 10);
    EXPECT_EQ(queue.DropBuffersBefore(DRAVTimestamp(100)).GetCode(), kDRAVResultOkNoDataChanged);
    for (int64_t i = 0; i < 5; ++i)
        queue.AddBuffer(Frame(i * 10000, 10000));
    EXPECT_EQ(queue.DropBuffersBefore(DRAVTimestamp(5000)).GetCode(), kDRAVResultOkNoDataChanged)
        << "the front frame is not over yet";
    EXPECT_EQ(queue.DropBuffersBefore(DRAVTimestamp(25000)).GetCode(), kDRAVResultOk);
    EXPECT_EQ(queue.GetNumDroppedFrames(), 2);
    EXPECT_EQ(queue.GetAvailableItemsAt(DRAVTimestamp(30000)), 2);

    queue.SetPreserveBuffer(true);
    EXPECT_EQ(queue.DropBuffersBefore(DRAVTimestamp(1000000)).GetCode(), kDRAVResultOk);
    const auto held = HeldTimestamps(queue);
    EXPECT_EQ(held, std::vector<int64_t>{1000000}) << "the last frame stays, stamped with the time asked";

    queue.AddBuffer(Frame(0, 10000));
    EXPECT_EQ(queue.DropBuffersBefore(DRAVTimestamp(500000)).GetCode(), kDRAVResultOkNoDataChanged);
    EXPECT_EQ(HeldTimestamps(queue), std::vector<int64_t>{500000});

    queue.SetPreserveBuffer(false);
    queue.AddBuffer(Frame(0, 10000));
    EXPECT_EQ(queue.DropBuffersBefore(DRAVTimestamp(500000)).GetCode(), kDRAVResultOk);
    EXPECT_EQ(queue.GetCurrentNumItems(), 0);
    EXPECT_EQ(queue.DropBuffersBetween(DRAVTimestamp(0), DRAVTimestamp(1)).GetCode(),
              kDRAVResultErrNotImplemented);
}

TEST(DRAVThreadedBufferQueuePull, AvailabilityAndStatistics)
{
    PullQueue queue("avail", 10, 100);
    EXPECT_EQ(queue.GetAvailableDurationAt(DRAVTimestamp(0)).Get(), -1);
    EXPECT_EQ(queue.GetAvailableItemsAt(DRAVTimestamp(0)), 0);
    queue.AddBuffer(Frame(1000, 10000));
    queue.AddBuffer(Frame(11000, 10000));
    queue.AddBuffer(Frame(21000, 10000));
    EXPECT_EQ(queue.GetAvailableDurationAt(DRAVTimestamp(999)).Get(), 0);
    EXPECT_EQ(queue.GetAvailableItemsAt(DRAVTimestamp(11000)), 2);
    EXPECT_EQ(queue.GetAvailableDurationAt(DRAVTimestamp(11000)).Get(), 20000);

    EXPECT_EQ(queue.GetStatistics(nullptr).GetCode(), kDRAVResultErrNullPointer);
    DRAVQueueStatistics statistics;
    ASSERT_TRUE(queue.GetStatistics(&statistics).Succeeded());
    EXPECT_EQ((std::vector<int64_t>{statistics.buffers, statistics.bytes, statistics.maxBuffers,
                                    statistics.firstTimestamp.Get(), statistics.lastTimestamp.Get()}),
              (std::vector<int64_t>{3, 3 * 64, 10, 1000, 21000}));

    EXPECT_EQ(queue.SetMaxTotalSizeMB(50).GetCode(), kDRAVResultOkNoDataChanged);
    EXPECT_EQ(queue.GetMaxTotalSizeMB(), 100);
    queue.SetMaxTotalSizeMB(200);
    EXPECT_EQ(queue.GetMaxTotalSizeMB(), 200);
}

TEST(DRAVThreadedBufferQueueDelay, FramesLeaveWhenTheirDelayHasPassed)
{
    auto receiver = std::make_shared<Receiver>();
    Queue queue("delay", Queue::kModeThreaded, 30, 0);
    queue.SetDelayMsec(100);
    queue.InitWithDelegate(receiver);
    const int64_t start = DRAVGetHostTime().Get();
    queue.AddBuffer(Frame(start));
    queue.AddBuffer(Frame(start + 50000));
    ASSERT_TRUE(receiver->WaitFor(2));
    const auto deliveries = receiver->Deliveries();
    EXPECT_GE(deliveries[0].hostTime - start, 100000);
    EXPECT_GE(deliveries[1].hostTime - start, 150000) << "the second frame waits its own turn";
    queue.Deinit();
}

TEST(DRAVThreadedBufferQueueDelay, DelayedWorkerSleepsAndStopsAtOnce)
{
    auto receiver = std::make_shared<Receiver>();
    Queue queue("sleepy", Queue::kModeThreaded, 30, 0);
    queue.SetDelayMsec(10000);
    queue.InitWithDelegate(receiver);
    queue.AddBuffer(Frame(DRAVGetHostTime().Get()));

    timespec cpuBefore{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &cpuBefore);
    const auto wallBefore = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(300ms);
    timespec cpuAfter{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &cpuAfter);
    const double cpu = (cpuAfter.tv_sec - cpuBefore.tv_sec) + (cpuAfter.tv_nsec - cpuBefore.tv_nsec) / 1e9;
    const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - wallBefore).count();
    EXPECT_LT(cpu, wall * 0.5) << "a worker waiting for a delay must not spin";

    const auto stopStart = std::chrono::steady_clock::now();
    queue.Deinit();
    EXPECT_LT(std::chrono::steady_clock::now() - stopStart, 3s) << "a delayed worker stops without waiting";
    EXPECT_TRUE(receiver->Deliveries().empty());
}

// Takes the queue down from inside its own delivery.
class SelfStoppingReceiver : public DRAVMediaBufferDelegate
{
public:
    std::shared_ptr<Queue> queue;
    std::promise<void> done;
    DRAVResult MediaBufferReceived(std::shared_ptr<DRAVObject>, std::shared_ptr<DRAVMediaBuffer>) override
    {
        auto keep = std::move(queue);
        if (keep)
        {
            keep->Deinit();
            keep.reset();  // the last reference: the queue goes while its worker delivers
            done.set_value();
        }
        return DRAVResult();
    }
    std::string DRAVMediaBufferDelegateFriendlyName() override { return "self-stopping"; }
};

TEST(DRAVThreadedBufferQueueLifetime, DeinitFromTheWorkersOwnDelivery)
{
    auto receiver = std::make_shared<SelfStoppingReceiver>();
    auto queue = std::make_shared<Queue>("self", Queue::kModeThreaded, 10, 0);
    receiver->queue = queue;
    auto done = receiver->done.get_future();
    queue->InitWithDelegate(receiver);
    queue->AddBuffer(Frame(0));
    queue.reset();
    EXPECT_EQ(done.wait_for(20s), std::future_status::ready);
    std::this_thread::sleep_for(20ms);  // let the detached worker end before the test does
}
}  // namespace
