#include "engine/units/DRAVRingBuffer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "support/UnitTestSupport.h"

using unittest::MakeFrame;

namespace
{
using namespace std::chrono_literals;

// MakeFrame's counting signal, in `format`.
std::shared_ptr<DRAVAudioBuffer> Counting(int64_t first, int64_t frames, int64_t timestamp,
                                          const DRAVAudioFormat& format)
{
    auto frame = MakeFrame(timestamp, frames, static_cast<float>(first));
    frame->SetMediaFormat(std::make_shared<DRAVAudioFormat>(format));
    return frame;
}

TEST(DRAVRingBufferThreads, CountingSignalArrivesIntactAndInOrder)
{
    constexpr int64_t kCapacity = 960 * 8 * 8;
    constexpr int64_t kTotalFrames = 960 * 400;
    DRAVRingBuffer ring("threads");
    ring.SetMaxTotalSizeMB(static_cast<int>(kCapacity));
    ring.Init();

    std::atomic<bool> failed{false};
    std::thread producer(
        [&]
        {
            for (int64_t index = 0; index < kTotalFrames && !failed.load(); index += 960)
            {
                // Paced on the fill, so the ring never overruns and nothing is lost.
                const auto deadline = std::chrono::steady_clock::now() + 30s;
                while (ring.GetBytesInBuffer() > kCapacity - 960 * 8)
                {
                    if (std::chrono::steady_clock::now() > deadline)
                    {
                        failed.store(true);
                        return;
                    }
                    std::this_thread::sleep_for(100us);
                }
                if (!ring.AddBuffer(MakeFrame(index * 1000000 / 48000, 960, static_cast<float>(index)))
                         .Succeeded())
                    failed.store(true);
            }
        });

    int64_t expected = 0;
    int64_t expectedTimestamp = 0;
    const auto deadline = std::chrono::steady_clock::now() + 60s;
    std::vector<float> samples(480 * 2);
    while (expected < kTotalFrames && !failed.load() && std::chrono::steady_clock::now() < deadline)
    {
        std::shared_ptr<DRAVAudioBuffer> out;
        const DRAVResult result = ring.PullAudioBuffer(DRAVTimestamp(0), &out, int64_t{480});
        if (!result.Succeeded())
        {
            ASSERT_TRUE(result == kDRAVResultErrNoData || result == kDRAVResultErrInsufficientMemory)
                << result.toString();
            std::this_thread::sleep_for(100us);
            continue;
        }
        ASSERT_EQ(out->GetTimestamp().Get(), expectedTimestamp);
        memcpy(samples.data(), out->GetStorage()->GetData(), samples.size() * sizeof(float));
        for (int64_t i = 0; i < 480; ++i)
        {
            ASSERT_EQ(samples[2 * i], static_cast<float>(expected + i));
            ASSERT_EQ(samples[2 * i + 1], -static_cast<float>(expected + i));
        }
        expected += 480;
        expectedTimestamp += 10000;
    }
    failed.store(failed.load() || expected < kTotalFrames);
    producer.join();
    EXPECT_FALSE(failed.load());
    EXPECT_EQ(expected, kTotalFrames);
}

// Takes a lock that a producing thread holds while it adds to the ring.
class LockingWatcher : public DRAVMediaFormatChangeDelegate
{
public:
    explicit LockingWatcher(std::recursive_mutex& lock) : lock_(lock) {}
    std::atomic<int> changes{0};
    DRAVResult MediaFormatChanged(std::shared_ptr<DRAVObject>, std::shared_ptr<DRAVMediaBuffer>) override
    {
        std::lock_guard<std::recursive_mutex> guard(lock_);
        changes.fetch_add(1);
        return DRAVResult();
    }

private:
    std::recursive_mutex& lock_;
};

TEST(DRAVRingBufferThreads, FormatDelegateTakingAnotherLockCannotDeadlock)
{
    DRAVRingBuffer ring("formats");
    ring.SetMaxTotalSizeMB(0x100000);
    ring.Init();
    std::recursive_mutex appLock;  // the application's locks are recursive, like the library's
    auto watcher = std::make_shared<LockingWatcher>(appLock);
    ring.SetFormatChangeDelegate(watcher);
    const DRAVAudioFormat a(48000, 2, kDRAVAudioSampleTypeFloat, 0);
    const DRAVAudioFormat b(44100, 2, kDRAVAudioSampleTypeFloat, 0);

    auto work = std::async(std::launch::async,
                           [&]
                           {
                               std::thread underLock(
                                   [&]
                                   {
                                       for (int i = 0; i < 2000; ++i)
                                       {
                                           // Holds its lock a while before it adds, as a
                                           // producer that prepares the frame under it.
                                           std::lock_guard<std::recursive_mutex> guard(appLock);
                                           std::this_thread::sleep_for(20us);
                                           ring.AddBuffer(Counting(i, 48, 1000 + i, a));
                                       }
                                   });
                               for (int i = 0; i < 2000; ++i)
                               {
                                   // Every frame switches the format, so the delegate runs each time.
                                   ring.AddBuffer(Counting(i, 48, 1000 + i, i % 2 ? a : b));
                                   std::shared_ptr<DRAVAudioBuffer> out;
                                   ring.PullAudioBuffer(DRAVTimestamp(0), &out, int64_t{48});
                               }
                               underLock.join();
                           });
    if (work.wait_for(60s) != std::future_status::ready)
    {
        ADD_FAILURE() << "deadlock between the ring and the delegate's lock";
        std::abort();
    }
    work.get();
    EXPECT_GE(watcher->changes.load(), 1000);
}
}  // namespace
