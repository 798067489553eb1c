#include "support/ObserverTestSupport.h"

#include <future>

#include <gtest/gtest.h>

#include "control/DRMXOutput.h"
#include "observers/DRMXDeviceObserverCoreAudio.h"
#include "settings/DRMXInputSelector.h"
#include "settings/DRMXOutputSelector.h"

namespace tidemix::test
{
using platform::sim::SimDeviceSpec;
using platform::sim::SimUsbDeviceSpec;

SimMicrophone PlugSimMicrophone(platform::sim::SimPlatform& platform, uint16_t productId,
                                const std::string& serial, uint32_t location)
{
    SimMicrophone microphone;
    microphone.location =
        platform.UsbDevices().Plug(SimUsbDeviceSpec::Microphone(productId, serial), location);
    SimDeviceSpec audio =
        SimDeviceSpec::Duplex("usb-Drovane_Reed_" + serial + "-00", "Drovane Reed " + serial);
    audio.inputStreams = 1;
    audio.outputStreams = 1;
    audio.transport = platform::AudioTransport::Usb;
    audio.usb = platform::UsbIdentity{0x7E11, productId, microphone.location};
    microphone.audioId = platform.World().AddDevice(audio);
    return microphone;
}

void UnplugSimMicrophone(platform::sim::SimPlatform& platform, const SimMicrophone& microphone)
{
    platform.World().RemoveDevice(microphone.audioId);
    platform.UsbDevices().Unplug(microphone.location);
}

bool LayOutToneMixes(DRMXManager& manager)
{
    for (const auto& [type, output] :
         {std::pair{DRMX_Settings::kMixerLocal, "phones"}, std::pair{DRMX_Settings::kMixerStream, "stream"}})
    {
        const auto mix = manager.GetMixerForType(type);
        DRMX_Settings::DRMXInputSelector selector;
        selector.SetType(DRMX_Settings::kInputTypeHardware);
        selector.SetHardwareId("tone");
        selector.SetMixerNodeID(1);
        std::shared_ptr<DRMXInputInterface> input;
        if (!mix || !manager.CreateInput(selector, &input).Succeeded())
        {
            ADD_FAILURE() << "no tone input for mix " << type;
            return false;
        }
        mix->AddInput(input);
        DRMX_Settings::DRMXOutputSelector outputSelector;
        outputSelector.SetType(DRMX_Settings::kOutputTypeHardware);
        outputSelector.SetHardwareId(output);
        auto out = std::make_shared<DRMXOutput>(outputSelector);
        out->SetBufferSizeFrameCount(manager.GetAudioBufferFrameCount());
        mix->SetOutput(out);
        if (!mix->ConfigureMixerNodes().Succeeded())
        {
            ADD_FAILURE() << "no nodes for mix " << type;
            return false;
        }
    }
    return true;
}

void EmptyMixes(DRMXManager& manager)
{
    manager.StopMixing();
    for (const auto type : {DRMX_Settings::kMixerLocal, DRMX_Settings::kMixerStream})
    {
        if (const auto mix = manager.GetMixerForType(type))
        {
            mix->EraseAllChannels();
        }
    }
}

void SettleObservers(platform::sim::SimPlatform& platform)
{
    platform.UsbDevices().FlushNotifications();
    platform.World().FlushNotifications();
    std::promise<void> reached;
    platform.MainQueue()->dispatch([&reached] { reached.set_value(); });
    reached.get_future().wait();
}

ObserverRecorder::ObserverRecorder()
    : delegate_([this](void*, const std::string&, DRAVPropertyKVPair pair, KVCProperty*)
                { Add("value " + std::to_string(pair.GetInt())); },
                nullptr)
{
    auto center = DRMXNotificationCenter::defaultNotificationCenter();
    for (const std::string& name : {DRMXDeviceObserverCoreAudio::CoreAudioInputsAddedNotification,
                                    DRMXDeviceObserverCoreAudio::CoreAudioInputsRemovedNotification})
    {
        handles_.emplace_back(
            name, center->addObserver(
                      name,
                      [this, name](DRMXNotificationParameters parameters)
                      {
                          const auto* inputs = static_cast<std::vector<DRMX_Settings::DRMXInputSelector>*>(
                              parameters.at(DRMXDeviceObserverCoreAudio::CoreAudioInputsKey));
                          for (const auto& input : *inputs)
                          {
                              Add(name + " " + input.GetHardwareId());
                          }
                      }));
    }
    for (const std::string& name : {DRMXDeviceObserverCoreAudio::CoreAudioOutputsAddedNotification,
                                    DRMXDeviceObserverCoreAudio::CoreAudioOutputsRemovedNotification})
    {
        handles_.emplace_back(
            name, center->addObserver(
                      name,
                      [this, name](DRMXNotificationParameters parameters)
                      {
                          const auto* outputs = static_cast<std::vector<DRMX_Settings::DRMXOutputSelector>*>(
                              parameters.at(DRMXDeviceObserverCoreAudio::CoreAudioOutputsKey));
                          for (const auto& output : *outputs)
                          {
                              Add(name + " " + output.GetHardwareId());
                          }
                      }));
    }
}

ObserverRecorder::~ObserverRecorder()
{
    auto center = DRMXNotificationCenter::defaultNotificationCenter();
    for (const auto& [name, handle] : handles_)
    {
        center->removeObserver(name, handle);
    }
}

std::vector<std::string> ObserverRecorder::Events() const
{
    std::lock_guard lock(mutex_);
    return events_;
}

void ObserverRecorder::Clear()
{
    std::lock_guard lock(mutex_);
    events_.clear();
}

void ObserverRecorder::Add(std::string event)
{
    std::lock_guard lock(mutex_);
    events_.push_back(std::move(event));
}

}  // namespace tidemix::test
