// The whole road of a mix, once it runs, makes no heap call on any of its
// threads: the capture devices' threads (packets into blocks into rings), the
// mixer's audio thread (pulls, mixing, blocks to the sink) and the output
// device's thread (requests). Every operator new of the process is counted
// while the test's own thread sleeps.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "engine/DRAVManager.h"
#include "platform/Platform.h"
#include "platform/sim/SimPlatform.h"
#include "support/MixRoadTestSupport.h"
#include "support/OperatorNewCounter.h"

namespace
{
using tidemix::platform::Platform;
using tidemix::platform::SampleEncoding;
using tidemix::platform::sim::SimDeviceSpec;
using tidemix::platform::sim::SimPlatform;
using tidemix::platform::sim::SimSignal;
using tidemix::test::OperatorNewCounter;
using tidemix::test::TestMixRoad;

TEST(MixRoadAllocations, ARunningRoadMakesNoHeapCall)
{
    // The counter sees what it should.
    {
        OperatorNewCounter counter(OperatorNewCounter::Scope::Process);
        delete new int(1);
        ASSERT_EQ(counter.Stop(), 1);
    }

    auto platform = std::make_shared<SimPlatform>();
    Platform::Use(platform);
    ASSERT_TRUE(DRAVManager::GetDRAVManager()->Init().Succeeded());
    {
        auto& world = platform->World();
        SimDeviceSpec voice =
            SimDeviceSpec::Microphone("voice", "Voice", {44100, 1, SampleEncoding::Float32, true});
        voice.packetFrames = 512;
        voice.signal = SimSignal::Sine(1000.0, 0.5);
        SimDeviceSpec music =
            SimDeviceSpec::Microphone("music", "Music", {48000, 2, SampleEncoding::Int16, false});
        music.signal = SimSignal::Sine(300.0, 0.5);
        SimDeviceSpec out = SimDeviceSpec::Speaker("out", "Out", {44100, 2, SampleEncoding::Int16, true});
        const uint32_t voiceId = world.AddDevice(voice);
        const uint32_t musicId = world.AddDevice(music);
        const uint32_t outId = world.AddDevice(out);

        TestMixRoad road(2);
        ASSERT_TRUE(road.SetSource(0, TestMixRoad::StartCapture(voiceId)).Succeeded());
        ASSERT_TRUE(road.SetSource(1, TestMixRoad::StartCapture(musicId)).Succeeded());
        ASSERT_TRUE(road.SetOutput(outId).Succeeded());
        ASSERT_TRUE(road.Start().Succeeded());
        // Warm-up: the sink opens its device with the first block, the pools
        // make their items.
        std::this_thread::sleep_for(std::chrono::seconds(1));

        // A window counts when the road ran in its steady state: no ring
        // overran or ran dry and the sink neither dropped nor underran. Those
        // events are rare, and they log (the one heap call they may make); a
        // thread of a virtual machine that lost its processor for a while
        // causes them, so a spoiled window is measured again.
        auto rings = {TestMixRoad::RingOf(road.Source(0)), TestMixRoad::RingOf(road.Source(1))};
        auto events = [&]
        {
            int64_t count = road.Sink().GetDroppedBlockCount() + road.Sink().GetUnderrunCount();
            for (const auto& ring : rings)
            {
                count += ring->GetOverrunCount() + ring->GetShortPullCount();
            }
            return count;
        };
        const tidemix::test::QuietSecond quiet = tidemix::test::CountHeapCallsInAQuietSecond(
            events, [&] { return road.Sink().GetFramesPlayed(); });
        road.Stop();

        ASSERT_GE(quiet.news, 0) << "no window of a second ran without drift events";
        EXPECT_EQ(quiet.news, 0) << "heap calls on the road's threads in a second";
        EXPECT_GT(quiet.played, 24000) << "the road must have run while counting";
    }
    DRAVManager::GetDRAVManager()->Deinit();
    Platform::Use(nullptr);
}
}  // namespace
