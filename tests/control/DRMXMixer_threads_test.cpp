// Mixes as control objects, and running mixes on the simulated platform: two
// tones on their own buses, measured at the devices the mixes play to. The
// mixes run their own audio threads, so these tests also run under
// ThreadSanitizer.

#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "control/DRMXInput.h"
#include "control/DRMXMixer.h"
#include "control/DRMXOutput.h"
#include "engine/DRAVManager.h"
#include "engine/sinks/DRAVSinkMakers.h"
#include "platform/Platform.h"
#include "platform/sim/SimPlatform.h"
#include "portable-core/DRAVPropertyNames.h"
#include "support/MixObjectsTestSupport.h"
#include "support/SimAudioAnalysis.h"

namespace
{
using namespace DRMX_Settings;
using tidemix::platform::Platform;
using tidemix::platform::SampleEncoding;
using tidemix::platform::sim::SimPlatform;
using tidemix::platform::sim::SimSignal;

constexpr int64_t kBlockFrames = 960;

using tidemix::test::InputFor;
using tidemix::test::OutputFor;

std::shared_ptr<DRMXMixer> MixOf(const std::vector<std::string>& inputs, const std::string& output,
                                 DRMXMixerType type = kMixerLocal)
{
    auto mix = std::make_shared<DRMXMixer>("Local Mixer", type);
    EXPECT_TRUE(mix->SetBufferSizeFrameCount(kBlockFrames).Succeeded());
    int nodeId = 1;
    for (const auto& uid : inputs)
    {
        auto input = std::make_shared<DRMXInput>(InputFor(uid, nodeId++));
        EXPECT_TRUE(input->SetBufferSizeFrameCount(kBlockFrames).Succeeded());
        mix->AddInput(input);
    }
    auto out = std::make_shared<DRMXOutput>(OutputFor(output));
    EXPECT_TRUE(out->SetBufferSizeFrameCount(kBlockFrames).Succeeded());
    out->SetOutputLevel(1.0);
    mix->SetOutput(out);
    EXPECT_TRUE(mix->ConfigureMixerNodes().Succeeded());
    for (const auto& node : mix->GetMixerNodes())
    {
        node->SetGain(1.0);
    }
    return mix;
}

std::shared_ptr<DRMXMixerNodeBase> NodeOf(DRMXMixer& mix, const std::string& uid)
{
    for (const auto& node : mix.GetMixerNodes())
    {
        if (node->GetInputSelector().GetHardwareId() == uid)
        {
            return node;
        }
    }
    return nullptr;
}

// Inputs and output first, then the mix, as the manager starts them.
DRAVResult Start(DRMXMixer& mix)
{
    const DRAVTimestamp ts(0);
    for (const auto& input : mix.GetInputs())
    {
        std::dynamic_pointer_cast<DRMXInput>(input)->AudioUnitStart(ts);
    }
    const DRAVResult output = std::dynamic_pointer_cast<DRMXOutput>(mix.GetOutput())->AudioUnitStart(ts);
    return output.Succeeded() ? mix.AudioUnitStart(ts) : output;
}

// A stopped mix: no unit, so what needs one says so.
TEST(DRMXMixer, WithoutAUnitTheMixAnswersPlainly)
{
    auto mix = std::make_shared<DRMXMixer>("Remote Mixer", kMixerStream);
    int slots = 0;
    mix->EnumerateMixerNodes(
        [&slots](const std::shared_ptr<DRMXMixerNodeBase>& node, bool*)
        {
            ++slots;
            EXPECT_EQ(node->GetFriendlyName(), "Empty node");
            EXPECT_EQ(node->GetSelector().nodeId, -1);
        });
    EXPECT_EQ(slots, 9);
    EXPECT_TRUE(mix->GetMixerNodes().empty());

    auto node = std::make_shared<DRMXMixerNodeBase>("n", nullptr, InputFor("a", 1), DRMXOutputSelector());
    EXPECT_EQ(mix->GetMixerOutputVULevel(0), -1000.0);
    EXPECT_EQ(mix->GetMixerNodeVULevel(node, 0), -1000.0);
    EXPECT_EQ(mix->GetMixerNodeGain(node), 0.0);
    EXPECT_EQ(mix->SetMixerNodeGain(node, 0.5).GetCode(), kDRAVResultErrNotInitialized);
    EXPECT_EQ(mix->SetMixerNodeGain(nullptr, 0.5).GetCode(), kDRAVResultErrInvalidParameter);
    EXPECT_EQ(mix->SetMixerOutputLevel(0.5, nullptr).GetCode(), kDRAVResultErrNotInitialized);
    // Without an output no node can be made and a start is refused.
    std::shared_ptr<DRMXMixerNodeBase> made;
    EXPECT_EQ(mix->CreateMixerNode(InputFor("a", 1), &made).GetCode(), kDRAVResultErrNullPointer);
    mix->AddInput(std::make_shared<DRMXInput>(InputFor("a", 1)));
    EXPECT_EQ(mix->AudioUnitStart(DRAVTimestamp(0)).GetCode(), kDRAVResultErrNotInitialized);
    EXPECT_FALSE(mix->IsUnitStarted());

    for (const int64_t frames : {int64_t{0}, int64_t{-1}, int64_t{48001}})
    {
        EXPECT_EQ(mix->SetBufferSizeFrameCount(frames).GetCode(), kDRAVResultErrInvalidParameter) << frames;
    }
    mix->SetIntProperty(kPropertyAudioBufferSizeFrameCount, 960);
    EXPECT_EQ(mix->GetIntProperty(kPropertyAudioBufferSizeFrameCount), 960);
}

// Which output the monitor selection mutes, and the missing outputs it reports.
TEST(DRMXMixer, StreamMonitorMutesOneOfTheTwoOutputsTheUserHears)
{
    // Engine mutes before the call are the opposite of those expected after
    // it, except on an output the call must leave alone.
    struct Case
    {
        DRMXMixerType type;
        bool output;
        bool monitoring;
        bool enable;
        int result;
        bool outputMuteAfter;
        bool monitoringMuteAfter;
    };
    const Case cases[] = {
        {kMixerStream, false, true, true, kDRAVResultErrNullPointer, false, false},
        {kMixerStream, true, false, true, kDRAVResultErrNullPointer, false, false},
        {kMixerLocal, false, false, true, kDRAVResultErrNullPointer, false, false},
        {kMixerStream, true, true, true, kDRAVResultOk, true, false},
        {kMixerStream, true, true, false, kDRAVResultOk, false, true},
        {kMixerLocal, true, true, true, kDRAVResultOk, true, false},
        {kMixerLocal, true, true, false, kDRAVResultOk, false, true},
    };
    for (const Case& c : cases)
    {
        DRMXMixerBase mix("mix", nullptr, c.type);
        auto output = std::make_shared<DRMXOutputBase>("out");
        auto monitoring = std::make_shared<DRMXOutputBase>("monitor");
        const bool touchesOutput = c.type == kMixerLocal;
        output->SetEngineMute(touchesOutput ? !c.outputMuteAfter : c.outputMuteAfter);
        monitoring->SetEngineMute(touchesOutput ? c.monitoringMuteAfter : !c.monitoringMuteAfter);
        if (c.output)
        {
            mix.SetOutput(output);
        }
        if (c.monitoring)
        {
            mix.SetMonitoringOutput(monitoring);
        }
        const std::string at = "case " + std::to_string(&c - cases);
        ASSERT_EQ(mix.EnableStreamMonitor(c.enable).GetCode(), c.result) << at;
        if (c.result == kDRAVResultOk)
        {
            EXPECT_EQ(output->GetEngineMute(), c.outputMuteAfter) << at;
            EXPECT_EQ(monitoring->GetEngineMute(), c.monitoringMuteAfter) << at;
        }
    }
}

// Nodes are made from the inputs' selectors; a tenth finds no slot, yet its
// input still learns the id of the node that wasn't kept. A new output mutes
// and stops the old one.
TEST(DRMXMixer, NodesFillNineSlotsAndANewOutputStopsTheOldOne)
{
    std::vector<std::string> uids;
    for (int i = 0; i < 10; ++i)
    {
        uids.push_back("in" + std::to_string(i));
    }
    auto mix = MixOf(uids, "out");
    const auto nodes = mix->GetMixerNodes();
    ASSERT_EQ(nodes.size(), 9u);
    for (size_t i = 0; i < nodes.size(); ++i)
    {
        EXPECT_EQ(nodes[i]->GetSelector().nodeId, static_cast<int>(i) + 1);
    }
    EXPECT_EQ(NodeOf(*mix, "in9"), nullptr);
    EXPECT_EQ(mix->GetInputs()[9]->GetSelector().GetMixerNodeId(), 10);

    // Erasing an input frees its slot; EraseAllChannels empties the mix.
    ASSERT_TRUE(mix->StopMixingOnInput(InputFor("in3", 0), true).Succeeded());
    EXPECT_EQ(mix->GetInputs().size(), 9u);
    EXPECT_EQ(mix->GetMixerNodes().size(), 8u);
    EXPECT_EQ(NodeOf(*mix, "in3"), nullptr);

    auto old = std::make_shared<DRMXOutputBase>("old");
    mix->SetOutput(old);
    old->AudioUnitStart(DRAVTimestamp(0));  // the base only marks itself started
    ASSERT_TRUE(old->IsUnitStarted());
    mix->SetOutput(std::make_shared<DRMXOutputBase>("new"));
    EXPECT_TRUE(old->GetOutputMute());
    EXPECT_FALSE(old->IsUnitStarted());

    mix->EraseAllChannels();
    EXPECT_TRUE(mix->GetInputs().empty());
    EXPECT_TRUE(mix->GetMixerNodes().empty());
    EXPECT_EQ(mix->GetOutput(), nullptr);
}

class RunningMix : public ::testing::Test
{
protected:
    void SetUp() override
    {
        static std::once_flag sinkMakers;
        std::call_once(sinkMakers, DRAVInstallSinkMakers);
        platform_ = std::make_shared<SimPlatform>();
        Platform::Use(platform_);
        ASSERT_TRUE(DRAVManager::GetDRAVManager()->Init().Succeeded());
        tone1k_ = AddTone("tone1k", 1000.0);
        AddTone("tone440", 440.0);
        phones_ = tidemix::test::AddSimSpeaker(platform_->World(), "phones");
        stream_ = tidemix::test::AddSimSpeaker(platform_->World(), "stream");
    }

    void TearDown() override
    {
        for (const auto& mix : mixes_)
        {
            mix->StopMixing();
        }
        mixes_.clear();
        DRAVManager::GetDRAVManager()->Deinit();
        Platform::Use(nullptr);
    }

    uint32_t AddTone(const std::string& uid, double frequency)
    {
        return tidemix::test::AddSimMicrophone(platform_->World(), uid,
                                               {48000, 1, SampleEncoding::Float32, true}, 480,
                                               SimSignal::Sine(frequency, 0.5));
    }

    std::shared_ptr<DRMXMixer> Running(const std::vector<std::string>& inputs, const std::string& output)
    {
        auto mix = MixOf(inputs, output);
        mixes_.push_back(mix);
        EXPECT_TRUE(Start(*mix).Succeeded());
        return mix;
    }

    // A tone's amplitude at the device, in the pieces that carry it whole.
    double Amplitude(uint32_t device, double frequency, double seconds = 0.6)
    {
        const auto samples = tidemix::test::RecordFirstChannel(platform_->World(), device, seconds, 0.2);
        return tidemix::test::WholeToneAmplitude(tidemix::test::Pieces(samples, kBlockFrames), 48000.0,
                                                 frequency);
    }

    // What is left of a tone at the device, over a window of whole periods of
    // both tones: in 20 ms pieces the 440 Hz tone leaks into the 1000 Hz bin.
    double Residue(uint32_t device, double frequency)
    {
        const auto samples = tidemix::test::RecordFirstChannel(platform_->World(), device, 0.5, 0.2);
        return samples.empty() ? 1.0 : tidemix::test::ToneAmplitude(samples, 48000.0, frequency);
    }

    std::shared_ptr<SimPlatform> platform_;
    std::vector<std::shared_ptr<DRMXMixer>> mixes_;
    uint32_t tone1k_ = 0;
    uint32_t phones_ = 0;
    uint32_t stream_ = 0;
};

// Gains set through the nodes' properties reach their buses; a muted node's
// bus is silent in every piece, and unmuting brings back the gain set
// meanwhile.
TEST_F(RunningMix, NodeGainAndMuteReachTheirBus)
{
    auto mix = Running({"tone1k"}, "phones");
    auto node = NodeOf(*mix, "tone1k");
    ASSERT_NE(node, nullptr);
    node->SetDoubleProperty(kPropertyNodeGain, 0.5);
    EXPECT_NEAR(Amplitude(phones_, 1000.0), 0.25, 0.0125);

    node->SetBoolProperty(kPropertyNodeMute, true);
    node->SetDoubleProperty(kPropertyNodeGain, 0.8);
    EXPECT_EQ(mix->GetMixerNodeGain(node), 0.0);
    const auto muted = tidemix::test::RecordFirstChannel(platform_->World(), phones_, 0.5, 0.1);
    const auto pieces = tidemix::test::Pieces(muted, kBlockFrames);
    ASSERT_FALSE(pieces.empty());
    for (size_t i = 0; i < pieces.size(); ++i)
    {
        EXPECT_EQ(tidemix::test::Peak(pieces[i]), 0.0f) << "piece " << i;
    }

    node->SetBoolProperty(kPropertyNodeMute, false);
    EXPECT_NEAR(mix->GetMixerNodeGain(node), 0.8, 1e-6);
    EXPECT_NEAR(Amplitude(phones_, 1000.0), 0.4, 0.02);
}

// What the application sets on a running mix reaches the unit: the output's
// level, a new block size (handed on to output and inputs), a source replaced
// on its bus. A node without an input has no bus.
TEST_F(RunningMix, SettingsOfARunningMixReachTheUnit)
{
    auto mix = Running({"tone1k", "tone440"}, "phones");
    const auto unit = mix->GetFilter();
    ASSERT_NE(unit, nullptr);

    std::dynamic_pointer_cast<DRAVObject>(mix->GetOutput())->SetDoubleProperty(kPropertyOutputLevel, 0.5);
    EXPECT_DOUBLE_EQ(unit->GetOutputVolume(), 0.5);

    mix->SetIntProperty(kPropertyAudioBufferSizeFrameCount, 480);
    EXPECT_EQ(unit->GetProcessingBufferSizeFrameCount(), 480);
    EXPECT_EQ(std::dynamic_pointer_cast<DRMXOutput>(mix->GetOutput())->GetBufferSizeFrameCount(), 480);
    for (const auto& input : mix->GetInputs())
    {
        EXPECT_EQ(std::dynamic_pointer_cast<DRMXInput>(input)->GetBufferSizeFrameCount(), 480);
    }

    auto noInput =
        std::make_shared<DRMXMixerNodeBase>("n", nullptr, DRMXInputSelector(), DRMXOutputSelector());
    EXPECT_EQ(mix->SetMixerNodeGain(noInput, 0.5).GetCode(), kDRAVResultErrInvalidParameter);

    // A late input replaces the old one and its source goes on the old bus.
    const auto old = mix->GetInputs()[1];
    auto late = std::make_shared<DRMXInput>(old->GetSelector());
    ASSERT_TRUE(late->AudioUnitStart(DRAVTimestamp(0)).Succeeded());
    ASSERT_TRUE(mix->ReplaceInput(old, late).Succeeded());
    EXPECT_EQ(mix->GetInputs()[1], late);
    EXPECT_EQ(mix->ReplaceInput(nullptr, late).GetCode(), kDRAVResultErrNullPointer);
    late->AudioUnitStop();
}

// An input stopped on a running mix leaves its bus silent and stays in the
// list; the next start brings it back.
TEST_F(RunningMix, AStoppedInputComesBackWithTheNextStart)
{
    auto mix = Running({"tone1k", "tone440"}, "phones");
    ASSERT_TRUE(mix->StopMixingOnInput(InputFor("tone1k", 0), false).Succeeded());
    EXPECT_EQ(mix->GetInputs().size(), 2u);
    EXPECT_LT(Residue(phones_, 1000.0), 0.01);
    EXPECT_NEAR(Amplitude(phones_, 440.0), 0.5, 0.025);

    mix->StopMixing();
    EXPECT_EQ(mix->GetFilter(), nullptr);
    ASSERT_TRUE(Start(*mix).Succeeded());
    EXPECT_NEAR(Amplitude(phones_, 1000.0), 0.5, 0.025);
}

// A device taken away under a running input silences only its bus: the other
// input and the other mix play on and nothing stops.
TEST_F(RunningMix, ADeviceThatGoesSilencesOnlyItsBus)
{
    auto local = Running({"tone1k", "tone440"}, "phones");
    auto stream = Running({"tone440"}, "stream");
    ASSERT_TRUE(platform_->World().RemoveDevice(tone1k_));

    EXPECT_LT(Residue(phones_, 1000.0), 0.01);
    EXPECT_NEAR(Amplitude(phones_, 440.0), 0.5, 0.025);
    EXPECT_NEAR(Amplitude(stream_, 440.0), 0.5, 0.025);
    EXPECT_TRUE(local->IsUnitStarted());
    EXPECT_TRUE(stream->IsUnitStarted());
    EXPECT_NE(local->GetFilter(), nullptr);
}
}  // namespace
