#include "engine/sources/DRAVSourceAudioCaptureCoreAudio.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>

#include "platform/Platform.h"
#include "support/DeviceUnitFixture.h"
#include "support/DeviceUnitTestSupport.h"
#include "support/UnitTestSupport.h"

namespace
{
using deviceunits_test::Format;
using deviceunits_test::HandDrivenPlatform;
using deviceunits_test::HandStream;
using deviceunits_test::PlanarChannel;
using tidemix::platform::Platform;
using tidemix::platform::SampleEncoding;
using tidemix::platform::sim::SimDeviceSpec;

class CaptureSource : public deviceunits_test::DeviceUnitFixture<HandDrivenPlatform>
{
protected:
    uint32_t AddMicrophone(const tidemix::platform::DeviceStreamFormat& format,
                           const std::string& uid = "mic-1")
    {
        return platform_->Hand().World().AddDevice(
            SimDeviceSpec::Microphone(uid, "Microphone " + uid, format));
    }

    static std::shared_ptr<DRAVSourceAudioCaptureCoreAudio> MakeSource(uint32_t deviceId,
                                                                       int64_t blockFrames = 960)
    {
        return deviceunits_test::MakeCaptureSource(deviceId, blockFrames);
    }

    std::shared_ptr<HandStream> Stream() { return platform_->Hand().Last(); }
};

TEST_F(CaptureSource, MonoDeviceGivesStereoBlocksWithEqualChannels)
{
    const uint32_t mic = AddMicrophone(Format(48000, 1, true));
    auto source = MakeSource(mic);
    ASSERT_EQ(source->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    ASSERT_TRUE(source->IsRunning());

    Stream()->Deliver(960, 0.0f);
    ASSERT_EQ(Meter()->Count(), 1u);
    auto block = Meter()->Frames()[0];
    EXPECT_EQ(block->GetUsedBufferSize(), 960 * 2 * 4);
    EXPECT_GT(block->GetTimestamp().Get(), 0);
    EXPECT_EQ(block->GetDuration().Get(), 20000);
    const std::vector<float> left = PlanarChannel(block, 0);
    const std::vector<float> right = PlanarChannel(block, 1);
    ASSERT_EQ(left.size(), 960u);
    EXPECT_EQ(left, right);
    // Equal rates pass the samples unchanged.
    EXPECT_EQ(left.front(), 0.0f);
    EXPECT_EQ(left.back(), 959.0f);

    // The same block went to the ring of the output pin.
    auto ring = std::dynamic_pointer_cast<unittest::TestRingQueue>(source->GetOutputPin(0)->GetQueue());
    ASSERT_NE(ring, nullptr);
    EXPECT_EQ(ring->GetBytesHeld(), 960 * 2 * 4);
    EXPECT_EQ(source->GetBlockCount(), 1);
}

TEST_F(CaptureSource, PacketsOf512GiveNoBlockOnTheFirstAndOneOnTheSecond)
{
    const uint32_t mic = AddMicrophone(Format(48000, 2, true));
    auto source = MakeSource(mic);
    ASSERT_EQ(source->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);

    Stream()->Deliver(512, 0.0f);
    EXPECT_EQ(Meter()->Count(), 0u);
    EXPECT_EQ(source->GetFramesWritten(), 512);
    EXPECT_EQ(source->GetFramesRead(), 0);

    Stream()->Deliver(512, 512.0f);
    ASSERT_EQ(Meter()->Count(), 1u);
    EXPECT_EQ(source->GetFramesWritten(), 1024);
    EXPECT_EQ(source->GetFramesRead(), 960);
    // The block runs on across the two packets; the right channel is the
    // device's second.
    const auto block = Meter()->Frames()[0];
    const std::vector<float> left = PlanarChannel(block, 0);
    const std::vector<float> right = PlanarChannel(block, 1);
    for (size_t i = 0; i < left.size(); ++i)
    {
        ASSERT_EQ(left[i], static_cast<float>(i)) << i;
        ASSERT_EQ(right[i], static_cast<float>(i) + 1000.0f) << i;
    }
}

TEST_F(CaptureSource, DeviceAt44100TakesExactlyTheFramesOfEachBlock)
{
    const uint32_t mic = AddMicrophone(Format(44100, 2, false));
    auto source = MakeSource(mic);
    ASSERT_EQ(source->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);

    // 882 device frames make the first block of 960.
    Stream()->Deliver(441);
    EXPECT_EQ(Meter()->Count(), 0u);
    Stream()->Deliver(441);
    EXPECT_EQ(Meter()->Count(), 1u);
    EXPECT_EQ(source->GetFramesRead(), 882);

    for (int i = 0; i < 300; ++i)
    {
        Stream()->Deliver(441);
    }
    const auto blocks = static_cast<int64_t>(Meter()->Count());
    const int64_t expected = (blocks * 960 * 44100 + 48000 - 1) / 48000;
    EXPECT_EQ(source->GetFramesRead(), expected);
    EXPECT_EQ(source->GetFramesWritten(), 302 * 441);
    // Every block that could be made was made.
    const int64_t next = ((blocks + 1) * 960 * 44100 + 48000 - 1) / 48000;
    EXPECT_LT(source->GetFramesWritten(), next);
    EXPECT_EQ(source->GetDroppedPacketCount(), 0);
}

TEST_F(CaptureSource, StateRulesAndStop)
{
    const uint32_t mic = AddMicrophone(Format(48000, 2, true));
    auto source = MakeSource(mic);

    EXPECT_EQ(source->SetUnitState(kDRAVUnitStatePaused), kDRAVResultErrInvalidState);
    ASSERT_EQ(source->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    EXPECT_EQ(source->SetUnitState(kDRAVUnitStateRunning), kDRAVResultErrInvalidState);
    auto stream = Stream();
    EXPECT_TRUE(stream->started.load());
    Stream()->Deliver(500);

    ASSERT_EQ(source->SetUnitState(kDRAVUnitStatePaused), kDRAVResultOk);
    EXPECT_FALSE(source->IsRunning());
    EXPECT_TRUE(stream->closed.load());
    EXPECT_EQ(source->GetFramesWritten(), 0);
    EXPECT_EQ(source->SetUnitState(kDRAVUnitStatePaused), kDRAVResultErrInvalidState);

    // A new start opens the device anew.
    ASSERT_EQ(source->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    EXPECT_NE(Stream(), stream);
    Stream()->Deliver(960);
    EXPECT_EQ(Meter()->Count(), 1u);

    EXPECT_TRUE(source->Deinit().Succeeded());
    EXPECT_FALSE(source->IsRunning());
    EXPECT_TRUE(Stream()->closed.load());
}

TEST_F(CaptureSource, DeviceChoiceByPathAndHardwareId)
{
    AddMicrophone(Format(48000, 2, true), "first");
    const uint32_t second = AddMicrophone(Format(48000, 1, true), "second");

    auto source = MakeSource(0);
    source->SetDeviceHardwareId("nobody");
    EXPECT_EQ(source->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    EXPECT_FALSE(source->IsRunning());
    EXPECT_EQ(platform_->Hand().Opened(), 0);
    EXPECT_EQ(source->SetUnitState(kDRAVUnitStatePaused), kDRAVResultErrInvalidState);

    source->SetDeviceHardwareId("second");
    ASSERT_EQ(source->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    EXPECT_TRUE(source->IsRunning());
    EXPECT_EQ(Stream()->deviceId, second);
    ASSERT_EQ(source->SetUnitState(kDRAVUnitStatePaused), kDRAVResultOk);

    // With neither, or with a path that names nothing, the start fails.
    source->SetDeviceHardwareId("");
    EXPECT_EQ(source->SetUnitState(kDRAVUnitStateRunning), kDRAVResultErrInvalidState);
    EXPECT_FALSE(source->IsRunning());
    EXPECT_EQ(source->SetUnitState(kDRAVUnitStatePaused), kDRAVResultErrInvalidState);
    source->SetDevicePath("99999");
    EXPECT_EQ(source->SetUnitState(kDRAVUnitStateRunning), kDRAVResultErrInvalidState);
    EXPECT_FALSE(source->IsRunning());
}

TEST_F(CaptureSource, MovesToAnotherDevicePathWhileRunning)
{
    const uint32_t first = AddMicrophone(Format(48000, 2, true), "first");
    const uint32_t second = AddMicrophone(Format(44100, 1, false), "second");
    auto source = MakeSource(first);
    ASSERT_EQ(source->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    auto old = Stream();
    old->Deliver(960);
    ASSERT_EQ(Meter()->Count(), 1u);

    source->SetStringProperty(kPropertyCaptureDevicePath, std::to_string(second), false);
    EXPECT_EQ(source->GetDevicePath(), std::to_string(second));
    EXPECT_TRUE(source->IsRunning());
    EXPECT_TRUE(old->closed.load());
    ASSERT_EQ(Stream()->deviceId, second);
    EXPECT_TRUE(Stream()->started.load());
    Stream()->Deliver(882);
    EXPECT_EQ(Meter()->Count(), 2u);
}

TEST_F(CaptureSource, PacketsThatDontFitAreDroppedWhole)
{
    const uint32_t mic = AddMicrophone(Format(48000, 2, false));
    auto source = MakeSource(mic);
    ASSERT_EQ(source->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);

    // More than five seconds in one packet.
    Stream()->Deliver(48000 * 5 + 1);
    EXPECT_EQ(source->GetDroppedPacketCount(), 1);
    EXPECT_EQ(source->GetFramesWritten(), 0);
    EXPECT_EQ(Meter()->Count(), 0u);

    // A packet that doesn't match the device's buffers.
    HandStream& stream = *Stream();
    const float samples[4] = {};
    const void* one[1] = {samples};
    tidemix::platform::CapturePacket packet;
    packet.buffers = one;
    packet.bufferCount = 1;
    packet.frames = 4;
    stream.capture(packet);
    EXPECT_EQ(source->GetDroppedPacketCount(), 2);
    EXPECT_EQ(source->GetFramesWritten(), 0);

    // Regular packets go on.
    Stream()->Deliver(960);
    EXPECT_EQ(Meter()->Count(), 1u);
}

TEST_F(CaptureSource, DeviceWithMoreThan64ChannelsIsRefused)
{
    const uint32_t mic = AddMicrophone(Format(48000, 2, false));
    platform_->Hand().OverrideFormat(mic, Format(48000, 65, false));
    auto source = MakeSource(mic);
    EXPECT_EQ(source->SetUnitState(kDRAVUnitStateRunning), kDRAVResultErrInvalidState);
    EXPECT_FALSE(source->IsRunning());
    EXPECT_TRUE(Stream()->closed.load());

    // 64 planar channels are fine.
    platform_->Hand().OverrideFormat(mic, Format(48000, 64, false));
    source->SetUnitState(kDRAVUnitStatePaused);
    ASSERT_EQ(source->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    Stream()->Deliver(960);
    EXPECT_EQ(Meter()->Count(), 1u);
}

TEST_F(CaptureSource, BlockSizeLimitsAndChangesWhileRunning)
{
    const uint32_t mic = AddMicrophone(Format(48000, 2, true));
    auto source = MakeSource(mic, 480);
    EXPECT_EQ(source->SetBufferSizeFrameCount(0), kDRAVResultErrInvalidParameter);
    EXPECT_EQ(source->SetBufferSizeFrameCount(-5), kDRAVResultErrInvalidParameter);
    EXPECT_EQ(source->SetBufferSizeFrameCount(48001), kDRAVResultErrInvalidParameter);
    source->SetIntProperty(kPropertyAudioBufferSizeFrameCount, 0, false);
    EXPECT_EQ(source->GetBufferSizeFrameCount(), 480);

    ASSERT_EQ(source->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    Stream()->Deliver(960);
    EXPECT_EQ(Meter()->Count(), 2u);
    // Larger than the converter's slice: rendered in several slices.
    ASSERT_EQ(source->SetBufferSizeFrameCount(2000), kDRAVResultOk);
    Stream()->Deliver(2000);
    ASSERT_EQ(Meter()->Count(), 3u);
    EXPECT_EQ(Meter()->Frames()[2]->GetUsedBufferSize(), 2000 * 8);
    EXPECT_EQ(PlanarChannel(Meter()->Frames()[2], 0)[1999], 1999.0f);
}

// Without a level meter the source doesn't come up.
TEST_F(CaptureSource, InitFailsWithoutMeter)
{
    auto source = std::make_shared<DRAVSourceAudioCaptureCoreAudio>();
    DRAVUnitFactory::Install(DRAVUnitFactory{});
    EXPECT_FALSE(source->InitSource(kDRAVPinTypePullRingBuffer).Succeeded());
    EXPECT_FALSE(source->IsUnitInitialized());
}
}  // namespace
