// Inputs and outputs on the road of a mix, on the simulated platform: the
// sources and sinks they make are put on a running mixer unit as a mix puts
// them, and what the mixer pulls and the devices play is measured.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "control/DRMXInput.h"
#include "control/DRMXOutput.h"
#include "engine/DRAVManager.h"
#include "engine/sinks/DRAVSinkMakers.h"
#include "platform/Platform.h"
#include "platform/sim/SimPlatform.h"
#include "support/MixObjectsTestSupport.h"
#include "support/MixRoadTestSupport.h"
#include "support/SimAudioAnalysis.h"

namespace
{
using namespace DRMX_Settings;
using tidemix::platform::Platform;
using tidemix::platform::SampleEncoding;
using tidemix::platform::sim::SimAudioWorld;
using tidemix::platform::sim::SimPlatform;
using tidemix::platform::sim::SimSignal;
using tidemix::test::PullProbe;
using tidemix::test::TestMixRoad;

constexpr double kBlockSeconds = 0.02;

using tidemix::test::InputFor;
using tidemix::test::OutputFor;

// A tone's amplitude in the 20 ms pieces that carry it whole.
double ToneAmplitude(const std::vector<float>& samples, double frequency)
{
    return tidemix::test::WholeToneAmplitude(tidemix::test::Pieces(samples, 960), 48000.0, frequency);
}

class MixRoadObjects : public ::testing::Test
{
protected:
    void SetUp() override
    {
        static std::once_flag sinkMakers;
        std::call_once(sinkMakers, DRAVInstallSinkMakers);
        platform_ = std::make_shared<SimPlatform>();
        Platform::Use(platform_);
        ASSERT_TRUE(DRAVManager::GetDRAVManager()->Init().Succeeded());
        road_ = std::make_unique<TestMixRoad>(2);
        ASSERT_TRUE(road_->Start().Succeeded());
    }

    void TearDown() override
    {
        road_.reset();
        DRAVManager::GetDRAVManager()->Deinit();
        Platform::Use(nullptr);
    }

    SimAudioWorld& World() { return platform_->World(); }

    uint32_t AddMicrophone(const std::string& uid, double frequency, double level, uint32_t rate = 48000,
                           uint32_t packetFrames = 480)
    {
        return tidemix::test::AddSimMicrophone(World(), uid, {rate, 1, SampleEncoding::Float32, true},
                                               packetFrames, SimSignal::Sine(frequency, level));
    }

    // With the mix's block size: the ring holds planar blocks, which a pull
    // of another size would read out of step.
    static DRAVResult StartAsAMixDoes(DRMXInput& input)
    {
        DRAVResult result = input.SetBufferSizeFrameCount(TestMixRoad::kBlockFrames);
        return result.Succeeded() ? input.AudioUnitStart(DRAVTimestamp(0)) : result;
    }

    // The input's source on `bus` behind a probe, as the mix puts it there.
    std::shared_ptr<PullProbe> PutOnBus(const DRMXInput& input, int bus,
                                        std::shared_ptr<DRAVRingBuffer> ring = nullptr)
    {
        auto probe = std::make_shared<PullProbe>(input.GetSource(), std::move(ring));
        EXPECT_TRUE(road_->Mixer().AddSource(probe, bus).Succeeded());
        return probe;
    }

    std::shared_ptr<SimPlatform> platform_;
    std::unique_ptr<TestMixRoad> road_;
};

// A 44100 Hz mono device with 512-frame packets finishes a block after 11.6
// or 23.2 ms, against the mixer's pulls every 20 ms. Over a minute the input's
// ring neither overruns nor runs dry, and a block leaves the mixer soon after
// the capture stamp it carries.
TEST_F(MixRoadObjects, AnInputOnA44100DeviceRunsAMinuteWithoutOverrunsOrShortPulls)
{
    AddMicrophone("mic", 1000.0, 0.5, 44100, 512);
    DRMXInput input(InputFor("mic"));
    ASSERT_TRUE(StartAsAMixDoes(input).Succeeded());
    auto source = input.GetCaptureSource();
    auto ring = TestMixRoad::RingOf(source);
    ASSERT_NE(ring, nullptr);
    // On its bus from the start, as a mix puts it: the pulls before the
    // device's first block find the ring empty, and count apart.
    auto probe = PutOnBus(input, 0, ring);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (source->GetBlockCount() == 0 && std::chrono::steady_clock::now() < deadline)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const int64_t overrunsBefore = ring->GetOverrunCount();
    const int64_t shortPullsBefore = ring->GetShortPullCount();
    const size_t pullsBefore = probe->Count();

    std::this_thread::sleep_for(std::chrono::seconds(60));
    const int64_t overruns = ring->GetOverrunCount() - overrunsBefore;
    const int64_t shortPulls = ring->GetShortPullCount() - shortPullsBefore;
    const std::vector<PullProbe::Pull> pulls = probe->Pulls();
    input.AudioUnitStop();

    // Every pull the ring couldn't answer with the next block shows in the
    // probe: a pull without a block, or one during which the ring counted an
    // overrun or a short pull. (Block stamps come from the device's packets,
    // so their spacing jitters by up to a packet and tells nothing.)
    std::vector<double> latencies;
    double sum = 0.0;
    size_t cleanRun = 0;
    size_t longestCleanRun = 0;
    for (size_t i = pullsBefore; i < pulls.size(); ++i)
    {
        const PullProbe::Pull& pull = pulls[i];
        const bool ringEvent = pull.ringEvents != pulls[i - 1].ringEvents;
        cleanRun = pull.stamp < 0 || ringEvent ? 0 : cleanRun + 1;
        longestCleanRun = std::max(longestCleanRun, cleanRun);
        if (pull.stamp >= 0)
        {
            latencies.push_back(static_cast<double>(pull.hostTime - pull.stamp) / 1000.0);
            sum += latencies.back();
        }
    }
    ASSERT_GT(latencies.size(), 2500u) << "the mixer must have pulled blocks for a minute";
    // The ring counts pulls that found part of a block; those that found
    // nothing at all only the probe sees.
    const int64_t emptyPulls = static_cast<int64_t>(pulls.size() - pullsBefore - latencies.size());
    const double mean = sum / static_cast<double>(latencies.size());
    const double median = tidemix::test::Percentile(latencies, 0.5);
    printf(
        "a minute of a 44100 Hz/512 input: %zu pulls; ring overruns %lld, short pulls %lld, empty pulls "
        "%lld, longest clean stretch %.1f s; capture stamp to mixer out: mean %.1f ms, median %.1f ms, 99th "
        "percentile %.1f ms\n",
        pulls.size() - pullsBefore, static_cast<long long>(overruns), static_cast<long long>(shortPulls),
        static_cast<long long>(emptyPulls), static_cast<double>(longestCleanRun) * kBlockSeconds, mean,
        median, tidemix::test::Percentile(latencies, 0.99));
    // A ring of two blocks overruns and runs dry about once a second, in
    // every stretch; a thread held up by the host (each stall costs an
    // overrun and a few empty pulls after it) spoils some stretches only.
    EXPECT_GE(static_cast<double>(longestCleanRun) * kBlockSeconds, 5.0);
    // Stalls delay some pulls; a lead that is too long delays all of them.
    // (A stall of the mixer that overruns the ring is followed by pulls back
    // to back, which leave the lead short: latencies then fall.)
    EXPECT_LE(median, 45.0);
}

// Tones of different levels tell the devices apart in the mixer's pulls.
TEST_F(MixRoadObjects, ARunningInputMovedToAnotherDeviceKeepsItsBusAndCarriesTheNewTone)
{
    AddMicrophone("first", 1000.0, 0.5);
    AddMicrophone("second", 1000.0, 0.1, 44100, 512);
    DRMXInput input(InputFor("first"));
    ASSERT_TRUE(StartAsAMixDoes(input).Succeeded());
    auto source = input.GetSource();
    auto probe = PutOnBus(input, 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));

    const size_t pullsBefore = probe->Count();
    ASSERT_GT(pullsBefore, 0u);
    input.SetSelector(InputFor("second"));
    EXPECT_EQ(input.GetSource(), source) << "the bus keeps the input's source";
    std::this_thread::sleep_for(std::chrono::milliseconds(500));

    const std::vector<PullProbe::Pull> pulls = probe->Pulls();
    ASSERT_GT(pulls.size(), pullsBefore + 10);
    // A sine of 0.1 has a mean square of 0.005; one of 0.5, 0.125.
    auto isSecond = [](const PullProbe::Pull& pull) { return std::fabs(pull.meanSquare - 0.005) < 0.0005; };
    EXPECT_NEAR(pulls[pullsBefore - 1].meanSquare, 0.125, 0.0125) << "the first device before the move";
    size_t firstOfSecond = pullsBefore;
    while (firstOfSecond < pulls.size() && !isSecond(pulls[firstOfSecond]))
    {
        ++firstOfSecond;
    }
    // Counted in the mixer's blocks, which a held-up thread catches up on.
    const double delaySeconds = static_cast<double>(firstOfSecond - pullsBefore) * kBlockSeconds;
    printf("the moved input carried the new device's tone after %.0f ms of the mix\n", delaySeconds * 1000.0);
    EXPECT_LE(delaySeconds, 0.1);
    EXPECT_TRUE(isSecond(pulls.back()));
}

TEST_F(MixRoadObjects, ARunningOutputMovedToAnotherDevicePlaysThere)
{
    AddMicrophone("mic", 1000.0, 0.5);
    const uint32_t first = tidemix::test::AddSimSpeaker(World(), "first");
    const uint32_t second = tidemix::test::AddSimSpeaker(World(), "second");
    DRMXInput input(InputFor("mic"));
    ASSERT_TRUE(StartAsAMixDoes(input).Succeeded());
    PutOnBus(input, 0);
    DRMXOutput output(OutputFor("first"));
    output.SetOutputLevel(1.0);
    ASSERT_TRUE(output.AudioUnitStart(DRAVTimestamp(0)).Succeeded());
    ASSERT_TRUE(road_->Mixer().AddSink(output.GetSink()).Succeeded());
    EXPECT_NEAR(ToneAmplitude(tidemix::test::RecordFirstChannel(World(), first, 0.5, 0.3), 1000.0), 0.5,
                0.015);

    output.SetSelector(OutputFor("second"));
    EXPECT_NEAR(ToneAmplitude(tidemix::test::RecordFirstChannel(World(), second, 0.5, 0.3), 1000.0), 0.5,
                0.015);
    // The first device plays nothing more: what it records, if anything, is
    // silence.
    ASSERT_TRUE(World().StartRecording(first, 1.0));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    World().StopRecording(first);
    float loudest = 0.0f;
    for (const float sample : World().Recording(first)->Snapshot().samples)
    {
        loudest = std::max(loudest, std::fabs(sample));
    }
    EXPECT_LT(loudest, 0.001f) << "the first device plays no more";
}

// Level and mutes set before the start apply at the start; set while the sink
// runs they reach it at once. The sink is muted while either mute is set.
TEST_F(MixRoadObjects, AnOutputsLevelAndMutesReachItsSink)
{
    tidemix::test::AddSimSpeaker(World(), "out");
    struct Step
    {
        bool running;
        double level;
        bool outputMute;
        bool engineMute;
    };
    const Step steps[] = {
        {false, 0.5, false, true}, {true, 0.5, false, true}, {true, 0.5, false, false},
        {true, 0.8, true, false},  {true, 0.8, true, true},  {true, 0.2, false, false},
    };
    DRMXOutput output(OutputFor("out"));
    for (const Step& step : steps)
    {
        output.SetOutputLevel(step.level);
        output.SetOutputMute(step.outputMute);
        output.SetEngineMute(step.engineMute);
        if (!step.running)
        {
            EXPECT_EQ(output.GetSink(), nullptr);
            continue;
        }
        if (!output.GetSink())
        {
            ASSERT_TRUE(output.AudioUnitStart(DRAVTimestamp(0)).Succeeded());
        }
        auto sink = std::dynamic_pointer_cast<DRAVSinkAudioRendererAudioUnit>(output.GetSink());
        ASSERT_NE(sink, nullptr);
        SCOPED_TRACE(testing::Message() << step.level << " " << step.outputMute << " " << step.engineMute);
        EXPECT_DOUBLE_EQ(sink->GetAudioVolume(), step.level);
        EXPECT_EQ(sink->GetAudioMute(), step.outputMute || step.engineMute);
    }
    output.AudioUnitStop();
    output.AudioUnitStop();
    EXPECT_EQ(output.GetSink(), nullptr);
}

// A selector that names no device: the start says so, the input keeps its
// source (not running) and its bus plays silence beside a bus that plays.
TEST_F(MixRoadObjects, SelectorsWithoutADeviceFailTheStartAndTheBusPlaysSilence)
{
    AddMicrophone("mic", 1000.0, 0.5);
    DRMXInput playing(InputFor("mic"));
    ASSERT_TRUE(StartAsAMixDoes(playing).Succeeded());
    PutOnBus(playing, 0);
    for (const char* hardwareId : {"gone", ""})
    {
        SCOPED_TRACE(hardwareId);
        DRMXInput input(InputFor(hardwareId));
        EXPECT_EQ(input.AudioUnitStart(DRAVTimestamp(0)).GetCode(), kDRAVResultErrUnknown);
        EXPECT_TRUE(input.IsUnitStarted());
        ASSERT_NE(input.GetSource(), nullptr);
        auto probe = PutOnBus(input, 1);
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        ASSERT_GT(probe->Count(), 3u);
        for (const PullProbe::Pull& pull : probe->Pulls())
        {
            EXPECT_LT(pull.stamp, 0) << "a source without a device gives nothing";
        }
        EXPECT_LT(road_->Mixer().GetInputLevel(1, 0), -100.0);
        EXPECT_NEAR(road_->Mixer().GetInputLevel(0, 0), 10.0 * std::log10(0.125), 1.0);
        DRMXOutput output(OutputFor(hardwareId));
        EXPECT_EQ(output.AudioUnitStart(DRAVTimestamp(0)).GetCode(), kDRAVResultErrUnknown);
    }
}

TEST_F(MixRoadObjects, AFrameCountSetBeforeTheStartReachesTheSourceAndAStopDropsIt)
{
    AddMicrophone("mic", 1000.0, 0.5);
    DRMXInput input(InputFor("mic"));
    ASSERT_TRUE(input.SetBufferSizeFrameCount(512).Succeeded());
    ASSERT_TRUE(input.AudioUnitStart(DRAVTimestamp(0)).Succeeded());
    auto source = input.GetCaptureSource();
    ASSERT_NE(source, nullptr);
    EXPECT_EQ(source->GetBufferSizeFrameCount(), 512);
    EXPECT_TRUE(source->IsRunning());
    // Sized to the blocks the source makes: four of 512 frames; the first
    // block became two blocks of silence, which nothing pulls here.
    auto ring = TestMixRoad::RingOf(source);
    EXPECT_EQ(ring->GetCapacity(), 4 * 512 * 8);
    // Blocks are counted before they reach the ring, so the ring holds one
    // block more than was counted once the fill is in.
    bool filled = false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!filled && std::chrono::steady_clock::now() < deadline)
    {
        const int64_t blocks = source->GetBlockCount();
        filled = blocks > 0 && ring->GetBytesInBuffer() >= (blocks + 1) * 512 * 8;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_TRUE(filled) << "the first block must become two blocks of silence";

    input.AudioUnitStop();
    EXPECT_FALSE(source->IsRunning());
    EXPECT_FALSE(input.IsUnitStarted());
    input.AudioUnitStop();
    EXPECT_EQ(input.GetSource(), nullptr);
    EXPECT_EQ(input.GetBufferSizeFrameCount(), 512);
}
}  // namespace
