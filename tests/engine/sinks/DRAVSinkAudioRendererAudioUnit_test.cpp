#include "engine/sinks/DRAVSinkAudioRendererAudioUnit.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/Platform.h"
#include "support/DeviceUnitFixture.h"
#include "support/DeviceUnitTestSupport.h"
#include "support/SimAudioAnalysis.h"
#include "support/UnitTestSupport.h"

namespace
{
using deviceunits_test::Format;
using deviceunits_test::HandDrivenPlatform;
using deviceunits_test::HandStream;
using deviceunits_test::MakePlanarBlock;
using tidemix::platform::Platform;
using tidemix::platform::SampleEncoding;
using tidemix::platform::sim::SimDeviceSpec;

class RendererSink : public deviceunits_test::DeviceUnitFixture<HandDrivenPlatform>
{
protected:
    uint32_t AddSpeaker(const tidemix::platform::DeviceStreamFormat& format, const std::string& uid = "spk-1")
    {
        return platform_->Hand().World().AddDevice(SimDeviceSpec::Speaker(uid, "Speaker " + uid, format));
    }

    static std::shared_ptr<DRAVSinkAudioRendererAudioUnit> MakeSink(const std::string& path, bool run = true)
    {
        return deviceunits_test::MakeRendererSink(path, run);
    }

    // Hands a block to the sink as its input pin does, with the sink's own
    // answer (the passthrough pin answers Ok whatever the sink says).
    static DRAVResult Receive(const std::shared_ptr<DRAVSinkAudioRendererAudioUnit>& sink,
                              std::shared_ptr<DRAVMediaBuffer> block)
    {
        return sink->InputMediaBufferReceived(sink->GetInputPin(0), 0, std::move(block));
    }
    // Pushes a ramp block continuing at `start`.
    static DRAVResult Push(const std::shared_ptr<DRAVSinkAudioRendererAudioUnit>& sink, int64_t start)
    {
        return Receive(sink, MakePlanarBlock(960, 0.0, start));
    }

    std::shared_ptr<HandStream> Stream() { return platform_->Hand().Last(); }
};

TEST_F(RendererSink, DeviceOpensAtTheFirstBlockAndTheFifthWaitingBlockIsDropped)
{
    const uint32_t speaker = AddSpeaker(Format(48000, 2, false));
    auto sink = MakeSink(std::to_string(speaker));
    EXPECT_EQ(platform_->Hand().Opened(), 0);
    EXPECT_FALSE(sink->AreAudioUnitsInitialized());

    // Through the input pin, as the mix hands blocks on.
    for (int i = 0; i < 4; ++i)
    {
        ASSERT_EQ(sink->SendFrame(MakePlanarBlock(960, 0.0, i * 960)), kDRAVResultOk);
    }
    ASSERT_EQ(platform_->Hand().Opened(), 1);
    EXPECT_TRUE(Stream()->started.load());
    EXPECT_EQ(Stream()->deviceId, speaker);
    EXPECT_EQ(sink->GetQueuedFrameCount(), 4 * 960);

    EXPECT_EQ(Push(sink, 4 * 960), kDRAVResultOk);
    EXPECT_EQ(sink->GetDroppedBlockCount(), 1);
    EXPECT_EQ(sink->GetQueuedFrameCount(), 4 * 960);

    // The device plays the four blocks in order; the fifth never comes.
    std::vector<float> left;
    for (int i = 0; i < 5; ++i)
    {
        const auto channels = Stream()->Request(960);
        ASSERT_EQ(channels.size(), 2u);
        left.insert(left.end(), channels[0].begin(), channels[0].end());
        EXPECT_EQ(channels[1][5], i < 4 ? -channels[0][5] : 0.0f);
    }
    for (size_t i = 0; i < 4 * 960; ++i)
    {
        ASSERT_EQ(left[i], static_cast<float>(i)) << i;
    }
    for (size_t i = 4 * 960; i < left.size(); ++i)
    {
        ASSERT_EQ(left[i], 0.0f) << i;
    }
    EXPECT_EQ(sink->GetFramesPlayed(), 4 * 960);
    EXPECT_EQ(sink->GetUnderrunCount(), 1);
}

TEST_F(RendererSink, RequestBiggerThanWhatWaitsGivesSilenceAndConsumesNothing)
{
    const uint32_t speaker = AddSpeaker(Format(48000, 2, true));
    auto sink = MakeSink(std::to_string(speaker));
    ASSERT_EQ(Push(sink, 0), kDRAVResultOk);

    auto channels = Stream()->Request(1024);
    ASSERT_EQ(channels.size(), 2u);
    for (float sample : channels[0])
    {
        ASSERT_EQ(sample, 0.0f);
    }
    EXPECT_EQ(sink->GetUnderrunCount(), 1);
    EXPECT_EQ(sink->GetQueuedFrameCount(), 960);

    channels = Stream()->Request(960);
    EXPECT_EQ(channels[0][959], 959.0f);
    EXPECT_EQ(channels[1][959], -959.0f);
    EXPECT_EQ(sink->GetQueuedFrameCount(), 0);
    EXPECT_EQ(sink->GetUnderrunCount(), 1);
}

TEST_F(RendererSink, VolumeLimitsAndMute)
{
    const uint32_t speaker = AddSpeaker(Format(48000, 2, false));
    auto sink = MakeSink(std::to_string(speaker));
    sink->SetAudioVolume(1.5);
    EXPECT_EQ(sink->GetAudioVolume(), 1.0);
    sink->SetDoubleProperty(kPropertyAudioRendererVolume, -1.0, false);
    EXPECT_EQ(sink->GetAudioVolume(), 0.0);
    EXPECT_EQ(sink->GetDeviceVolume(), -1.0);

    sink->SetAudioVolume(0.25);
    ASSERT_EQ(Push(sink, 0), kDRAVResultOk);
    EXPECT_FLOAT_EQ(sink->GetDeviceVolume(), 0.25);

    sink->SetBoolProperty(kPropertyAudioRendererMute, true, false);
    EXPECT_TRUE(sink->GetAudioMute());
    EXPECT_EQ(sink->GetDeviceVolume(), 0.0);
    sink->SetAudioVolume(0.75);
    EXPECT_EQ(sink->GetDeviceVolume(), 0.0);
    EXPECT_EQ(sink->GetAudioVolume(), 0.75);
    sink->SetAudioMute(false);
    EXPECT_FLOAT_EQ(sink->GetDeviceVolume(), 0.75);
}

TEST_F(RendererSink, BlocksOutsideStateRunningAreRefusedAndNotKept)
{
    const uint32_t speaker = AddSpeaker(Format(48000, 2, false));
    auto sink = MakeSink(std::to_string(speaker), false);
    EXPECT_EQ(Push(sink, 0), kDRAVResultErrInvalidOperation);
    EXPECT_EQ(platform_->Hand().Opened(), 0);

    ASSERT_TRUE(sink->SetUnitState(kDRAVUnitStateRunning).Succeeded());
    ASSERT_EQ(Push(sink, 0), kDRAVResultOk);
    auto stream = Stream();
    ASSERT_EQ(sink->SetUnitState(kDRAVUnitStatePaused), kDRAVResultOk);
    EXPECT_TRUE(stream->closed.load());
    EXPECT_FALSE(sink->AreAudioUnitsInitialized());
    EXPECT_EQ(Push(sink, 960), kDRAVResultErrInvalidOperation);
    EXPECT_EQ(sink->GetQueuedFrameCount(), 0);

    // A new start plays only what comes after it.
    ASSERT_TRUE(sink->SetUnitState(kDRAVUnitStateRunning).Succeeded());
    ASSERT_EQ(Push(sink, 5000), kDRAVResultOk);
    EXPECT_EQ(Stream()->Request(960)[0][0], 5000.0f);

    auto uninitialized = std::make_shared<DRAVSinkAudioRendererAudioUnit>();
    EXPECT_EQ(uninitialized->InputMediaBufferReceived(nullptr, 0, MakePlanarBlock(960, 0.0, 0)),
              kDRAVResultErrNotInitialized);
}

TEST_F(RendererSink, DevicePathZeroLeavesTheDeviceAndAnotherPathMovesIt)
{
    const uint32_t first = AddSpeaker(Format(48000, 2, false), "first");
    const uint32_t second = AddSpeaker(Format(44100, 2, true, SampleEncoding::Int16), "second");
    auto sink = MakeSink(std::to_string(first));
    for (int i = 0; i < 4; ++i)
    {
        ASSERT_EQ(sink->SendFrame(MakePlanarBlock(960, 1000.0, i * 960)), kDRAVResultOk);
    }
    auto stream = Stream();

    sink->SetDevicePath("0");
    EXPECT_EQ(sink->GetDevicePath(), "0");
    EXPECT_EQ(stream->deviceId, first);
    EXPECT_EQ(stream->moves.load(), 0);
    EXPECT_TRUE(stream->started.load());

    sink->SetStringProperty(kPropertyCaptureDevicePath, std::to_string(second), false);
    EXPECT_EQ(stream->deviceId, second);
    EXPECT_EQ(stream->moves.load(), 1);
    EXPECT_TRUE(stream->started.load());
    EXPECT_EQ(sink->GetDeviceId(), second);
    EXPECT_EQ(platform_->Hand().Opened(), 1);

    // The new device's format gets its own conversion: 16-bit interleaved.
    const auto channels = stream->Request(882);
    ASSERT_EQ(channels.size(), 2u);
    EXPECT_NEAR(tidemix::test::Peak(channels[0]), 0.5, 0.05);

    // A path that names nothing keeps the device.
    sink->SetDevicePath("4242");
    EXPECT_EQ(stream->deviceId, second);
    EXPECT_TRUE(stream->started.load());
}

TEST_F(RendererSink, OutputDeviceWithMoreThan64ChannelsIsRefused)
{
    const uint32_t speaker = AddSpeaker(Format(48000, 2, false));
    platform_->Hand().OverrideFormat(speaker, Format(48000, 65, false));
    auto sink = MakeSink(std::to_string(speaker));
    EXPECT_EQ(Push(sink, 0), kDRAVResultErrInvalidState);
    EXPECT_FALSE(sink->AreAudioUnitsInitialized());
    EXPECT_TRUE(Stream()->closed.load());
}

TEST_F(RendererSink, DefaultOutputWithoutPath)
{
    AddSpeaker(Format(48000, 2, false), "default");
    const uint32_t other = AddSpeaker(Format(48000, 2, false), "other");
    auto sink = MakeSink("");
    ASSERT_EQ(Push(sink, 0), kDRAVResultOk);
    EXPECT_NE(Stream()->deviceId, other);
    EXPECT_EQ(Stream()->deviceId, platform_->Hand().World().DefaultOutput().value_or(0));
}

TEST_F(RendererSink, RefusedFormatsAndBlockSizes)
{
    const uint32_t speaker = AddSpeaker(Format(48000, 2, false));
    auto sink = MakeSink(std::to_string(speaker));
    EXPECT_EQ(sink->SetBufferSizeFrameCount(0), kDRAVResultErrInvalidParameter);
    sink->SetIntProperty(kPropertyAudioBufferSizeFrameCount, -3, false);
    EXPECT_EQ(sink->GetBufferSizeFrameCount(), 960);

    // More channels than bip buffers: refused, no device opened.
    const DRAVAudioFormat wide{48000, 65, kDRAVAudioSampleTypeFloat, 0, true};
    auto block = DRAVAudioBuffer::GetAudioBuffer("test", 960 * 65 * 4, wide, nullptr, 0);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(Receive(sink, block), kDRAVResultErrInvalidFormat);
    EXPECT_EQ(platform_->Hand().Opened(), 0);

    // After the first block, a block of another format is refused.
    ASSERT_EQ(Push(sink, 0), kDRAVResultOk);
    const DRAVAudioFormat mono{48000, 1, kDRAVAudioSampleTypeFloat, 0, true};
    auto other = DRAVAudioBuffer::GetAudioBuffer("test", 960 * 4, mono, nullptr, 0);
    EXPECT_EQ(Receive(sink, other), kDRAVResultErrInvalidFormat);
    EXPECT_EQ(Receive(sink, nullptr), kDRAVResultErrNullPointer);
    EXPECT_EQ(sink->GetRefusedBlockCount(), 1);
    EXPECT_EQ(sink->GetQueuedFrameCount(), 960);

    // A smaller block size makes fewer frames count as four blocks.
    ASSERT_EQ(sink->SetBufferSizeFrameCount(240), kDRAVResultOk);
    EXPECT_EQ(Push(sink, 960), kDRAVResultOk);
    EXPECT_EQ(sink->GetDroppedBlockCount(), 1);
}
}  // namespace
