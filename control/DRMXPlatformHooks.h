#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "control/DRMXFirmwareUpdateInterface.h"
#include "control/DRMXInputInterface.h"
#include "control/DRMXMixerBase.h"
#include "control/DRMXOutputInterface.h"
#include "microphones/DRMXMicrophoneInterface.h"
#include "observers/DRMXDeviceObserverBase.h"
#include "observers/DRMXPowerStateObserverBase.h"
#include "settings/DRMXSettings.h"

// The manager's seam to what differs by platform and to the collaborators it
// makes. Each hook has one definition; a test (or a host with special needs)
// may replace any of them through DRMXSetPlatformHooks.
std::shared_ptr<DRMXMixerBase> CreateMixerPlatformSpecific(const std::string& name,
                                                           DRMX_Settings::DRMXMixerType type);
std::vector<std::shared_ptr<DRMXDeviceObserverBase>> RegisterDeviceObserversPlatformSpecific();
std::shared_ptr<DRMXPowerStateObserverBase> RegisterPowerStateObserverPlatformSpecific();
DRAVResult CreateInputPlatformSpecific(const DRMX_Settings::DRMXInputSelector& selector,
                                       std::shared_ptr<DRMXInputInterface>* out);
// A "Monitor" output for the selector.
std::shared_ptr<DRMXOutputInterface> CreateOutputPlatformSpecific(
    const DRMX_Settings::DRMXOutputSelector& selector);
std::vector<DRMX_Settings::DRMXInputSelector> GetAvailableInputsPlatformSpecific(
    DRMX_Settings::DRMXInputType type);
std::vector<DRMX_Settings::DRMXOutputSelector> GetAvailableOutputsPlatformSpecific(
    DRMX_Settings::DRMXOutputType type);
bool CheckDeviceInitializedPlatformSpecific(const std::string& name);
bool IsMicrophoneConnectedPlatformSpecific();
bool IsAnyDFUMicrophoneConnectedPlatformSpecific();
// The control object of the microphone whose serial number fits the hardware
// id, and the first microphone in DFU mode; empty without a USB observer.
std::weak_ptr<DRMXMicrophoneInterface> GetMicrophoneHelperPlatformSpecific(const std::string& hardwareId);
std::weak_ptr<DRMXMicrophoneInterface> GetFirstDFUMicrophonePlatformSpecific();
// A new firmware update, which also stays alive as the process's newest.
std::shared_ptr<DRMXFirmwareUpdateInterface> CreateFirmwareUpdaterPlatformSpecific(const std::string& name);
// Replacements for the hooks above; an empty function keeps the built-in one.
struct DRMXPlatformHooks
{
    std::function<std::shared_ptr<DRMXMixerBase>(const std::string&, DRMX_Settings::DRMXMixerType)>
        createMixer;
    std::function<std::vector<std::shared_ptr<DRMXDeviceObserverBase>>()> registerDeviceObservers;
    std::function<std::shared_ptr<DRMXPowerStateObserverBase>()> registerPowerStateObserver;
    std::function<DRAVResult(const DRMX_Settings::DRMXInputSelector&, std::shared_ptr<DRMXInputInterface>*)>
        createInput;
    std::function<std::vector<DRMX_Settings::DRMXInputSelector>(DRMX_Settings::DRMXInputType)>
        availableInputs;
    std::function<std::vector<DRMX_Settings::DRMXOutputSelector>(DRMX_Settings::DRMXOutputType)>
        availableOutputs;
    std::function<bool()> microphoneConnected;
};

// Installs replacements and returns the former ones.
DRMXPlatformHooks DRMXSetPlatformHooks(DRMXPlatformHooks hooks);
