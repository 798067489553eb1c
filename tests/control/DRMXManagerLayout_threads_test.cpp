// The manager's reconfiguration of running mixes on the simulated platform:
// layout changes, selector changes, and the two at once from several threads.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "control/DRMXAudioUnitInterface.h"
#include "control/DRMXManager.h"
#include "engine/DRAVManager.h"
#include "observers/DRMXDeviceObserverCoreAudio.h"
#include "platform/Platform.h"
#include "platform/sim/SimPlatform.h"
#include "support/MixObjectsTestSupport.h"
#include "support/ObserverTestSupport.h"

namespace
{
using namespace DRMX_Settings;
using tidemix::platform::Platform;
using tidemix::platform::sim::SimPlatform;

// Inputs take their node's slot from the selector: the further input is in slot 2.
DRMXInputSelector Input(const std::string& uid, DRMXInputType type = kInputTypeHardware)
{
    DRMXInputSelector selector;
    selector.SetMixerNodeID(2);
    selector.SetType(type);
    selector.SetHardwareId(uid);
    selector.SetName(uid);
    return selector;
}

DRMXOutputSelector Output(const std::string& uid)
{
    DRMXOutputSelector selector;
    selector.SetType(kOutputTypeHardware);
    selector.SetHardwareId(uid);
    return selector;
}

class ManagerLayout : public ::testing::Test
{
protected:
    void SetUp() override
    {
        platform_ = std::make_shared<SimPlatform>();
        Platform::Use(platform_);
        DRMXDeviceObserverCoreAudio::ResetMainMicrophoneID();
        for (const char* uid : {"music", "aux"})
        {
            tidemix::test::AddSimMicrophone(platform_->World(), uid, {}, 480, {});
        }
        tidemix::test::AddSimSpeaker(platform_->World(), "phones");
        tidemix::test::AddSimSpeaker(platform_->World(), "stream");
        tidemix::test::AddSimSpeaker(platform_->World(), "spare");
        mic_ = tidemix::test::PlugSimMicrophone(*platform_, 0x0B21, "MIC1");
        manager_ = DRMXManager::GetDRMXManager();
        ASSERT_TRUE(manager_->Init("").Succeeded());
        manager_->UpdateMainMicrophoneCache();
        microphone_ = manager_->GetMainMicrophoneInput();
        ASSERT_FALSE(microphone_.GetInputID().empty());
        microphone_.SetMixerNodeID(1);
    }

    void TearDown() override
    {
        tidemix::test::EmptyMixes(*manager_);
        manager_->Deinit();
        DRAVManager::GetDRAVManager()->Deinit();
        Platform::Use(nullptr);
    }

    // The microphone and one further input in both mixes.
    DRAVResult LayOut(const std::string& further)
    {
        return manager_->ConfigureMixer(DRMXManager::kReconfigureLayout,
                                        [&]
                                        {
                                            manager_->SetOutputOnMixer(kMixerLocal, Output("phones"));
                                            manager_->SetOutputOnMixer(kMixerStream, Output("stream"));
                                            manager_->AddInput(microphone_);
                                            manager_->AddInput(Input(further));
                                        });
    }

    std::vector<std::string> LocalInputs()
    {
        DRMXMixerConfiguration configuration;
        EXPECT_TRUE(manager_->GetMixerConfiguration(configuration).Succeeded());
        std::vector<std::string> ids;
        for (const auto& input : configuration.mixerInputsLocal)
        {
            ids.push_back(input.GetHardwareId());
        }
        return ids;
    }

    std::shared_ptr<SimPlatform> platform_;
    DRMXManager* manager_ = nullptr;
    tidemix::test::SimMicrophone mic_;
    DRMXInputSelector microphone_;
};

TEST_F(ManagerLayout, ALayoutChangeBuildsBothMixesAndTheUsersDeviceCarriesTheStreamMixToo)
{
    ASSERT_TRUE(LayOut("music").Succeeded());
    EXPECT_TRUE(manager_->IsMixing());
    DRMXMixerConfiguration configuration;
    ASSERT_TRUE(manager_->GetMixerConfiguration(configuration).Succeeded());
    EXPECT_EQ(configuration.mixerOutputLocal.GetHardwareId(), "phones");
    EXPECT_EQ(configuration.mixerOutputStream.GetHardwareId(), "stream");
    ASSERT_EQ(configuration.mixerInputsLocal.size(), 2u);
    ASSERT_EQ(configuration.mixerInputsStream.size(), 2u);
    EXPECT_EQ(configuration.mixerInputsStream[1].GetHardwareId(), "music");
    const auto monitoring = manager_->GetMixerForType(kMixerStream)->GetMonitoringOutput();
    ASSERT_NE(monitoring, nullptr);
    EXPECT_EQ(monitoring->GetSelector().GetHardwareId(), "phones");

    // The input of both mixes is found as the stream mix's object.
    std::shared_ptr<DRMXInputInterface> found;
    ASSERT_TRUE(manager_->FindInput(Input("music"), &found).Succeeded());
    EXPECT_EQ(found, manager_->GetMixerForType(kMixerStream)->GetInputs()[1]);

    // A layout change always starts from empty mixes.
    ASSERT_TRUE(LayOut("aux").Succeeded());
    EXPECT_EQ(LocalInputs(), (std::vector<std::string>{microphone_.GetHardwareId(), "aux"}));
}

TEST_F(ManagerLayout, RefusalsAndChangesThatChangeNothing)
{
    // Without a microphone nothing is reconfigured, and the change isn't called.
    bool called = false;
    tidemix::test::UnplugSimMicrophone(*platform_, mic_);
    tidemix::test::SettleObservers(*platform_);
    EXPECT_EQ(manager_->ConfigureMixer(DRMXManager::kReconfigureSelectors, [&] { called = true; }).GetCode(),
              kDRAVResultErrNotInitialized);
    EXPECT_FALSE(called);
    EXPECT_EQ(manager_->ConfigureMixer(DRMXManager::kReconfigureLayout, nullptr).GetCode(),
              kDRAVResultErrNullPointer);
    mic_ = tidemix::test::PlugSimMicrophone(*platform_, 0x0B21, "MIC1");
    tidemix::test::SettleObservers(*platform_);
    EXPECT_EQ(manager_->StopMixingOnInput(Input("music"), false).GetCode(), kDRAVResultOkNoDataChanged);

    ASSERT_TRUE(LayOut("music").Succeeded());
    EXPECT_EQ(manager_->AddInput(Input("aux")).GetCode(), kDRAVResultErrInvalidState);
    EXPECT_EQ(manager_->GetMixerForType(kMixerLocal)->GetInputs().size(), 2u);
    EXPECT_EQ(manager_->SetInputOnMixer(kMixerLocal, Input("aux"), 2).GetCode(), -17);
    // Equal by inputId: another name changes nothing.
    DRMXInputSelector renamed = Input("music");
    renamed.SetName("Music, renamed");
    ASSERT_TRUE(manager_->SetInputOnMixer(kMixerLocal, renamed, 1).Succeeded());
    EXPECT_EQ(manager_->GetMixerForType(kMixerLocal)->GetInputs()[1]->GetSelector().GetName(), "music");
    // The stream mix's output leaves the local mix alone.
    ASSERT_TRUE(manager_->SetOutputOnMixer(kMixerStream, Output("spare")).Succeeded());
    EXPECT_EQ(manager_->GetMixerForType(kMixerLocal)->GetOutput()->GetSelector().GetHardwareId(), "phones");
    EXPECT_EQ(manager_->GetMixerForType(kMixerStream)->GetOutput()->GetSelector().GetHardwareId(), "spare");
    EXPECT_EQ(manager_->GetMixerForType(kMixerStream)->GetMonitoringOutput()->GetSelector().GetHardwareId(),
              "phones");
}

// A channel moved to another device while the mixes run: the node follows
// and the input runs on the new device without a restart of the mix.
TEST_F(ManagerLayout, SelectorChangesMoveARunningInput)
{
    ASSERT_TRUE(LayOut("music").Succeeded());
    ASSERT_TRUE(manager_
                    ->ConfigureMixer(DRMXManager::kReconfigureSelectors,
                                     [&] { manager_->SetInputOnMixer(kMixerLocal, Input("aux"), 1); })
                    .Succeeded());
    EXPECT_TRUE(manager_->IsMixing());
    ASSERT_EQ(LocalInputs().size(), 2u);
    EXPECT_EQ(LocalInputs()[1], "aux");
    const auto input = manager_->GetMixerForType(kMixerLocal)->GetInputs()[1];
    EXPECT_TRUE(std::dynamic_pointer_cast<DRMXAudioUnitInterface>(input)->IsUnitStarted());
    std::shared_ptr<DRMXMixerNodeBase> node;
    EXPECT_TRUE(manager_->GetMixerNode(kMixerLocal, Input("aux"), &node).Succeeded());
}

// Layout changes on one thread, selector moves on another, the layout read on
// a third: no crash or deadlock, and the end is one of the two layouts.
TEST_F(ManagerLayout, LayoutAndSelectorChangesFromThreeThreads)
{
    ASSERT_TRUE(LayOut("music").Succeeded());
    std::atomic<bool> done{false};
    std::thread layouts(
        [&]
        {
            for (int i = 0; i < 6; ++i)
            {
                LayOut(i % 2 ? "aux" : "music");
            }
            done.store(true);
        });
    std::thread moves(
        [&]
        {
            for (int i = 0; !done.load(); ++i)
            {
                manager_->SetInputOnMixer(kMixerLocal, Input(i % 2 ? "aux" : "music"), 1);
            }
        });
    std::thread reads(
        [&]
        {
            while (!done.load())
            {
                DRMXMixerConfiguration configuration;
                manager_->GetMixerConfiguration(configuration);
            }
        });
    layouts.join();
    moves.join();
    reads.join();
    const auto inputs = LocalInputs();
    ASSERT_EQ(inputs.size(), 2u);
    EXPECT_EQ(inputs[0], microphone_.GetHardwareId());
    EXPECT_TRUE(inputs[1] == "aux" || inputs[1] == "music") << inputs[1];
}

}  // namespace
