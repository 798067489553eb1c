#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "engine/devices/DRAVMultiChannelAudioMixerCoreAudio.h"
#include "support/MixerUnitTestSupport.h"
#include "support/ThreadsTestSupport.h"
#include "support/UnitTestSupport.h"

using namespace mixerunit_test;

namespace
{
constexpr int kWaitMs = 20000;

class MixerUnitThreadsTest : public ::testing::Test
{
protected:
    std::shared_ptr<DRAVMultiChannelAudioMixerCoreAudio> MakeUnit(const std::string& name, int inputs)
    {
        auto mixer = std::make_shared<DRAVMultiChannelAudioMixerCoreAudio>(name, DRAVFilterConfig{8}, inputs,
                                                                           1, DRAVGetHostTime());
        EXPECT_EQ(mixer->Init(), kDRAVResultOk);
        EXPECT_EQ(mixer->SetProcessingBufferSizeFrameCount(kBlockFrames), kDRAVResultOk);
        mixer->AddSink(sinkA_);
        mixer->AddSink(sinkB_);
        return mixer;
    }

    static void ExpectStampsOneBlockApart(const std::vector<ReceivedBlock>& blocks)
    {
        for (size_t i = 0; i < blocks.size(); ++i)
        {
            EXPECT_EQ(blocks[i].duration, kBlockUsec) << i;
            if (i > 0)
            {
                ASSERT_EQ(blocks[i].timestamp - blocks[i - 1].timestamp, kBlockUsec) << i;
            }
        }
    }

    unittest::EngineEnvironment environment_;
    std::shared_ptr<RecordingMixSink> sinkA_ = std::make_shared<RecordingMixSink>("sink A");
    std::shared_ptr<RecordingMixSink> sinkB_ = std::make_shared<RecordingMixSink>("sink B");
};
}  // namespace

TEST_F(MixerUnitThreadsTest, BlocksArePacedByTheHostClockOnTheRenderQueue)
{
    auto mixer = MakeUnit("Pace", 1);
    ASSERT_EQ(mixer->AddSource(BlockSource::Constant(0.5f, 0.25f), 0), kDRAVResultOk);
    const int64_t before = DRAVGetHostTime().Get();
    ASSERT_EQ(mixer->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    ASSERT_TRUE(sinkA_->WaitFor(15, kWaitMs));
    ASSERT_EQ(mixer->SetUnitState(kDRAVUnitStatePaused), kDRAVResultOk);

    const auto blocks = sinkA_->Blocks();
    ASSERT_GE(blocks.size(), 15u);
    ExpectStampsOneBlockApart(blocks);
    EXPECT_GE(blocks[0].timestamp, before);
    for (size_t i = 0; i < blocks.size(); ++i)
    {
        // Never early: a block leaves once the host clock has reached its stamp.
        EXPECT_GE(blocks[i].arrival, blocks[i].timestamp) << i;
        EXPECT_LT(blocks[i].arrival - blocks[i].timestamp, 5000000) << i;
        // Queue workers carry the queue's name, cut to what the system keeps.
        EXPECT_EQ(blocks[i].threadName, std::string("coreaudio.mixer.render-Pace").substr(0, 15));
    }
    // The blocks are spread over their time, not sent in a burst.
    EXPECT_GE(blocks.back().arrival - blocks.front().timestamp,
              (static_cast<int64_t>(blocks.size()) - 1) * kBlockUsec);
    ExpectStampsOneBlockApart(sinkB_->Blocks());
}

TEST_F(MixerUnitThreadsTest, ALateThreadDeliversTheMissedBlocksBackToBack)
{
    auto mixer = MakeUnit("Late", 1);
    ASSERT_EQ(mixer->AddSource(BlockSource::Constant(0.5f, 0.25f), 0), kDRAVResultOk);
    sinkA_->SleepOnBlock(3, 100);
    ASSERT_EQ(mixer->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    ASSERT_TRUE(sinkA_->WaitFor(14, kWaitMs));
    ASSERT_EQ(mixer->SetUnitState(kDRAVUnitStatePaused), kDRAVResultOk);

    const auto blocks = sinkA_->Blocks();
    ASSERT_GE(blocks.size(), 14u);
    ExpectStampsOneBlockApart(blocks);
    // Blocks 4 to 8 were due while the sink held the thread: they come at once,
    // late but with their own stamps, where paced blocks would take 80 ms.
    EXPECT_GE(blocks[4].arrival - blocks[4].timestamp, 70000);
    EXPECT_LT(blocks[8].arrival - blocks[4].arrival, 50000);
    // And then the clock paces again.
    for (size_t i = 9; i < blocks.size(); ++i)
    {
        EXPECT_GE(blocks[i].arrival, blocks[i].timestamp) << i;
    }
}

TEST_F(MixerUnitThreadsTest, AfterTheStopReturnsNoSinkReceivesABlock)
{
    std::atomic<bool> stopped{false};
    std::atomic<int> lateBlocks{0};
    auto noteLate = [&]
    {
        if (stopped.load())
        {
            lateBlocks.fetch_add(1);
        }
    };
    sinkA_->SetOnBlock(noteLate);
    sinkB_->SetOnBlock(noteLate);

    for (int cycle = 0; cycle < 8; ++cycle)
    {
        auto mixer = MakeUnit("Stop", 2);
        ASSERT_EQ(mixer->AddSource(BlockSource::Constant(0.5f, 0.25f), 0), kDRAVResultOk);
        // Something else keeps asking for the lock, as the level loop does.
        std::atomic<bool> done{false};
        std::thread contender(
            [&]
            {
                while (!done.load())
                {
                    mixer->SetInputVolume(1, 0.5);
                    mixer->GetInputLevel(0, 0);
                    mixer->GetOutputLevel(1);
                    std::this_thread::yield();
                }
            });
        stopped.store(false);
        const size_t before = sinkA_->Count();
        ASSERT_EQ(mixer->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
        ASSERT_TRUE(sinkA_->WaitFor(before + 1 + static_cast<size_t>(cycle % 3), kWaitMs));
        ASSERT_EQ(mixer->SetUnitState(kDRAVUnitStatePaused), kDRAVResultOk);
        stopped.store(true);
        const size_t atStop = sinkA_->Count();
        std::this_thread::sleep_for(std::chrono::milliseconds(60));
        done.store(true);
        contender.join();
        EXPECT_EQ(sinkA_->Count(), atStop) << cycle;
    }
    EXPECT_EQ(lateBlocks.load(), 0);
}

TEST_F(MixerUnitThreadsTest, SourcesChangeWhileTheThreadRuns)
{
    constexpr int kBuses = 4;
    auto mixer = MakeUnit("Change", kBuses);
    ASSERT_EQ(mixer->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    ASSERT_TRUE(sinkA_->WaitFor(1, kWaitMs));

    std::atomic<bool> done{false};
    std::thread changer(
        [&]
        {
            for (int i = 0; !done.load(); ++i)
            {
                const int bus = i % kBuses;
                switch (i % 3)
                {
                    case 0:
                        mixer->AddSource(BlockSource::Constant(0.25f, -0.25f), bus);
                        break;
                    case 1:
                        mixer->RemoveSourceAtIndex(bus);
                        break;
                    default:
                        mixer->AddSource(nullptr, bus);
                        break;
                }
                std::this_thread::sleep_for(std::chrono::microseconds(500));
            }
        });
    std::thread meter(
        [&]
        {
            while (!done.load())
            {
                for (int bus = 0; bus < kBuses; ++bus)
                {
                    mixer->GetInputLevel(bus, 0);
                    mixer->SetInputVolume(bus, 1.0);
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
    const size_t before = sinkA_->Count();
    const bool flowed = sinkA_->WaitFor(before + 15, kWaitMs);
    done.store(true);
    changer.join();
    meter.join();
    ASSERT_TRUE(flowed);
    ASSERT_EQ(mixer->SetUnitState(kDRAVUnitStatePaused), kDRAVResultOk);

    const auto blocks = sinkA_->Blocks();
    ExpectStampsOneBlockApart(blocks);
    // Every block is whole: one set of sources throughout, so each channel
    // holds one value, a multiple of a single source's.
    for (size_t i = 0; i < blocks.size(); ++i)
    {
        ASSERT_EQ(blocks[i].left.size(), static_cast<size_t>(kBlockFrames));
        const float left = blocks[i].left.front();
        for (size_t k = 0; k < blocks[i].left.size(); ++k)
        {
            ASSERT_EQ(blocks[i].left[k], left) << i;
            ASSERT_EQ(blocks[i].right[k], -left) << i;
        }
        const float sources = left / 0.25f;
        EXPECT_EQ(sources, static_cast<float>(static_cast<int>(sources))) << i;
        EXPECT_LE(sources, static_cast<float>(kBuses)) << i;
    }
}

TEST_F(MixerUnitThreadsTest, DestroyedWhileRunningTheLoopEnds)
{
    auto mixer = MakeUnit("Drop", 1);
    std::weak_ptr<DRAVMultiChannelAudioMixerCoreAudio> weak = mixer;
    ASSERT_EQ(mixer->AddSource(BlockSource::Constant(0.5f, 0.25f), 0), kDRAVResultOk);
    ASSERT_EQ(mixer->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    ASSERT_TRUE(sinkA_->WaitFor(2, kWaitMs));
    mixer.reset();
    EXPECT_TRUE(weak.expired());
    const size_t atDrop = sinkA_->Count();
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    EXPECT_EQ(sinkA_->Count(), atDrop);
}

TEST_F(MixerUnitThreadsTest, ARestartRunsOneLoopOnly)
{
    auto mixer = MakeUnit("Restart", 1);
    ASSERT_EQ(mixer->AddSource(BlockSource::Constant(0.5f, 0.25f), 0), kDRAVResultOk);
    ASSERT_EQ(mixer->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    ASSERT_TRUE(sinkA_->WaitFor(3, kWaitMs));
    // Stopped and started at once: the first loop may not have seen its stop yet.
    ASSERT_EQ(mixer->SetUnitState(kDRAVUnitStatePaused), kDRAVResultOk);
    const size_t firstRun = sinkA_->Count();
    ASSERT_EQ(mixer->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    ASSERT_TRUE(sinkA_->WaitFor(firstRun + 10, kWaitMs));
    ASSERT_EQ(mixer->SetUnitState(kDRAVUnitStatePaused), kDRAVResultOk);

    // Two loops would interleave their blocks and break the spacing.
    const auto blocks = sinkA_->Blocks();
    ExpectStampsOneBlockApart(
        std::vector<ReceivedBlock>(blocks.begin() + static_cast<std::ptrdiff_t>(firstRun), blocks.end()));
    // The clock starts anew from the host time of the restart.
    EXPECT_GE(blocks[firstRun].timestamp, blocks[firstRun - 1].timestamp);
}

TEST_F(MixerUnitThreadsTest, ASinkMayDropTheLastOwnerOnTheAudioThread)
{
    auto mixer = MakeUnit("Owner", 1);
    std::weak_ptr<DRAVMultiChannelAudioMixerCoreAudio> weak = mixer;
    ASSERT_EQ(mixer->AddSource(BlockSource::Constant(0.5f, 0.25f), 0), kDRAVResultOk);
    auto lastOwner = std::make_shared<std::shared_ptr<DRAVMultiChannelAudioMixerCoreAudio>>(mixer);
    std::atomic<bool> release{false};
    sinkA_->SetOnBlock(
        [lastOwner, &release]
        {
            if (release.load())
            {
                lastOwner->reset();
            }
        });
    ASSERT_EQ(mixer->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    ASSERT_TRUE(sinkA_->WaitFor(2, kWaitMs));
    mixer.reset();
    release.store(true);
    ASSERT_TRUE(threads_test::WaitUntil([&] { return weak.expired(); }));
    const size_t atDrop = sinkA_->Count();
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    EXPECT_LE(sinkA_->Count(), atDrop + 1);
    sinkA_->SetOnBlock(nullptr);
}
