// The manager on its real mixes, inputs and outputs on the simulated platform;
// only the main microphone is a stand-in. Audio threads and the level loop
// run, so this also runs under ThreadSanitizer.

#include <gtest/gtest.h>

#include <mutex>
#include <thread>

#include "control/DRMXInput.h"
#include "control/DRMXManager.h"
#include "control/DRMXMixer.h"
#include "control/DRMXOutput.h"
#include "control/DRMXPlatformHooks.h"
#include "control/ManagerFakes.h"
#include "engine/DRAVManager.h"
#include "platform/Platform.h"
#include "platform/sim/SimPlatform.h"
#include "portable-core/DRAVPropertyNames.h"
#include "support/MixObjectsTestSupport.h"
#include "support/ThreadsTestSupport.h"

namespace
{
using namespace DRMX_Settings;
using tidemix::platform::Platform;
using tidemix::platform::SampleEncoding;
using tidemix::platform::sim::SimPlatform;
using tidemix::platform::sim::SimSignal;

class ManagerOnRealMixes : public ::testing::Test
{
protected:
    void SetUp() override
    {
        platform_ = std::make_shared<SimPlatform>();
        Platform::Use(platform_);
        tidemix::test::AddSimMicrophone(platform_->World(), "tone", {48000, 1, SampleEncoding::Float32, true},
                                        480, SimSignal::Sine(1000.0, 0.5));
        tidemix::test::AddSimSpeaker(platform_->World(), "phones");
        tidemix::test::AddSimSpeaker(platform_->World(), "stream");
        microphone_ = std::make_shared<tidemix::test::FakeMicrophone>(events_);

        DRMXPlatformHooks hooks;
        hooks.createInput =
            [this](const DRMXInputSelector& selector, std::shared_ptr<DRMXInputInterface>* out)
        {
            if (selector.GetType() == kInputTypeMainMicrophone)
            {
                *out = microphone_;
            }
            else
            {
                *out = std::make_shared<DRMXInput>(selector);
            }
            return DRAVResult(kDRAVResultOk);
        };
        hooks.availableInputs = [](DRMXInputType type)
        {
            DRMXInputSelector microphone;
            microphone.SetType(kInputTypeMainMicrophone);
            microphone.SetHardwareId("microphone");
            return type == kInputTypeMainMicrophone ? std::vector<DRMXInputSelector>{microphone}
                                                    : std::vector<DRMXInputSelector>{};
        };
        formerHooks_ = DRMXSetPlatformHooks(hooks);
        manager_ = DRMXManager::GetDRMXManager();
        ASSERT_TRUE(manager_->Init("").Succeeded());
        manager_->UpdateMainMicrophoneCache();
        for (const auto& [type, output] :
             {std::pair{kMixerLocal, "phones"}, std::pair{kMixerStream, "stream"}})
        {
            const auto mix = manager_->GetMixerForType(type);
            ASSERT_NE(std::dynamic_pointer_cast<DRMXMixer>(mix), nullptr);
            DRMXInputSelector selector;
            selector.SetType(kInputTypeHardware);
            selector.SetHardwareId("tone");
            selector.SetMixerNodeID(1);
            std::shared_ptr<DRMXInputInterface> input;
            ASSERT_TRUE(manager_->CreateInput(selector, &input).Succeeded());
            // The mix's block size: a source cut otherwise is read out of step.
            EXPECT_EQ(std::dynamic_pointer_cast<DRMXInput>(input)->GetBufferSizeFrameCount(), 960);
            mix->AddInput(input);
            DRMXOutputSelector outputSelector;
            outputSelector.SetType(kOutputTypeHardware);
            outputSelector.SetHardwareId(output);
            auto out = std::make_shared<DRMXOutput>(outputSelector);
            out->SetBufferSizeFrameCount(manager_->GetAudioBufferFrameCount());
            mix->SetOutput(out);
            ASSERT_TRUE(mix->ConfigureMixerNodes().Succeeded());
        }
    }

    void TearDown() override
    {
        manager_->StopMixing();
        for (const auto type : {kMixerLocal, kMixerStream})
        {
            if (const auto mix = manager_->GetMixerForType(type))
            {
                mix->EraseAllChannels();
            }
        }
        manager_->Deinit();
        DRMXSetPlatformHooks(formerHooks_);
        DRAVManager::GetDRAVManager()->Deinit();
        Platform::Use(nullptr);
    }

    std::shared_ptr<DRMXMixer> Mix(DRMXMixerType type)
    {
        return std::dynamic_pointer_cast<DRMXMixer>(manager_->GetMixerForType(type));
    }

    std::shared_ptr<SimPlatform> platform_;
    tidemix::test::EventLog events_;
    std::shared_ptr<tidemix::test::FakeMicrophone> microphone_;
    DRMXPlatformHooks formerHooks_;
    DRMXManager* manager_ = nullptr;
};

// Every mix, input and output runs exactly while the manager says it mixes,
// and the level loop fills the meters from the running units.
TEST_F(ManagerOnRealMixes, StartAndStopFromTwoThreadsLeaveAConsistentState)
{
    ASSERT_TRUE(manager_->StartMixing().Succeeded());
    EXPECT_EQ(Mix(kMixerLocal)->GetBufferSizeFrameCount(), 960);
    const auto node = Mix(kMixerStream)->GetMixerNodes().at(0);
    const bool metered = threads_test::WaitUntil([&] { return node->GetVULevelChannel1() > 0.0; });
    EXPECT_TRUE(metered) << "the level loop never metered the running stream mix";

    auto churn = [this]
    {
        for (int i = 0; i < 100; ++i)
        {
            manager_->StartMixing();
            manager_->StopMixing();
        }
    };
    std::thread first(churn);
    std::thread second(churn);
    first.join();
    second.join();

    for (const bool mixing : {true, false})
    {
        if (mixing)
        {
            ASSERT_TRUE(manager_->StartMixing().Succeeded());
        }
        else
        {
            manager_->StopMixing();
        }
        ASSERT_EQ(manager_->IsMixing(), mixing);
        for (const auto type : {kMixerLocal, kMixerStream})
        {
            const auto mix = Mix(type);
            EXPECT_EQ(mix->GetFilter() != nullptr, mixing);
            EXPECT_EQ(std::dynamic_pointer_cast<DRMXOutput>(mix->GetOutput())->IsUnitStarted(), mixing);
            EXPECT_EQ(std::dynamic_pointer_cast<DRMXInput>(mix->GetInputs().at(0))->IsUnitStarted(), mixing);
        }
    }
}
}  // namespace
