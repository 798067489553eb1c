#include "control/DRMXPlatformHooks.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "control/DRMXFirmwareUpdate.h"
#include "control/DRMXInput.h"
#include "control/DRMXMicrophone.h"
#include "control/DRMXMixer.h"
#include "control/DRMXOutput.h"
#include "engine/devices/DRMXVirtualDeviceNames.h"
#include "observers/DRMXDeviceObserverCoreAudio.h"
#include "observers/DRMXDeviceObserverUSB.h"
#include "observers/DRMXPowerStateObserverMac.h"
#include "observers/appaudio/DRMXDeviceObserverAppAudio.h"

namespace
{
std::mutex gHooksMutex;
DRMXPlatformHooks gHooks;

DRMXPlatformHooks CurrentHooks()
{
    std::lock_guard lock(gHooksMutex);
    return gHooks;
}
}  // namespace

DRMXPlatformHooks DRMXSetPlatformHooks(DRMXPlatformHooks hooks)
{
    std::lock_guard lock(gHooksMutex);
    std::swap(gHooks, hooks);
    return hooks;
}

std::shared_ptr<DRMXMixerBase> CreateMixerPlatformSpecific(const std::string& name,
                                                           DRMX_Settings::DRMXMixerType type)
{
    if (auto hook = CurrentHooks().createMixer)
    {
        return hook(name, type);
    }
    return std::make_shared<DRMXMixer>(name, type);
}

std::vector<std::shared_ptr<DRMXDeviceObserverBase>> RegisterDeviceObserversPlatformSpecific()
{
    if (auto hook = CurrentHooks().registerDeviceObservers)
    {
        return hook();
    }
    std::vector<std::shared_ptr<DRMXDeviceObserverBase>> observers;
    // One USB observer for the process: it outlives the manager's Deinit and
    // joins the list only the first time.
    if (DRMXDeviceObserverUSB::MakeShared())
    {
        const std::shared_ptr<DRMXDeviceObserverUSB> usb = DRMXDeviceObserverUSB::Shared();
        if (usb && usb->Init().Succeeded())
        {
            usb->SetNotification(kDeviceNotificationUSB);
            observers.push_back(usb);
        }
    }
    auto coreAudio = std::make_shared<DRMXDeviceObserverCoreAudio>();
    if (coreAudio->Init().Succeeded())
    {
        coreAudio->SetNotification(kDeviceNotificationCoreAudio);
        observers.push_back(coreAudio);
    }
    auto appAudio = std::make_shared<DRMXDeviceObserverAppAudio>();
    if (appAudio->Init().Succeeded())
    {
        appAudio->SetNotification(kDeviceNotificationAppAudio);
        observers.push_back(appAudio);
    }
    return observers;
}

std::shared_ptr<DRMXPowerStateObserverBase> RegisterPowerStateObserverPlatformSpecific()
{
    if (auto hook = CurrentHooks().registerPowerStateObserver)
    {
        return hook();
    }
    auto power = std::make_shared<DRMXPowerStateObserverMac>();
    power->Init();
    return power;
}

DRAVResult CreateInputPlatformSpecific(const DRMX_Settings::DRMXInputSelector& selector,
                                       std::shared_ptr<DRMXInputInterface>* out)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    if (auto hook = CurrentHooks().createInput)
    {
        return hook(selector, out);
    }
    if (selector.GetType() == DRMX_Settings::kInputTypeMainMicrophone)
    {
        auto microphone =
            std::make_shared<DRMXMicrophone>(selector.GetName(), GetTypeById(selector.GetProductId()));
        microphone->SetSelector(selector);
        *out = microphone;
        return DRAVResult(kDRAVResultOk);
    }
    *out = std::make_shared<DRMXInput>(selector);
    return DRAVResult(kDRAVResultOk);
}

std::shared_ptr<DRMXOutputInterface> CreateOutputPlatformSpecific(
    const DRMX_Settings::DRMXOutputSelector& selector)
{
    // Named "Monitor" and given the selector by its constructor.
    return std::make_shared<DRMXOutput>(selector);
}

std::vector<DRMX_Settings::DRMXInputSelector> GetAvailableInputsPlatformSpecific(
    DRMX_Settings::DRMXInputType type)
{
    if (auto hook = CurrentHooks().availableInputs)
    {
        return hook(type);
    }
    // The audio devices' inputs first, then the applications'.
    std::vector<DRMX_Settings::DRMXInputSelector> inputs;
    if (type != DRMX_Settings::kInputTypeAppAudio)
    {
        inputs = DRMXDeviceObserverCoreAudio::EnumInputs();
    }
    if (type == DRMX_Settings::kInputTypeAny || type == DRMX_Settings::kInputTypeAppAudio)
    {
        const std::vector<DRMX_Settings::DRMXInputSelector> apps = DRMXDeviceObserverAppAudio::EnumInputs();
        inputs.insert(inputs.end(), apps.begin(), apps.end());
    }
    const std::vector<std::string> defaults = DRMXVirtualDeviceNames::GetVirtualDefaultDeviceNames();
    std::vector<DRMX_Settings::DRMXInputSelector> kept;
    for (DRMX_Settings::DRMXInputSelector& input : inputs)
    {
        if (type != DRMX_Settings::kInputTypeAny && input.GetType() != type)
        {
            continue;
        }
        const bool isDefault = std::any_of(defaults.begin(), defaults.end(),
                                           [&](const std::string& name)
                                           { return input.GetName().find(name) != std::string::npos; });
        input.SetIsDefault(isDefault);
        input.SetMixerNodeID(static_cast<int32_t>(kept.size()));
        kept.push_back(std::move(input));
    }
    return kept;
}

std::vector<DRMX_Settings::DRMXOutputSelector> GetAvailableOutputsPlatformSpecific(
    DRMX_Settings::DRMXOutputType type)
{
    if (auto hook = CurrentHooks().availableOutputs)
    {
        return hook(type);
    }
    std::vector<DRMX_Settings::DRMXOutputSelector> outputs = DRMXDeviceObserverCoreAudio::EnumOutputs();
    if (type != DRMX_Settings::kOutputTypeAny)
    {
        std::erase_if(outputs, [type](const auto& output) { return output.GetType() != type; });
    }
    return outputs;
}

bool CheckDeviceInitializedPlatformSpecific(const std::string&)
{
    const std::vector<std::string> names = DRMXVirtualDeviceNames::GetVirtualDefaultDeviceNames();
    if (names.empty())
    {
        return true;
    }
    const auto inputs = DRMXDeviceObserverCoreAudio::EnumInputs();
    return std::all_of(names.begin(), names.end(),
                       [&](const std::string& name)
                       {
                           return std::any_of(inputs.begin(), inputs.end(),
                                              [&](const auto& input)
                                              { return input.GetName().find(name) != std::string::npos; });
                       });
}

bool IsMicrophoneConnectedPlatformSpecific()
{
    if (auto hook = CurrentHooks().microphoneConnected)
    {
        return hook();
    }
    const auto usb = DRMXDeviceObserverUSB::Shared();
    return usb && usb->IsAnyMicrophoneConnected();
}

bool IsAnyDFUMicrophoneConnectedPlatformSpecific()
{
    const auto usb = DRMXDeviceObserverUSB::Shared();
    return usb && usb->IsAnyDFUMicrophoneConnected();
}

std::weak_ptr<DRMXMicrophoneInterface> GetMicrophoneHelperPlatformSpecific(const std::string& hardwareId)
{
    const auto usb = DRMXDeviceObserverUSB::Shared();
    return usb ? usb->GetMicrophoneInterfaceWithHardwareID(hardwareId)
               : std::weak_ptr<DRMXMicrophoneInterface>();
}

std::weak_ptr<DRMXMicrophoneInterface> GetFirstDFUMicrophonePlatformSpecific()
{
    const auto usb = DRMXDeviceObserverUSB::Shared();
    return usb ? usb->GetFirstDFUMicrophoneInterface() : std::weak_ptr<DRMXMicrophoneInterface>();
}

std::shared_ptr<DRMXFirmwareUpdateInterface> CreateFirmwareUpdaterPlatformSpecific(const std::string&)
{
    // The newest update lives on while the application polls it.
    static std::mutex sUpdateMutex;
    static std::shared_ptr<DRMXFirmwareUpdateInterface> gFirmwareUpdate;
    auto update = std::make_shared<DRMXFirmwareUpdate>();
    std::shared_ptr<DRMXFirmwareUpdateInterface> former;
    {
        std::lock_guard lock(sUpdateMutex);
        former = std::exchange(gFirmwareUpdate, update);
    }
    return update;
}
