// The observers of audio devices, USB microphones and power on the simulated
// platform: what each reports, in which order, and what the lists hold while
// devices come and go.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "microphones/DRMXMicrophoneHelper.h"
#include "microphones/DRMXMicrophoneReed.h"
#include "observers/DRMXDeviceObserverCoreAudio.h"
#include "observers/DRMXDeviceObserverUSB.h"
#include "observers/DRMXPowerStateObserverMac.h"
#include "platform/Platform.h"
#include "platform/sim/SimPlatform.h"
#include "support/ObserverTestSupport.h"

namespace
{
using namespace DRMX_Settings;
using tidemix::platform::Platform;
using tidemix::platform::sim::SimDeviceSpec;
using tidemix::platform::sim::SimPlatform;
using tidemix::platform::sim::SimUsbDeviceSpec;
using tidemix::test::ObserverRecorder;
using tidemix::test::PlugSimMicrophone;
using tidemix::test::SettleObservers;
using tidemix::test::UnplugSimMicrophone;
using Events = std::vector<std::string>;

class DeviceObservers : public ::testing::Test
{
protected:
    void SetUp() override
    {
        platform_ = std::make_shared<SimPlatform>();
        Platform::Use(platform_);
        DRMXDeviceObserverCoreAudio::ResetMainMicrophoneID();
        DRMXDeviceObserverCoreAudio::EnableDeviceObserverCallback();
    }
    void TearDown() override
    {
        // Observers of a property are the class's, not the object's: leave
        // none behind for the next test.
        for (const auto& observer : attached_)
        {
            observer->DetachObserver(recorder_.Property());
        }
        DRMXDeviceObserverCoreAudio::EnableDeviceObserverCallback();
        Platform::Use(nullptr);
    }

    template <typename Observer>
    std::shared_ptr<Observer> Attach(std::shared_ptr<Observer> observer, DRMXDeviceNotification notification)
    {
        observer->SetNotification(notification);
        observer->AttachObserver(recorder_.Property());
        attached_.push_back(observer);
        return observer;
    }

    std::shared_ptr<DRMXDeviceObserverCoreAudio> StartAudioObserver()
    {
        auto observer = Attach(std::make_shared<DRMXDeviceObserverCoreAudio>(), kDeviceNotificationCoreAudio);
        EXPECT_TRUE(observer->Init().Succeeded());
        return observer;
    }

    uint32_t AddSpeaker(const std::string& uid)
    {
        return platform_->World().AddDevice(SimDeviceSpec::Speaker(uid, uid));
    }

    std::shared_ptr<SimPlatform> platform_;
    ObserverRecorder recorder_;
    std::vector<std::shared_ptr<DRMXDeviceObserverBase>> attached_;
};

TEST_F(DeviceObservers, AudioChangesPostWhatCameAndWentAndFireOnlyWhenACountChanges)
{
    const uint32_t phones = AddSpeaker("phones");
    auto observer = StartAudioObserver();
    ASSERT_EQ(observer->GetOutputs().size(), 1u);
    EXPECT_TRUE(observer->GetOutputs()[0].isDefaultOutput);

    const uint32_t mic = platform_->World().AddDevice(SimDeviceSpec::Microphone("mic", "mic"));
    SettleObservers(*platform_);
    EXPECT_EQ(recorder_.Events(), (Events{"CoreAudioInputsAddedNotification mic", "value 3"}));

    // One device for another, the counts unchanged: posted, but no firing.
    recorder_.Clear();
    DRMXDeviceObserverCoreAudio::DisableDeviceObserverCallback();
    platform_->World().RemoveDevice(phones);
    AddSpeaker("speaker");
    platform_->World().FlushNotifications();
    DRMXDeviceObserverCoreAudio::EnableDeviceObserverCallback();
    observer->HandleDeviceObserverCallback();
    SettleObservers(*platform_);
    EXPECT_EQ(recorder_.Events(), (Events{"CoreAudioOutputsAddedNotification speaker",
                                          "CoreAudioOutputsRemovedNotification phones"}));

    // Disabled: the lists and the notifications go on, the property is silent,
    // and nothing is caught up afterwards.
    recorder_.Clear();
    observer->SetEnabled(false);
    platform_->World().RemoveDevice(mic);
    SettleObservers(*platform_);
    observer->SetEnabled(true);
    SettleObservers(*platform_);
    EXPECT_EQ(recorder_.Events(), (Events{"CoreAudioInputsRemovedNotification mic"}));
    EXPECT_TRUE(observer->GetInputs().empty());
}

TEST_F(DeviceObservers, TheFirstMicrophoneStaysMainUntilTheChoiceIsReset)
{
    ASSERT_TRUE(DRMXDeviceObserverUSB::MakeShared() || DRMXDeviceObserverUSB::Shared());
    DRMXDeviceObserverUSB::Shared()->Init();
    const auto first = PlugSimMicrophone(*platform_, 0x0B21, "AAA");
    const auto second = PlugSimMicrophone(*platform_, 0x0B21, "BBB");
    SettleObservers(*platform_);

    auto typeOf = [](const std::string& serial)
    {
        for (const auto& input : DRMXDeviceObserverCoreAudio::EnumInputs())
        {
            if (input.GetHardwareId().find(serial) != std::string::npos)
            {
                return input.GetType();
            }
        }
        return kInputTypeAny;
    };
    EXPECT_EQ(typeOf("AAA"), kInputTypeMainMicrophone);
    EXPECT_EQ(typeOf("BBB"), kInputTypeFurtherMicrophone);

    UnplugSimMicrophone(*platform_, first);
    SettleObservers(*platform_);
    EXPECT_EQ(typeOf("BBB"), kInputTypeFurtherMicrophone) << "the unplugged one is still remembered";
    DRMXDeviceObserverCoreAudio::ResetMainMicrophoneID();
    EXPECT_EQ(typeOf("BBB"), kInputTypeMainMicrophone);
    EXPECT_EQ(DRMXDeviceObserverCoreAudio::GetMainMicrophoneID().location, second.location & 0xFFFF);
}

// A Reed whose block answers 16 bytes runs 1.1.0 whatever its release says;
// with a 12-byte block its release number stands. A Reed Pro keeps its own.
TEST_F(DeviceObservers, FirmwareVersionComesFromTheBlockSizeOfAReed)
{
    ASSERT_TRUE(DRMXDeviceObserverUSB::MakeShared() || DRMXDeviceObserverUSB::Shared());
    DRMXDeviceObserverUSB::Shared()->Init();
    struct Case
    {
        uint16_t productId;
        int replyBytes;
        int64_t version;
    };
    for (const Case& c : {Case{0x0B23, -1, 0x110}, Case{0x0B23, 12, 0x103}, Case{0x0B25, -1, 0x103}})
    {
        SCOPED_TRACE(c.productId);
        auto spec = SimUsbDeviceSpec::Microphone(c.productId, "FW");
        spec.release = 0x103;
        const auto microphone = PlugSimMicrophone(*platform_, c.productId, "FW");
        platform_->UsbDevices().Unplug(microphone.location);
        platform_->UsbDevices().Plug(spec, microphone.location);
        platform_->UsbDevices().SetFaults(microphone.location, {.replyBytes = c.replyBytes});
        SettleObservers(*platform_);
        const auto inputs = DRMXDeviceObserverCoreAudio::EnumInputs();
        ASSERT_EQ(inputs.size(), 1u);
        EXPECT_EQ(inputs[0].fwVersion, c.version);
        UnplugSimMicrophone(*platform_, microphone);
        SettleObservers(*platform_);
    }
}

TEST_F(DeviceObservers, UsbListFollowsPlugEventsAndFindsByHardwareId)
{
    auto& observer = *Attach(std::make_shared<DRMXDeviceObserverUSB>(), kDeviceNotificationUSB);
    observer.Init();
    EXPECT_FALSE(observer.IsAnyMicrophoneConnected());

    const uint32_t dfu = platform_->UsbDevices().Plug(SimUsbDeviceSpec::Microphone(0x0B22, "DFU1"));
    SettleObservers(*platform_);
    EXPECT_EQ(recorder_.Events(), (Events{"value 1", "value 1"})) << "one at Init, one for the plug";
    EXPECT_TRUE(observer.IsAnyMicrophoneConnected());
    EXPECT_TRUE(observer.IsAnyDFUMicrophoneConnected());
    EXPECT_FALSE(observer.IsAnyAudioMicrophoneConnected());
    EXPECT_NE(observer.GetFirstDFUMicrophoneInterface().lock(), nullptr);

    platform_->UsbDevices().Plug(SimUsbDeviceSpec::Microphone(0x0B21, "RUN1"));
    SettleObservers(*platform_);
    EXPECT_TRUE(observer.IsAnyAudioMicrophoneConnected());
    const auto found = observer.GetMicrophoneInterfaceWithHardwareID("usb:RUN1:1").lock();
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->GetSerialNumber(), "RUN1");
    EXPECT_EQ(observer.GetMicrophoneInterfaceWithHardwareID("").lock(), nullptr)
        << "an empty id finds only a microphone without a serial number";

    // Without a serial number a microphone matches every id, first in line.
    platform_->UsbDevices().Unplug(dfu);
    platform_->UsbDevices().Plug(SimUsbDeviceSpec::Microphone(0x0B21, ""), dfu);
    SettleObservers(*platform_);
    auto any = observer.GetMicrophoneInterfaceWithHardwareID("usb:RUN1:1").lock();
    ASSERT_NE(any, nullptr);
    EXPECT_EQ(any->GetSerialNumber(), "");

    // A weak reference held elsewhere goes empty at the next plug event.
    std::weak_ptr<DRMXMicrophoneInterface> held = any;
    any.reset();
    platform_->UsbDevices().Plug(SimUsbDeviceSpec::Microphone(0x0B25, "PRO"));
    SettleObservers(*platform_);
    EXPECT_EQ(observer.GetMicrophones()->size(), 3u);
    EXPECT_TRUE(held.expired());
}

// A hundred plug events within a second while two readers walk the list: no
// reader ever sees a list in the middle of a rebuild, and the last list is
// what is plugged in.
TEST_F(DeviceObservers, PlugStormLeavesReadersWholeListsAndTheRightEnd)
{
    auto& observer = *Attach(std::make_shared<DRMXDeviceObserverUSB>(), kDeviceNotificationUSB);
    observer.Init();
    std::atomic<bool> stop{false};
    std::atomic<int> tornLists{0};
    auto reader = [&]
    {
        while (!stop.load())
        {
            const auto list = observer.GetMicrophones();
            // Every snapshot is one rebuild: every entry there, each with a serial.
            for (const auto& microphone : *list)
            {
                tornLists += microphone == nullptr || microphone->GetSerialNumber().empty() ? 1 : 0;
            }
            observer.IsAnyAudioMicrophoneConnected();
            observer.GetMicrophoneInterfaceWithHardwareID("S7");
        }
    };
    std::thread first(reader);
    std::thread second(reader);
    std::vector<uint32_t> plugged;
    for (int i = 0; i < 50; ++i)
    {
        plugged.push_back(platform_->UsbDevices().Plug(
            SimUsbDeviceSpec::Microphone(i % 2 ? 0x0B21 : 0x0B25, "S" + std::to_string(i))));
        if (i % 3 == 0)
        {
            platform_->UsbDevices().Unplug(plugged.front());
            plugged.erase(plugged.begin());
        }
    }
    SettleObservers(*platform_);
    stop.store(true);
    first.join();
    second.join();
    EXPECT_EQ(tornLists.load(), 0);
    EXPECT_EQ(observer.GetMicrophones()->size(), plugged.size());
}

TEST_F(DeviceObservers, PowerEventsBecomeStatesInOrderAndASleepWaitsForTheObservers)
{
    DRMXPowerStateObserverMac observer;
    std::vector<int64_t> states;
    std::atomic<bool> handled{false};
    KVObserverDelegate delegate(
        [&](void*, const std::string&, DRAVPropertyKVPair pair, KVCProperty*)
        {
            states.push_back(pair.GetInt());
            handled.store(pair.GetInt() == kPowerStateWillSleep);
        },
        nullptr);
    observer.AttachObserver(&delegate);
    const std::shared_ptr<void> detach(nullptr, [&](void*) { observer.DetachObserver(&delegate); });
    ASSERT_TRUE(observer.Init().Succeeded());
    bool handledWhenAllowed = false;
    platform_->PowerSource().SetSleepAllowedProbe([&] { handledWhenAllowed = handled.load(); });

    platform_->PowerSource().Wake();  // a wake with no sleep before it
    platform_->PowerSource().Sleep();
    platform_->PowerSource().Wake();
    EXPECT_EQ(states, (std::vector<int64_t>{0, 1, 0}));
    EXPECT_TRUE(handledWhenAllowed) << "the sleep was allowed before the observer had heard of it";

    // A disabled observer stays silent; one deinitialised hears nothing more.
    observer.SetEnabled(false);
    platform_->PowerSource().Sleep();
    observer.SetEnabled(true);
    observer.Deinit();
    platform_->PowerSource().Sleep();
    EXPECT_EQ(states.size(), 3u);
}

}  // namespace
