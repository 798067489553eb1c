#include "control/DRMXPlatformHooks.h"

#include <mutex>

#include "control/DRMXInput.h"
#include "control/DRMXMixer.h"

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
    // The USB, audio-device and application observers join here as they land.
    return {};
}

std::shared_ptr<DRMXPowerStateObserverBase> RegisterPowerStateObserverPlatformSpecific()
{
    if (auto hook = CurrentHooks().registerPowerStateObserver)
    {
        return hook();
    }
    return nullptr;
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
    // The main microphone is a microphone object, which this platform doesn't
    // make yet; every other kind is a plain input.
    if (selector.GetType() == DRMX_Settings::kInputTypeMainMicrophone)
    {
        return DRAVResult(kDRAVResultErrNotImplemented);
    }
    *out = std::make_shared<DRMXInput>(selector);
    return DRAVResult(kDRAVResultOk);
}

std::vector<DRMX_Settings::DRMXInputSelector> GetAvailableInputsPlatformSpecific(
    DRMX_Settings::DRMXInputType type)
{
    if (auto hook = CurrentHooks().availableInputs)
    {
        return hook(type);
    }
    return {};
}

std::vector<DRMX_Settings::DRMXOutputSelector> GetAvailableOutputsPlatformSpecific(
    DRMX_Settings::DRMXOutputType type)
{
    if (auto hook = CurrentHooks().availableOutputs)
    {
        return hook(type);
    }
    return {};
}

bool CheckDeviceInitializedPlatformSpecific(const std::string&)
{
    // No virtual device is expected by default on this platform, so the check holds.
    return true;
}

bool IsMicrophoneConnectedPlatformSpecific()
{
    if (auto hook = CurrentHooks().microphoneConnected)
    {
        return hook();
    }
    return false;
}

bool IsAnyDFUMicrophoneConnectedPlatformSpecific()
{
    return false;
}

bool ActivateAppAudioDevicePlatformSpecific(const DRMX_Settings::DRMXInputSelector& selector,
                                            std::string& devicePath)
{
    if (auto hook = CurrentHooks().activateAppAudioDevice)
    {
        return hook(selector, devicePath);
    }
    return false;
}

void DeactivateAppAudioDevicePlatformSpecific(const DRMX_Settings::DRMXInputSelector& selector)
{
    if (auto hook = CurrentHooks().deactivateAppAudioDevice)
    {
        hook(selector);
    }
}
