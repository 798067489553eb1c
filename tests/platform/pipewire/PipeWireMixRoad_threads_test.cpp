// The mix's road on real PipeWire nodes: two capture sources on two nodes
// that play tones, one mixer unit, one renderer sink on a third node whose
// monitor the test records with a client of its own.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "engine/DRAVManager.h"
#include "platform/Platform.h"
#include "platform/pipewire/PipeWireAudioSystem.h"
#include "support/MixRoadTestSupport.h"
#include "support/PipeWireTestSupport.h"
#include "support/SimAudioAnalysis.h"
#include "support/ThreadsTestSupport.h"

namespace
{
using tidemix::platform::AudioDeviceInfo;
using tidemix::platform::Platform;
using tidemix::platform::pipewire::PipeWireAudioSystem;
using tidemix::test::PipeWireTestPeer;
using tidemix::test::SampleCollector;
using tidemix::test::TestMixRoad;

constexpr uint32_t kRate = 48000;
constexpr auto kWait = std::chrono::seconds(30);

// Polls at a pace that suits predicates which copy seconds of sound.
bool WaitFor(const std::function<bool()>& condition)
{
    return threads_test::WaitUntil(condition, kWait, std::chrono::milliseconds(20));
}

std::optional<AudioDeviceInfo> WaitForDevice(const std::string& uid)
{
    std::optional<AudioDeviceInfo> found;
    WaitFor(
        [&]
        {
            for (AudioDeviceInfo& device : Platform::Current()->Audio().Devices())
            {
                if (device.uid == uid)
                {
                    found = device;
                    return true;
                }
            }
            return false;
        });
    return found;
}

constexpr size_t kPieceFrames = kRate / 50;  // 20 ms: whole periods of both tones
// Both tones together read about 0.4 RMS; a piece far below that is one in
// which the output did not flow (a host stall under a sanitizer), whatever
// the gains.
constexpr double kFlowingRms = 0.2;

// The 20 ms pieces in which the output flowed.
std::vector<std::vector<float>> FlowingPieces(const std::vector<float>& samples)
{
    std::vector<std::vector<float>> pieces = tidemix::test::Pieces(samples, kPieceFrames);
    std::erase_if(pieces,
                  [](const std::vector<float>& piece) { return tidemix::test::Rms(piece) < kFlowingRms; });
    return pieces;
}

TEST(PipeWireMixRoad, TwoNodesMixIntoAThirdAtTheirBusGains)
{
    if (!PipeWireAudioSystem::Available())
    {
        GTEST_SKIP() << "this build has no PipeWire backend (libpipewire-0.3 was not found)";
    }
    std::string whyNot;
    if (!PipeWireAudioSystem::Connect(std::string(), &whyNot))
    {
        ASSERT_EQ(getenv("TIDEMIX_PIPEWIRE_PRIVATE"), nullptr)
            << "scripts/with-pipewire.sh started PipeWire, yet: " << whyNot;
        GTEST_SKIP() << "no PipeWire daemon reachable: " << whyNot
                     << "; run the suite under scripts/with-pipewire.sh";
    }
    auto peer = PipeWireTestPeer::Connect();
    ASSERT_TRUE(peer);
    std::shared_ptr<Platform> platform = Platform::Create("linux");
    ASSERT_TRUE(platform);
    Platform::Use(platform);
    ASSERT_TRUE(DRAVManager::GetDRAVManager()->Init().Succeeded());

    const std::string prefix = "tidemix-road-" + std::to_string(getpid()) + "-";
    auto voiceNode = peer->CreateNullSink(prefix + "voice", "Road Voice", "Audio/Duplex");
    auto musicNode = peer->CreateNullSink(prefix + "music", "Road Music", "Audio/Duplex");
    auto outputNode = peer->CreateNullSink(prefix + "out", "Road Output", "Audio/Sink");
    ASSERT_TRUE(voiceNode && musicNode && outputNode);
    const auto voice = WaitForDevice(prefix + "voice");
    const auto music = WaitForDevice(prefix + "music");
    const auto output = WaitForDevice(prefix + "out");
    ASSERT_TRUE(voice && music && output);
    auto voiceTone = peer->PlayTone(prefix + "voice", 1000.0, 0.5f);
    auto musicTone = peer->PlayTone(prefix + "music", 300.0, 0.5f);
    ASSERT_TRUE(voiceTone && musicTone);
    auto heard = std::make_shared<SampleCollector>(kRate * 120);
    auto recording = peer->RecordMonitor(prefix + "out", heard);
    ASSERT_TRUE(recording);

    {
        TestMixRoad road(2);
        DRAVResult voiceStarted;
        DRAVResult musicStarted;
        ASSERT_TRUE(road.SetSource(0, TestMixRoad::StartCapture(voice->id, &voiceStarted)).Succeeded());
        ASSERT_TRUE(road.SetSource(1, TestMixRoad::StartCapture(music->id, &musicStarted)).Succeeded());
        ASSERT_TRUE(voiceStarted.Succeeded()) << voiceStarted.toString();
        ASSERT_TRUE(musicStarted.Succeeded()) << musicStarted.toString();
        ASSERT_TRUE(road.SetOutput(output->id).Succeeded());
        road.Mixer().SetInputVolume(0, 1.0);
        road.Mixer().SetInputVolume(1, 0.5);
        ASSERT_TRUE(road.Start().Succeeded());

        // Both tones at their gains, once the whole road carries sound: half
        // a second to settle, then two seconds of pieces in which it flowed.
        std::vector<std::vector<float>> pieces;
        size_t settledFrom = 0;
        ASSERT_TRUE(WaitFor(
            [&]
            {
                const size_t first = heard->FirstAbove(0.05f);
                if (first >= heard->Frames())
                {
                    return false;
                }
                settledFrom = first + kRate / 2;
                pieces = FlowingPieces(heard->Copy(settledFrom));
                return pieces.size() >= 100;
            }))
            << "the output node never played two seconds of the mix";
        const size_t allPieces = (heard->Frames() - settledFrom) / kPieceFrames;
        auto voiceRing = TestMixRoad::RingOf(road.Source(0));
        auto musicRing = TestMixRoad::RingOf(road.Source(1));
        printf(
            "pipewire road: %zu of %zu pieces flowed; sink underruns %lld, blocks dropped %lld; "
            "rings: overruns %lld/%lld, short pulls %lld/%lld\n",
            pieces.size(), allPieces, static_cast<long long>(road.Sink().GetUnderrunCount()),
            static_cast<long long>(road.Sink().GetDroppedBlockCount()),
            static_cast<long long>(voiceRing ? voiceRing->GetOverrunCount() : -1),
            static_cast<long long>(musicRing ? musicRing->GetOverrunCount() : -1),
            static_cast<long long>(voiceRing ? voiceRing->GetShortPullCount() : -1),
            static_cast<long long>(musicRing ? musicRing->GetShortPullCount() : -1));
        EXPECT_NEAR(tidemix::test::WholeToneAmplitude(pieces, kRate, 1000.0), 0.5, 0.5 * 0.05);
        EXPECT_NEAR(tidemix::test::WholeToneAmplitude(pieces, kRate, 300.0), 0.25, 0.25 * 0.05);
        road.Stop();
    }
    DRAVManager::GetDRAVManager()->Deinit();
    Platform::Use(nullptr);
}
}  // namespace
