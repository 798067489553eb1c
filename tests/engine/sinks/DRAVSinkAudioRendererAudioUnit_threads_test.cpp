#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "engine/sinks/DRAVSinkAudioRendererAudioUnit.h"
#include "platform/Platform.h"
#include "platform/sim/SimPlatform.h"
#include "support/DeviceUnitFixture.h"
#include "support/DeviceUnitTestSupport.h"
#include "support/ThreadsTestSupport.h"
#include "support/UnitTestSupport.h"

namespace
{
using deviceunits_test::Format;
using deviceunits_test::MakePlanarBlock;
using threads_test::WaitUntil;
using tidemix::platform::Platform;
using tidemix::platform::SampleEncoding;
using tidemix::platform::sim::SimDeviceSpec;
using tidemix::platform::sim::SimPlatform;

// Keeps the sink fed as a mix would, from a thread of its own: a block
// whenever fewer than three wait, so that the device rarely runs dry even on
// a loaded machine.
class Feeder
{
public:
    explicit Feeder(std::shared_ptr<DRAVSinkAudioRendererAudioUnit> sink) : sink_(std::move(sink))
    {
        thread_ = std::thread(
            [this]
            {
                while (!done_.load())
                {
                    if (sink_->GetQueuedFrameCount() < 3 * 960 || !sink_->AreAudioUnitsInitialized())
                    {
                        const DRAVResult result = sink_->SendFrame(MakePlanarBlock(960, 1000.0, next_));
                        if (result.Succeeded())
                        {
                            next_ += 960;
                        }
                        pushed_.fetch_add(1);
                    }
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                }
            });
    }
    ~Feeder() { Stop(); }
    void Stop()
    {
        done_.store(true);
        if (thread_.joinable())
        {
            thread_.join();
        }
    }
    int64_t Pushed() const { return pushed_.load(); }

private:
    std::shared_ptr<DRAVSinkAudioRendererAudioUnit> sink_;
    std::atomic<bool> done_{false};
    std::atomic<int64_t> pushed_{0};
    int64_t next_ = 0;
    std::thread thread_;
};

class RendererSinkThreads : public deviceunits_test::DeviceUnitFixture<SimPlatform>
{
protected:
    uint32_t AddSpeaker(const tidemix::platform::DeviceStreamFormat& format, uint32_t packetFrames,
                        const std::string& uid = "spk")
    {
        SimDeviceSpec spec = SimDeviceSpec::Speaker(uid, "Speaker " + uid, format);
        spec.packetFrames = packetFrames;
        return platform_->World().AddDevice(spec);
    }

    static std::shared_ptr<DRAVSinkAudioRendererAudioUnit> MakeSink(uint32_t deviceId)
    {
        return deviceunits_test::MakeRendererSink(std::to_string(deviceId));
    }
};

TEST_F(RendererSinkThreads, StopsStartsMovesAndVolumesRaceTheDeviceAndThePushes)
{
    const uint32_t first = AddSpeaker(Format(48000, 2, false), 128, "first");
    const uint32_t second = AddSpeaker(Format(44100, 1, true, SampleEncoding::Int16), 147, "second");
    auto sink = MakeSink(first);
    Feeder feeder(sink);
    for (int round = 0; round < 30; ++round)
    {
        sink->SetDevicePath(std::to_string(round % 2 == 0 ? second : first));
        sink->SetAudioVolume(round % 4 * 0.25);
        sink->SetAudioMute(round % 3 == 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(round % 3 == 0 ? 15 : 2));
        if (round % 5 == 4)
        {
            ASSERT_EQ(sink->SetUnitState(kDRAVUnitStatePaused), kDRAVResultOk);
            ASSERT_FALSE(sink->AreAudioUnitsInitialized());
            ASSERT_TRUE(sink->SetUnitState(kDRAVUnitStateRunning).Succeeded());
        }
    }
    ASSERT_TRUE(WaitUntil([&] { return sink->GetFramesPlayed() > 0; }));
    feeder.Stop();
    EXPECT_GT(feeder.Pushed(), 0);
    EXPECT_TRUE(sink->Deinit().Succeeded());
    EXPECT_FALSE(sink->AreAudioUnitsInitialized());
}

TEST_F(RendererSinkThreads, DeviceThatDisappearsFillsUpAndDropsBlocks)
{
    const uint32_t speaker = AddSpeaker(Format(48000, 2, false), 480);
    auto sink = MakeSink(speaker);
    {
        Feeder feeder(sink);
        ASSERT_TRUE(WaitUntil([&] { return sink->GetFramesPlayed() >= 4800; }));
    }
    ASSERT_TRUE(platform_->World().RemoveDevice(speaker));
    const int64_t played = sink->GetFramesPlayed();
    int64_t start = 0;
    for (int i = 0; i < 10; ++i)
    {
        EXPECT_EQ(sink->SendFrame(MakePlanarBlock(960, 1000.0, start)), kDRAVResultOk);
        start += 960;
    }
    // A block is taken while fewer than four whole blocks wait: what the
    // device left of a block it had begun stays on top of the four.
    EXPECT_GE(sink->GetQueuedFrameCount(), 4 * 960);
    EXPECT_LT(sink->GetQueuedFrameCount(), 5 * 960);
    EXPECT_GE(sink->GetDroppedBlockCount(), 6);
    EXPECT_EQ(sink->GetFramesPlayed(), played);
    EXPECT_EQ(sink->SetUnitState(kDRAVUnitStatePaused), kDRAVResultOk);
}
}  // namespace
