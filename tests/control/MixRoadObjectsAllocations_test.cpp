// The road of a mix whose sources and sink are made by the control layer's
// inputs and output makes no heap call on any of its threads once it runs:
// nothing the inputs add (the ring's start-up fill) runs there later.

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>

#include "control/DRMXInput.h"
#include "control/DRMXOutput.h"
#include "engine/DRAVManager.h"
#include "engine/sinks/DRAVSinkMakers.h"
#include "platform/Platform.h"
#include "platform/sim/SimPlatform.h"
#include "support/MixObjectsTestSupport.h"
#include "support/MixRoadTestSupport.h"
#include "support/OperatorNewCounter.h"

namespace
{
using tidemix::platform::Platform;
using tidemix::platform::SampleEncoding;
using tidemix::platform::sim::SimPlatform;
using tidemix::platform::sim::SimSignal;
using tidemix::test::TestMixRoad;

TEST(MixRoadObjectsAllocations, ARoadOfInputsAndAnOutputMakesNoHeapCall)
{
    DRAVInstallSinkMakers();
    auto platform = std::make_shared<SimPlatform>();
    Platform::Use(platform);
    ASSERT_TRUE(DRAVManager::GetDRAVManager()->Init().Succeeded());
    {
        auto& world = platform->World();
        tidemix::test::AddSimMicrophone(world, "voice", {44100, 1, SampleEncoding::Float32, true}, 512,
                                        SimSignal::Sine(1000.0, 0.5));
        tidemix::test::AddSimMicrophone(world, "music", {48000, 2, SampleEncoding::Int16, false}, 480,
                                        SimSignal::Sine(300.0, 0.5));
        tidemix::test::AddSimSpeaker(world, "out");

        TestMixRoad road(2);
        ASSERT_TRUE(road.Start().Succeeded());
        std::unique_ptr<DRMXInput> inputs[2];
        const char* const uids[2] = {"voice", "music"};
        for (int bus = 0; bus < 2; ++bus)
        {
            DRMX_Settings::DRMXInputSelector selector;
            selector.SetHardwareId(uids[bus]);
            inputs[bus] = std::make_unique<DRMXInput>(selector);
            ASSERT_TRUE(inputs[bus]->SetBufferSizeFrameCount(TestMixRoad::kBlockFrames).Succeeded());
            ASSERT_TRUE(inputs[bus]->AudioUnitStart(DRAVTimestamp(0)).Succeeded());
            ASSERT_TRUE(road.Mixer().AddSource(inputs[bus]->GetSource(), bus).Succeeded());
        }
        DRMX_Settings::DRMXOutputSelector selector;
        selector.SetHardwareId("out");
        DRMXOutput output(selector);
        ASSERT_TRUE(output.SetBufferSizeFrameCount(TestMixRoad::kBlockFrames).Succeeded());
        ASSERT_TRUE(output.AudioUnitStart(DRAVTimestamp(0)).Succeeded());
        ASSERT_TRUE(road.Mixer().AddSink(output.GetSink()).Succeeded());
        auto sink = std::dynamic_pointer_cast<DRAVSinkAudioRendererAudioUnit>(output.GetSink());
        ASSERT_NE(sink, nullptr);
        // Warm-up: the sink opens its device with the first block, the pools
        // make their items.
        std::this_thread::sleep_for(std::chrono::seconds(1));

        auto events = [&]
        {
            int64_t count = sink->GetDroppedBlockCount() + sink->GetUnderrunCount();
            for (const auto& input : inputs)
            {
                auto ring = TestMixRoad::RingOf(input->GetCaptureSource());
                count += ring->GetOverrunCount() + ring->GetShortPullCount();
            }
            return count;
        };
        const tidemix::test::QuietSecond quiet =
            tidemix::test::CountHeapCallsInAQuietSecond(events, [&] { return sink->GetFramesPlayed(); });
        road.Stop();
        ASSERT_GE(quiet.news, 0) << "no window of a second ran without drift events";
        EXPECT_EQ(quiet.news, 0) << "heap calls on the road's threads in a second";
        EXPECT_GT(quiet.played, 24000) << "the road must have run while counting";
    }
    DRAVManager::GetDRAVManager()->Deinit();
    Platform::Use(nullptr);
}
}  // namespace
