// The manager with its real device and power observers and its real main
// microphone on the simulated platform, mixing for real.

#include <gtest/gtest.h>

#include "control/DRMXAudioUnitInterface.h"
#include "control/DRMXInput.h"
#include "control/DRMXManager.h"
#include "control/DRMXMicrophone.h"
#include "control/DRMXOutput.h"
#include "engine/DRAVManager.h"
#include "observers/DRMXDeviceObserverCoreAudio.h"
#include "observers/DRMXDeviceObserverUSB.h"
#include "observers/appaudio/DRMXDeviceObserverAppAudio.h"
#include "platform/Platform.h"
#include "platform/sim/SimPlatform.h"
#include "portable-core/DRAVPropertyNames.h"
#include "support/MixObjectsTestSupport.h"
#include "support/ObserverTestSupport.h"

namespace
{
using namespace DRMX_Settings;
using tidemix::platform::Platform;
using tidemix::platform::sim::SimDeviceSpec;
using tidemix::platform::sim::SimPlatform;
using tidemix::test::ObserverRecorder;
using tidemix::test::PlugSimMicrophone;
using tidemix::test::SettleObservers;
using tidemix::test::SimMicrophone;
using tidemix::test::UnplugSimMicrophone;
using Events = std::vector<std::string>;

class ManagerObservers : public ::testing::Test
{
protected:
    void SetUp() override
    {
        platform_ = std::make_shared<SimPlatform>();
        Platform::Use(platform_);
        DRMXDeviceObserverCoreAudio::ResetMainMicrophoneID();
        tidemix::test::AddSimMicrophone(platform_->World(), "tone", {}, 480, {});
        tidemix::test::AddSimSpeaker(platform_->World(), "phones");
        tidemix::test::AddSimSpeaker(platform_->World(), "stream");
        microphone_ = PlugSimMicrophone(*platform_, 0x0B21, "MIC1");

        manager_ = DRMXManager::GetDRMXManager();
        ASSERT_TRUE(manager_->Init("").Succeeded());
        manager_->AttachDeviceChangeObserver(recorder_.Property(), kDeviceNotificationAny);
        manager_->UpdateMainMicrophoneCache();
        ASSERT_TRUE(tidemix::test::LayOutToneMixes(*manager_));
        ASSERT_TRUE(manager_->StartMixing().Succeeded());
    }

    void TearDown() override
    {
        manager_->DetachDeviceChangeObserver(recorder_.Property());
        tidemix::test::EmptyMixes(*manager_);
        manager_->Deinit();
        DRAVManager::GetDRAVManager()->Deinit();
        Platform::Use(nullptr);
    }

    std::shared_ptr<DRMXMicrophone> CachedMicrophone()
    {
        std::shared_ptr<DRMXMicrophoneInterface> microphone;
        manager_->GetMicrophoneInterface(DRMXInputSelector(), &microphone);
        return std::dynamic_pointer_cast<DRMXMicrophone>(microphone);
    }

    std::shared_ptr<DRMXMicrophoneInterface> ControlObject(const std::string& serial)
    {
        return DRMXDeviceObserverUSB::Shared()->GetMicrophoneInterfaceWithHardwareID(serial).lock();
    }

    std::shared_ptr<SimPlatform> platform_;
    SimMicrophone microphone_;
    ObserverRecorder recorder_;
    DRMXManager* manager_ = nullptr;
};

TEST_F(ManagerObservers, DevicesComingAndGoingWhileMixingPostInOrder)
{
    const uint32_t speaker = platform_->World().AddDevice(SimDeviceSpec::Speaker("usb.speaker", "Speaker"));
    SettleObservers(*platform_);
    platform_->World().RemoveDevice(speaker);
    SettleObservers(*platform_);
    EXPECT_EQ(recorder_.Events(), (Events{"CoreAudioOutputsAddedNotification usb.speaker", "value 3",
                                          "CoreAudioOutputsRemovedNotification usb.speaker", "value 3"}));
    EXPECT_TRUE(manager_->IsMixing());

    // Disabled observers stay silent; the notification center still posts.
    recorder_.Clear();
    manager_->EnableDeviceNotification(false);
    platform_->World().AddDevice(SimDeviceSpec::Speaker("usb.speaker2", "Speaker 2"));
    SettleObservers(*platform_);
    manager_->EnableDeviceNotification(true);
    EXPECT_EQ(recorder_.Events(), (Events{"CoreAudioOutputsAddedNotification usb.speaker2"}));

    // An application's capture device made behind the gate is not reported
    // as a plug; the next comparison finds it.
    platform_->SimApps().Start({"app.player", "Player", tidemix::platform::ApplicationPolicy::Regular, {}});
    platform_->SimApps().FlushNotifications();
    SettleObservers(*platform_);
    recorder_.Clear();
    DRMXInputSelector app;
    app.SetType(kInputTypeAppAudio);
    app.SetHardwareId("app.player");
    std::string path;
    ASSERT_TRUE(DRMXDeviceObserverAppAudio::ActivateAppAudioDevice(app, path));
    SettleObservers(*platform_);
    EXPECT_TRUE(recorder_.Events().empty());
    platform_->World().RemoveDevice(speaker + 1);
    SettleObservers(*platform_);
    ASSERT_FALSE(recorder_.Events().empty());
    EXPECT_EQ(recorder_.Events().front(), "CoreAudioInputsAddedNotification tidemix-app.app.player");
    DRMXDeviceObserverAppAudio::DeactivateAppAudioDevice(app);
}

TEST_F(ManagerObservers, TheCachedMicrophoneFollowsItsDeviceAndOnlyOneIsMain)
{
    const auto firstControl = ControlObject("MIC1");
    ASSERT_NE(firstControl, nullptr);
    ASSERT_NE(CachedMicrophone(), nullptr);
    EXPECT_NE(CachedMicrophone()->GetHardwareId().find("MIC1"), std::string::npos);

    // A second microphone is a further one; the first stays main.
    const SimMicrophone second = PlugSimMicrophone(*platform_, 0x0B23, "MIC2");
    SettleObservers(*platform_);
    int mains = 0;
    for (const auto& input : manager_->GetAvailableInputs(kInputTypeAny))
    {
        mains += input.GetType() == kInputTypeMainMicrophone ? 1 : 0;
    }
    EXPECT_EQ(mains, 1);
    EXPECT_NE(manager_->GetMainMicrophoneInput().GetHardwareId().find("MIC1"), std::string::npos);
    UnplugSimMicrophone(*platform_, second);

    // Unplugged: no microphone is cached. Plugged again: a new control object,
    // and the cache follows it.
    UnplugSimMicrophone(*platform_, microphone_);
    SettleObservers(*platform_);
    EXPECT_EQ(CachedMicrophone(), nullptr);
    EXPECT_FALSE(manager_->IsMicrophoneConnected());
    microphone_ = PlugSimMicrophone(*platform_, 0x0B21, "MIC1");
    SettleObservers(*platform_);
    const auto secondControl = ControlObject("MIC1");
    ASSERT_NE(secondControl, nullptr);
    EXPECT_NE(secondControl, firstControl);
    EXPECT_TRUE(manager_->IsMicrophoneConnected());
    ASSERT_NE(CachedMicrophone(), nullptr);
    EXPECT_NE(CachedMicrophone()->GetHardwareId().find("MIC1"), std::string::npos);
}

TEST_F(ManagerObservers, SleepStopsMixingBeforeItIsAllowedAndWakeBringsTheSameLayoutBack)
{
    const auto microphone = CachedMicrophone();
    ASSERT_NE(microphone, nullptr);
    auto layout = [this]
    {
        std::vector<std::string> ids;
        for (const auto type : {kMixerLocal, kMixerStream})
        {
            for (const auto& input : manager_->GetMixerForType(type)->GetInputs())
            {
                ids.push_back(input->GetSelector().GetHardwareId());
            }
        }
        return ids;
    };
    const auto before = layout();
    std::atomic<bool> mixingWhenAllowed{true};
    std::atomic<bool> ledsOffWhenAllowed{false};
    platform_->PowerSource().SetSleepAllowedProbe(
        [&]
        {
            mixingWhenAllowed.store(manager_->IsMixing());
            ledsOffWhenAllowed.store(microphone->GetMicrophoneAllLEDOff());
        });
    platform_->PowerSource().Sleep();
    EXPECT_FALSE(mixingWhenAllowed.load());
    EXPECT_TRUE(ledsOffWhenAllowed.load()) << "the device's LEDs were still on as the machine went to sleep";
    EXPECT_FALSE(manager_->IsSystemAwake());
    EXPECT_FALSE(manager_->IsMicrophoneConnected()) << "asleep, no microphone is reported";

    platform_->PowerSource().Wake();
    EXPECT_TRUE(manager_->IsMixing());
    EXPECT_FALSE(microphone->GetMicrophoneAllLEDOff());
    EXPECT_EQ(layout(), before);

    // Without a cached microphone a sleep leaves everything as it is.
    UnplugSimMicrophone(*platform_, microphone_);
    SettleObservers(*platform_);
    ASSERT_EQ(CachedMicrophone(), nullptr);
    platform_->PowerSource().Sleep();
    EXPECT_TRUE(manager_->IsMixing());
    EXPECT_TRUE(manager_->IsSystemAwake());
}

}  // namespace

namespace
{
TEST_F(ManagerObservers, MixingNeedsTheMicrophoneAndItsControlsReachTheDevice)
{
    manager_->StopMixing();
    UnplugSimMicrophone(*platform_, microphone_);
    SettleObservers(*platform_);
    EXPECT_FALSE(manager_->StartMixing().Succeeded());
    EXPECT_FALSE(manager_->IsMixing());
    for (const auto type : {kMixerLocal, kMixerStream})
    {
        const auto mix = manager_->GetMixerForType(type);
        EXPECT_FALSE(std::dynamic_pointer_cast<DRMXAudioUnitInterface>(mix)->IsUnitStarted());
        EXPECT_FALSE(std::dynamic_pointer_cast<DRMXAudioUnitInterface>(mix->GetOutput())->IsUnitStarted());
    }

    microphone_ = PlugSimMicrophone(*platform_, 0x0B21, "MIC1");
    SettleObservers(*platform_);
    ASSERT_TRUE(manager_->StartMixing().Succeeded());
    const auto microphone = CachedMicrophone();
    ASSERT_NE(microphone, nullptr);
    EXPECT_TRUE(microphone->IsUnitStarted()) << "the microphone's capture source runs while mixing";
    microphone->SetDoubleProperty(kPropertyMicrophoneGain, 0.75);
    microphone->SetBoolProperty(kPropertyMicrophoneMute, true);
    // A control object of its own reads what the device now holds.
    const auto control = ControlObject("MIC1");
    ASSERT_NE(control, nullptr);
    int bytes = 0;
    ASSERT_TRUE(control->ReadMicrophoneConfiguration(bytes).Succeeded());
    EXPECT_NEAR(control->GetMicrophoneGain(), 0.75, 0.01);
    EXPECT_TRUE(control->GetMicrophoneMute());
}
}  // namespace

namespace
{
std::shared_ptr<DRMXInputInterface> InputOf(const std::shared_ptr<DRMXMixerBase>& mix,
                                            const std::string& hardwareId)
{
    for (const auto& input : mix->GetInputs())
    {
        if (input && input->GetSelector().GetHardwareId() == hardwareId)
        {
            return input;
        }
    }
    return nullptr;
}
}  // namespace

// An application offered as an input goes into both mixes with one capture
// device. When the local mix lets its input go, the device goes and the entry
// the stream mix's input names is empty: that input starts with nothing, and
// mixing goes on.
TEST_F(ManagerObservers, AnApplicationInBothMixesSharesOneDeviceUntilOneInputGoes)
{
    auto& apps = platform_->SimApps();
    ASSERT_TRUE(apps.Start({"app.shared", "Shared", tidemix::platform::ApplicationPolicy::Regular,
                            tidemix::platform::sim::SimSignal::Sine(660.0, 0.5)}));
    apps.FlushNotifications();
    SettleObservers(*platform_);
    const auto offered = manager_->GetAvailableInputs(kInputTypeAppAudio);
    const auto app = std::find_if(offered.begin(), offered.end(),
                                  [](const auto& s) { return s.GetHardwareId() == "app.shared"; });
    ASSERT_NE(app, offered.end());
    EXPECT_EQ(app->GetType(), kInputTypeAppAudio);

    manager_->StopMixing();
    DRMXInputSelector selector = *app;
    selector.SetMixerNodeID(2);
    ASSERT_TRUE(manager_->AddInput(selector).Succeeded());
    EXPECT_EQ(apps.CaptureDevicesCreated(), 1);
    const auto local = manager_->GetMixerForType(kMixerLocal);
    const auto stream = manager_->GetMixerForType(kMixerStream);
    for (const auto& mix : {local, stream})
    {
        ASSERT_TRUE(mix->ConfigureMixerNodes().Succeeded());
    }
    ASSERT_TRUE(manager_->StartMixing().Succeeded());
    const auto streamApp = InputOf(stream, "app.shared");
    ASSERT_NE(streamApp, nullptr);
    EXPECT_TRUE(std::dynamic_pointer_cast<DRMXAudioUnitInterface>(streamApp)->IsUnitStarted());

    manager_->StopMixing();
    local->ReplaceInput(InputOf(local, "app.shared"), nullptr);
    EXPECT_EQ(apps.SoundDevice("app.shared"), 0u);
    EXPECT_EQ(DRMXInput::GetDevicePathForSelector(selector), "");
    EXPECT_TRUE(manager_->StartMixing().Succeeded());
    EXPECT_TRUE(manager_->IsMixing());
    EXPECT_FALSE(std::dynamic_pointer_cast<DRMXAudioUnitInterface>(streamApp)->IsUnitStarted());
    apps.Quit("app.shared");
}
