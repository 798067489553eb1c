#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "engine/filters/DRAVAudioLevelmeter.h"
#include "engine/sources/DRAVSourceAudioCaptureCoreAudio.h"
#include "platform/Platform.h"
#include "platform/sim/SimPlatform.h"
#include "support/DeviceUnitFixture.h"
#include "support/DeviceUnitTestSupport.h"
#include "support/ThreadsTestSupport.h"
#include "support/UnitTestSupport.h"

namespace
{
using deviceunits_test::Format;
using threads_test::WaitUntil;
using tidemix::platform::Platform;
using tidemix::platform::sim::SimDeviceFaults;
using tidemix::platform::sim::SimDeviceSpec;
using tidemix::platform::sim::SimPlatform;
using tidemix::platform::sim::SimSignal;

// Sources on the simulated world, whose devices call back on their own threads.
class CaptureSourceThreads : public deviceunits_test::DeviceUnitFixture<SimPlatform>
{
protected:
    uint32_t AddMicrophone(const tidemix::platform::DeviceStreamFormat& format, uint32_t packetFrames,
                           const std::string& uid = "mic")
    {
        SimDeviceSpec spec = SimDeviceSpec::Microphone(uid, "Microphone " + uid, format);
        spec.packetFrames = packetFrames;
        spec.signal = SimSignal::Sine(1000.0, 0.5);
        return platform_->World().AddDevice(spec);
    }

    static std::shared_ptr<DRAVSourceAudioCaptureCoreAudio> MakeSource(uint32_t deviceId)
    {
        return deviceunits_test::MakeCaptureSource(deviceId);
    }
};

TEST_F(CaptureSourceThreads, TheEnginesLevelMeterSeesTheBlocks)
{
    DRAVUnitFactory::Install(unittest::EngineFilterFactory());

    const uint32_t mic = AddMicrophone(Format(48000, 2, false), 480);
    auto source = MakeSource(mic);
    auto meter = std::dynamic_pointer_cast<DRAVAudioLevelmeter>(source->GetAudioLevelmeter());
    ASSERT_NE(meter, nullptr);
    ASSERT_EQ(source->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    ASSERT_TRUE(WaitUntil([&] { return source->GetBlockCount() >= 10; }));
    // The tone's peak is 0.5; the meter's samples may fall short of it.
    const double level = meter->GetVULevelChannel1();
    EXPECT_GT(level, 0.3);
    EXPECT_LT(level, 0.55);
    ASSERT_EQ(source->SetUnitState(kDRAVUnitStatePaused), kDRAVResultOk);
    source->Deinit();
}

TEST_F(CaptureSourceThreads, StartsStopsAndSizeChangesRaceTheDeviceThread)
{
    const uint32_t mic = AddMicrophone(Format(48000, 2, false), 64);
    SimDeviceFaults faults;
    faults.irregularPackets = true;
    platform_->World().SetFaults(mic, faults);
    auto source = MakeSource(mic);

    std::atomic<bool> done{false};
    std::thread sizes(
        [&]
        {
            int64_t size = 480;
            while (!done.load())
            {
                source->SetBufferSizeFrameCount(size);
                size = size == 480 ? 960 : 480;
                (void)source->GetFramesRead();
                (void)source->GetFramesWritten();
                std::this_thread::sleep_for(std::chrono::microseconds(500));
            }
        });
    for (int round = 0; round < 30; ++round)
    {
        ASSERT_EQ(source->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
        std::this_thread::sleep_for(std::chrono::milliseconds(round % 3 == 0 ? 15 : 2));
        ASSERT_EQ(source->SetUnitState(kDRAVUnitStatePaused), kDRAVResultOk);
        ASSERT_FALSE(source->IsRunning());
    }
    done.store(true);
    sizes.join();
    EXPECT_GT(source->GetBlockCount(), 0);
    // Every block is whole and of one of the two sizes.
    for (const auto& frame : Meter()->Frames())
    {
        const int64_t size = frame->GetUsedBufferSize();
        ASSERT_TRUE(size == 480 * 8 || size == 960 * 8) << size;
    }
}

TEST_F(CaptureSourceThreads, DeviceThatDisappearsJustStopsTheBlocks)
{
    const uint32_t mic = AddMicrophone(Format(48000, 2, true), 480);
    auto source = MakeSource(mic);
    ASSERT_EQ(source->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    ASSERT_TRUE(WaitUntil([&] { return source->GetBlockCount() >= 5; }));

    ASSERT_TRUE(platform_->World().RemoveDevice(mic));
    const int64_t blocks = source->GetBlockCount();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(source->GetBlockCount(), blocks);
    EXPECT_TRUE(source->IsRunning());

    EXPECT_EQ(source->SetUnitState(kDRAVUnitStatePaused), kDRAVResultOk);
    // The way back is a new start, which finds no device.
    EXPECT_EQ(source->SetUnitState(kDRAVUnitStateRunning), kDRAVResultErrInvalidState);
    EXPECT_FALSE(source->IsRunning());
}

TEST_F(CaptureSourceThreads, MovesBetweenRunningDevices)
{
    const uint32_t first = AddMicrophone(Format(48000, 2, true), 480, "first");
    const uint32_t second = AddMicrophone(Format(44100, 1, false), 441, "second");
    auto source = MakeSource(first);
    ASSERT_EQ(source->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    for (int round = 0; round < 6; ++round)
    {
        const int64_t blocks = source->GetBlockCount();
        source->SetDevicePath(std::to_string(round % 2 == 0 ? second : first));
        ASSERT_TRUE(source->IsRunning());
        ASSERT_TRUE(WaitUntil([&] { return source->GetBlockCount() >= blocks + 3; }));
    }
    EXPECT_EQ(source->SetUnitState(kDRAVUnitStatePaused), kDRAVResultOk);
    source.reset();
}
}  // namespace
