#include "engine/devices/DRAVMultiChannelAudioMixerCoreAudio.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

#include "portable-core/BreakIntoDebugger.h"
#include "support/MixerUnitTestSupport.h"
#include "support/UnitTestSupport.h"

using namespace mixerunit_test;

namespace
{
class MixerUnitTest : public ::testing::Test
{
protected:
    // A started unit with `inputs` buses and two recording sinks.
    std::shared_ptr<ManualMixer> MakeRunning(int inputs)
    {
        auto mixer = std::make_shared<ManualMixer>("Local Mixer", inputs);
        EXPECT_EQ(mixer->Init(), kDRAVResultOk);
        mixer->AddSink(sinkA_);
        mixer->AddSink(sinkB_);
        mixer->SetProcessingBufferSizeFrameCount(kBlockFrames);
        return mixer;
    }

    static void ExpectAll(const std::vector<float>& samples, float value, size_t expectedCount)
    {
        ASSERT_EQ(samples.size(), expectedCount);
        for (size_t i = 0; i < samples.size(); ++i)
        {
            ASSERT_FLOAT_EQ(samples[i], value) << "sample " << i;
        }
    }

    unittest::EngineEnvironment environment_;
    std::shared_ptr<RecordingMixSink> sinkA_ = std::make_shared<RecordingMixSink>("sink A");
    std::shared_ptr<RecordingMixSink> sinkB_ = std::make_shared<RecordingMixSink>("sink B");
};
}  // namespace

TEST_F(MixerUnitTest, NameSuffixOnceAndNoPushedFrames)
{
    auto mixer = std::make_shared<ManualMixer>("Local Mixer", 2);
    EXPECT_EQ(mixer->GetFriendlyName(), "DRAVMultiChannelAudioMixerCoreAudio: Local Mixer");
    ASSERT_EQ(mixer->Init(), kDRAVResultOk);
    EXPECT_TRUE(mixer->IsUnitInitialized());
    EXPECT_EQ(mixer->GetFriendlyName(), "DRAVMultiChannelAudioMixerCoreAudio: Local Mixer (Core Audio)");
    // A second initialisation doesn't add the suffix twice.
    ASSERT_EQ(mixer->InitFilter(kDRAVPinTypePassthrough, kDRAVPinTypePull), kDRAVResultOk);
    EXPECT_EQ(mixer->GetFriendlyName(), "DRAVMultiChannelAudioMixerCoreAudio: Local Mixer (Core Audio)");
    EXPECT_EQ(mixer->InputMediaBufferReceived(nullptr, 0, unittest::MakeFrame(0, 960)),
              kDRAVResultErrNotImplemented);
}

TEST_F(MixerUnitTest, BadArgumentsAreRefused)
{
    auto mixer = MakeRunning(2);
    auto source = BlockSource::Constant(0.5f, 0.5f);
    for (int bus : {-1, 255, 1000})
    {
        EXPECT_EQ(mixer->AddSource(source, bus), kDRAVResultErrInvalidParameter) << bus;
        EXPECT_EQ(mixer->RemoveSourceAtIndex(bus), kDRAVResultErrInvalidParameter) << bus;
        EXPECT_EQ(mixer->SetInputVolume(bus, 0.5), kDRAVResultErrInvalidParameter) << bus;
        EXPECT_EQ(mixer->GetInputVolume(bus), 0.0);
        EXPECT_EQ(mixer->GetInputLevel(bus, 0), 0.0);
    }
    EXPECT_EQ(mixer->AddSource(source, 254), kDRAVResultOk);
    EXPECT_EQ(mixer->RemoveSourceAtIndex(254), kDRAVResultOk);
    EXPECT_EQ(mixer->RemoveSourceAtIndex(254), kDRAVResultOkNoDataChanged);

    for (int64_t frames : {int64_t{0}, int64_t{-960}, int64_t{48001}, int64_t{1} << 40})
    {
        EXPECT_EQ(mixer->SetProcessingBufferSizeFrameCount(frames), kDRAVResultErrInvalidParameter) << frames;
    }
    EXPECT_EQ(mixer->GetProcessingBufferSizeFrameCount(), kBlockFrames);

    // More buses than the mixer has: the unit doesn't start, and stays paused.
    auto tooWide = std::make_shared<ManualMixer>("Wide", 256);
    ASSERT_EQ(tooWide->Init(), kDRAVResultOk);
    EXPECT_EQ(tooWide->SetUnitState(kDRAVUnitStateRunning), kDRAVResultErrInvalidState);
    EXPECT_EQ(tooWide->GetUnitState(), kDRAVUnitStatePaused);
    EXPECT_EQ(tooWide->RenderBlock().Get(), 0);
}

TEST_F(MixerUnitTest, MissingNullAndDrySourcesPlaySilenceWhileTheOthersPlay)
{
    auto mixer = MakeRunning(4);
    auto dry = BlockSource::Constant(0.9f, 0.9f);
    dry->SetEmpty(true);
    ASSERT_EQ(mixer->AddSource(BlockSource::Constant(0.25f, -0.5f), 0), kDRAVResultOk);
    // Bus 1 has no source at all.
    ASSERT_EQ(mixer->AddSource(nullptr, 2), kDRAVResultOk);
    ASSERT_EQ(mixer->AddSource(dry, 3), kDRAVResultOk);
    ASSERT_EQ(mixer->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);

    mixer->RenderBlock();
    auto blocks = sinkA_->Blocks();
    ASSERT_EQ(blocks.size(), 1u);
    ExpectAll(blocks[0].left, 0.25f, kBlockFrames);
    ExpectAll(blocks[0].right, -0.5f, kBlockFrames);
    EXPECT_EQ(dry->Pulls(), 1);
    EXPECT_EQ(dry->LastPullDurationUsec(), kBlockUsec);
    for (int bus : {1, 2, 3})
    {
        EXPECT_LE(mixer->GetInputLevel(bus, 0), -100.0) << bus;
    }

    // Without any source at all the block is silence, not stale samples.
    ASSERT_EQ(mixer->RemoveSourceAtIndex(0), kDRAVResultOk);
    mixer->RenderBlock();
    blocks = sinkA_->Blocks();
    ASSERT_EQ(blocks.size(), 2u);
    ExpectAll(blocks[1].left, 0.0f, kBlockFrames);
    ExpectAll(blocks[1].right, 0.0f, kBlockFrames);
}

TEST_F(MixerUnitTest, GettersGiveZeroWhenNotRunningAndTheAppliedValuesWhenRunning)
{
    auto mixer = MakeRunning(2);
    ASSERT_EQ(mixer->SetInputVolume(0, 1.5), kDRAVResultOk);
    ASSERT_EQ(mixer->SetInputVolume(1, 0.25), kDRAVResultOk);
    ASSERT_EQ(mixer->SetOutputVolume(0.75), kDRAVResultOk);
    EXPECT_EQ(mixer->GetInputVolume(0), 0.0);
    EXPECT_EQ(mixer->GetInputVolume(1), 0.0);
    EXPECT_EQ(mixer->GetOutputVolume(), 0.0);
    EXPECT_EQ(mixer->GetInputLevel(0, 0), 0.0);
    EXPECT_EQ(mixer->GetOutputLevel(1), 0.0);

    // Stored volumes reach the mixer at the start; 1.5 applies as 1.0.
    ASSERT_EQ(mixer->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    EXPECT_DOUBLE_EQ(mixer->GetInputVolume(0), 1.0);
    EXPECT_DOUBLE_EQ(mixer->GetInputVolume(1), 0.25);
    EXPECT_DOUBLE_EQ(mixer->GetOutputVolume(), 0.75);

    // Setting the present state again starts nothing more.
    EXPECT_EQ(mixer->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOkNoDataChanged);

    ASSERT_EQ(mixer->SetUnitState(kDRAVUnitStatePaused), kDRAVResultOk);
    EXPECT_EQ(mixer->GetInputVolume(0), 0.0);
    EXPECT_EQ(mixer->GetOutputVolume(), 0.0);
    EXPECT_EQ(mixer->GetInputLevel(0, 1), 0.0);
    EXPECT_EQ(mixer->GetOutputLevel(0), 0.0);
}

TEST_F(MixerUnitTest, BlockSizeChangesWithTheNextBlock)
{
    auto mixer = MakeRunning(1);
    auto source = BlockSource::Constant(0.5f, 0.25f);
    ASSERT_EQ(mixer->AddSource(source, 0), kDRAVResultOk);
    ASSERT_EQ(mixer->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    mixer->RenderBlock();

    EXPECT_EQ(mixer->SetProcessingBufferSizeFrameCount(kBlockFrames), kDRAVResultOkNoDataChanged);
    mixer->RenderBlock();
    ASSERT_EQ(mixer->SetProcessingBufferSizeFrameCount(480), kDRAVResultOk);
    EXPECT_EQ(mixer->GetIntProperty(kPropertyAudioBufferSizeFrameCount), 480);
    EXPECT_EQ(mixer->RenderBlock().Get(), 10000);
    EXPECT_EQ(source->LastPullDurationUsec(), 10000);
    mixer->SetIntProperty(kPropertyAudioBufferSizeFrameCount, 1000);
    // 1000 frames are 20833.33 microseconds, cut to whole ones.
    EXPECT_EQ(mixer->RenderBlock().Get(), 20833);

    const auto blocks = sinkA_->Blocks();
    ASSERT_EQ(blocks.size(), 4u);
    EXPECT_EQ(blocks[1].bytes, kBlockFrames * 8);
    EXPECT_EQ(std::make_pair(blocks[2].bytes, blocks[2].duration),
              std::make_pair(int64_t{480 * 8}, int64_t{10000}));
    ExpectAll(blocks[2].right, 0.25f, 480);
    EXPECT_EQ(std::make_pair(blocks[3].bytes, blocks[3].duration),
              std::make_pair(int64_t{1000 * 8}, int64_t{20833}));
    ExpectAll(blocks[3].left, 0.5f, 1000);
}

TEST_F(MixerUnitTest, ABlockOfTheWrongSizeIsCopiedOnlyWithinBlockAndTarget)
{
    auto mixer = MakeRunning(1);
    auto source = BlockSource::Constant(0.5f, -0.5f);
    ASSERT_EQ(mixer->AddSource(source, 0), kDRAVResultOk);
    ASSERT_EQ(mixer->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);

    // Too short: what there is of each channel, then zeros.
    source->ForceFrames(100);
    uint64_t breaks = BreakIntoDebugger_GetCallCount();
    mixer->RenderBlock();
    EXPECT_EQ(BreakIntoDebugger_GetCallCount(), breaks + 1);
    auto blocks = sinkA_->Blocks();
    ASSERT_EQ(blocks.size(), 1u);
    ASSERT_EQ(blocks[0].left.size(), static_cast<size_t>(kBlockFrames));
    for (size_t i = 0; i < blocks[0].left.size(); ++i)
    {
        ASSERT_EQ(blocks[0].left[i], i < 100 ? 0.5f : 0.0f) << i;
        ASSERT_EQ(blocks[0].right[i], i < 100 ? -0.5f : 0.0f) << i;
    }

    // Too long: the first block's worth of each channel.
    source->ForceFrames(3000);
    breaks = BreakIntoDebugger_GetCallCount();
    mixer->RenderBlock();
    EXPECT_EQ(BreakIntoDebugger_GetCallCount(), breaks + 1);
    blocks = sinkA_->Blocks();
    ASSERT_EQ(blocks.size(), 2u);
    ExpectAll(blocks[1].left, 0.5f, kBlockFrames);
    ExpectAll(blocks[1].right, -0.5f, kBlockFrames);
}

TEST_F(MixerUnitTest, StoppedOrDeinitialisedUnitsDeliverNothing)
{
    auto mixer = MakeRunning(1);
    ASSERT_EQ(mixer->AddSource(BlockSource::Constant(0.5f, 0.5f), 0), kDRAVResultOk);
    EXPECT_EQ(mixer->RenderBlock().Get(), 0);  // not started yet
    ASSERT_EQ(mixer->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    EXPECT_EQ(mixer->RenderBlock().Get(), kBlockUsec);
    ASSERT_EQ(mixer->SetUnitState(kDRAVUnitStatePaused), kDRAVResultOk);
    EXPECT_EQ(mixer->RenderBlock().Get(), 0);
    EXPECT_EQ(sinkA_->Count(), 1u);

    ASSERT_EQ(mixer->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    EXPECT_EQ(mixer->RenderBlock().Get(), kBlockUsec);
    EXPECT_EQ(mixer->Deinit(), kDRAVResultOk);
    EXPECT_FALSE(mixer->IsUnitInitialized());
    EXPECT_EQ(mixer->RenderBlock().Get(), 0);
    EXPECT_EQ(sinkA_->Count(), 2u);
    EXPECT_EQ(mixer->GetInputVolume(0), 0.0);
}

TEST_F(MixerUnitTest, ARefusingOrNullSinkDoesNotKeepTheOthersFromTheirBlocks)
{
    auto mixer = std::make_shared<ManualMixer>("Remote Mixer", 1);
    ASSERT_EQ(mixer->Init(), kDRAVResultOk);
    ASSERT_EQ(mixer->SetProcessingBufferSizeFrameCount(kBlockFrames), kDRAVResultOk);
    sinkA_->SetRefuse(true);
    mixer->AddSink(sinkA_);
    mixer->AddSink(nullptr);
    mixer->AddSink(sinkB_);
    ASSERT_EQ(mixer->AddSource(BlockSource::Constant(0.5f, 0.5f), 0), kDRAVResultOk);
    ASSERT_EQ(mixer->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    for (int i = 0; i < 3; ++i)
    {
        mixer->RenderBlock();
    }
    EXPECT_EQ(sinkA_->Refused(), 3);
    EXPECT_EQ(sinkA_->Count(), 0u);
    ASSERT_EQ(sinkB_->Count(), 3u);
    ExpectAll(sinkB_->Blocks()[2].left, 0.5f, kBlockFrames);
}

TEST_F(MixerUnitTest, ASinkMayResizeOrStopTheUnitFromWithinTheBlock)
{
    auto mixer = MakeRunning(1);
    ASSERT_EQ(mixer->AddSource(BlockSource::Constant(0.5f, 0.25f), 0), kDRAVResultOk);
    ASSERT_EQ(mixer->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    std::weak_ptr<ManualMixer> weak = mixer;

    // The first sink adds more sinks: the list grows under the loop that
    // walks it, and the new ones get blocks too.
    auto late = std::make_shared<RecordingMixSink>("late sink");
    sinkA_->SetOnBlock(
        [weak, late]
        {
            if (auto unit = weak.lock())
            {
                for (int i = 0; i < 4; ++i)
                {
                    unit->AddSink(i == 0 ? late : nullptr);
                }
            }
        });
    mixer->RenderBlock();
    sinkA_->SetOnBlock(nullptr);
    EXPECT_EQ(sinkB_->Count(), 1u);
    EXPECT_EQ(late->Count(), 1u);
    // Each sink has a block of its own.
    ASSERT_NE(sinkA_->LastFrame(), nullptr);
    EXPECT_NE(sinkA_->LastFrame(), sinkB_->LastFrame());
    EXPECT_NE(sinkA_->LastFrame()->GetStorage(), sinkB_->LastFrame()->GetStorage());

    // The first sink changes the block size: the second still gets this
    // block whole, and the next block has the new size.
    sinkA_->SetOnBlock(
        [weak]
        {
            if (auto unit = weak.lock())
            {
                unit->SetProcessingBufferSizeFrameCount(480);
            }
        });
    mixer->RenderBlock();
    sinkA_->SetOnBlock(nullptr);
    auto blocks = sinkB_->Blocks();
    ASSERT_EQ(blocks.size(), 2u);
    ExpectAll(blocks[1].left, 0.5f, kBlockFrames);
    ExpectAll(blocks[1].right, 0.25f, kBlockFrames);
    mixer->RenderBlock();
    blocks = sinkB_->Blocks();
    ASSERT_EQ(blocks.size(), 3u);
    ExpectAll(blocks[2].left, 0.5f, 480);

    // The first sink stops the unit: the second gets nothing more.
    sinkA_->SetOnBlock(
        [weak]
        {
            if (auto unit = weak.lock())
            {
                unit->SetUnitState(kDRAVUnitStatePaused);
            }
        });
    mixer->RenderBlock();
    sinkA_->SetOnBlock(nullptr);
    EXPECT_EQ(sinkA_->Count(), 4u);
    EXPECT_EQ(sinkB_->Count(), 3u);
    EXPECT_EQ(late->Count(), 3u);
    EXPECT_EQ(mixer->GetUnitState(), kDRAVUnitStatePaused);
    EXPECT_EQ(mixer->RenderBlock().Get(), 0);
}
