// The manager's devices and microphone facts: inputs and outputs on offer,
// the cached main microphone, firmware, the device observers and their
// changes.
#include "control/DRMXManager.h"

#include <algorithm>
#include <filesystem>

#include "control/DRMXManagerLocks.h"
#include "control/DRMXMicrophoneBase.h"
#include "control/DRMXPlatformHooks.h"
#include "engine/devices/DRMXVirtualDeviceNames.h"
#include "observers/DRMXDeviceObserverCoreAudio.h"
#include "observers/appaudio/DRMXDeviceObserverAppAudio.h"
#include "portable-core/DRAVLog.h"
#include "portable-core/DRAVPropertyNames.h"
#include "settings/DRMXApplicationBundle.h"

using namespace DRMX_Settings;

namespace
{
// Cuts a microphone's name so that it begins at "Reed"; a name without it becomes empty.
std::string NameFromReed(const std::string& name)
{
    const size_t at = name.find("Reed");
    return at == std::string::npos ? std::string() : name.substr(at);
}
}  // namespace

std::vector<DRMXInputSelector> DRMXManager::GetAvailableInputs(DRMXInputType type)
{
    if (type == kInputTypeMainMicrophone)
    {
        CDplScopedLock lock(microphoneLock_);
        if (!mainMicrophoneSelector_.GetInputID().empty())
        {
            return {mainMicrophoneSelector_};
        }
    }
    std::vector<DRMXInputSelector> inputs = GetAvailableInputsPlatformSpecific(type);
    if (type == kInputTypeMainMicrophone || type == kInputTypeFurtherMicrophone)
    {
        for (DRMXInputSelector& input : inputs)
        {
            input.SetName(NameFromReed(input.GetName()));
        }
    }
    return inputs;
}

std::vector<DRMXOutputSelector> DRMXManager::GetAvailableOutputs(const DRMXOutputType& type,
                                                                 const DRMXOutputTerminalType& terminal)
{
    std::vector<DRMXOutputSelector> outputs = GetAvailableOutputsPlatformSpecific(kOutputTypeAny);
    if (type == kOutputTypeAny && terminal == kTerminalUnknown)
    {
        return {};
    }
    std::vector<DRMXOutputSelector> kept;
    std::copy_if(outputs.begin(), outputs.end(), std::back_inserter(kept),
                 [&](const DRMXOutputSelector& output)
                 { return output.GetType() == type && output.GetTerminalType() == terminal; });
    return kept;
}

std::vector<DRMXOutputSelector> DRMXManager::GetAvailableOutputs(DRMXOutputType type, std::string name)
{
    std::vector<DRMXOutputSelector> outputs = GetAvailableOutputsPlatformSpecific(kOutputTypeAny);
    if (type == kOutputTypeAny && name.empty())
    {
        return outputs;
    }
    std::string path;
    const auto identifier = DRMXVirtualDeviceNames::VirtualDeviceIdentifiers.find(name);
    if (identifier != DRMXVirtualDeviceNames::VirtualDeviceIdentifiers.end() && !identifier->second.empty())
    {
        path = identifier->second + "Out";
    }
    std::vector<DRMXOutputSelector> kept;
    for (const DRMXOutputSelector& output : outputs)
    {
        if (output.GetType() != type)
        {
            continue;
        }
        bool taken = false;
        if (name == DRMXVirtualDeviceNames::kTidemixHeadphone)
        {
            taken = output.IsDrovaneMicrophone();
        }
        else
        {
            taken =
                (!path.empty() && output.GetDevicePath() == path) || name.empty() || name == output.GetName();
        }
        if (taken)
        {
            kept.push_back(output);
        }
    }
    return kept;
}

DRMXInputSelector DRMXManager::GetMainMicrophoneInput()
{
    MixerThenMicrophoneLock lock(mixerLock_, microphoneLock_);
    if (mainMicrophoneSelector_.GetInputID().empty())
    {
        const std::vector<DRMXInputSelector> inputs = GetAvailableInputs(kInputTypeMainMicrophone);
        // With two microphones nothing is chosen here: the device observer marks one as main.
        if (inputs.size() == 1)
        {
            mainMicrophoneSelector_ = inputs.front();
        }
    }
    return mainMicrophoneSelector_;
}

DRMXOutputSelector DRMXManager::GetMainMicrophoneOutput()
{
    const std::vector<DRMXOutputSelector> outputs =
        GetAvailableOutputs(kOutputTypeHardware, std::string(DRMXVirtualDeviceNames::kTidemixHeadphone));
    return outputs.empty() ? DRMXOutputSelector() : outputs.front();
}

DRAVResult DRMXManager::CreateInputStatic(const DRMXInputSelector& selector,
                                          std::shared_ptr<DRMXInputInterface>* out)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    const DRAVResult result = CreateInputPlatformSpecific(selector, out);
    if (!*out)
    {
        return result.Succeeded() ? DRAVResult(kDRAVResultErrNotFound) : result;
    }
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXManager::CreateInput(const DRMXInputSelector& selector,
                                    std::shared_ptr<DRMXInputInterface>* out)
{
    const DRAVResult result = CreateInputStatic(selector, out);
    if (!result.Succeeded())
    {
        return result;
    }
    // An input's ring holds blocks of the mix: a source cut to another size
    // would be read out of step by every pull.
    if (const auto object = std::dynamic_pointer_cast<DRAVObject>(*out))
    {
        object->SetIntProperty(kPropertyAudioBufferSizeFrameCount, GetAudioBufferFrameCount());
        object->SetIntProperty(kPropertyAudioBufferSizeMs, GetAudioBufferMSecInput());
    }
    return result;
}

DRAVResult DRMXManager::CreateOutputStatic(const DRMXOutputSelector& selector,
                                           std::shared_ptr<DRMXOutputInterface>* out)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    *out = CreateOutputPlatformSpecific(selector);
    return DRAVResult(*out ? kDRAVResultOk : kDRAVResultErrNotFound);
}

DRAVResult DRMXManager::CreateOutput(const DRMXOutputSelector& selector,
                                     std::shared_ptr<DRMXOutputInterface>* out)
{
    const DRAVResult result = CreateOutputStatic(selector, out);
    if (!result.Succeeded())
    {
        return result;
    }
    if (const auto object = std::dynamic_pointer_cast<DRAVObject>(*out))
    {
        object->SetIntProperty(kPropertyAudioBufferSizeFrameCount, GetAudioBufferFrameCount());
        object->SetIntProperty(kPropertyAudioBufferSizeMs, GetAudioBufferMSecOutput());
    }
    return result;
}

DRAVResult DRMXManager::GetMicrophoneInterface(const DRMXInputSelector& /*the main microphone is meant*/,
                                               std::shared_ptr<DRMXMicrophoneInterface>* out)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    MixerThenMicrophoneLock lock(mixerLock_, microphoneLock_);
    out->reset();
    DRAVResult result(kDRAVResultErrNotFound);
    if (mainMicrophone_)
    {
        *out = mainMicrophone_;
        return DRAVResult(kDRAVResultOk);
    }
    const DRMXInputSelector selector = GetMainMicrophoneInput();
    if (!selector.GetInputID().empty())
    {
        std::shared_ptr<DRMXInputInterface> input;
        result = CreateInput(selector, &input);
        if (result.Succeeded())
        {
            std::shared_ptr<DRMXMicrophoneInterface> microphone =
                std::dynamic_pointer_cast<DRMXMicrophoneInterface>(input);
            if (!microphone)
            {
                result = kDRAVResultErrInvalidCast;
            }
            else
            {
                mainMicrophone_ = microphone;
                result = SetupMicrophoneInterface(microphone, selector);
                *out = microphone;
            }
        }
    }
    if (!*out)
    {
        result.LogError("No Drovane microphone found");
    }
    return result;
}

DRAVResult DRMXManager::SetupMicrophoneInterface(const std::shared_ptr<DRMXMicrophoneInterface>& microphone,
                                                 const DRMXInputSelector& selector)
{
    microphone->SetMicrophoneType(GetTypeById(selector.GetProductId()));
    microphone->SetHardwareId(selector.GetHardwareId());
    DRMXMicrophoneSettings settings;
    if (GetMicrophoneSettings(settings).Succeeded())
    {
        if (auto* base = dynamic_cast<DRMXMicrophoneBase*>(microphone.get()))
        {
            base->UpdateConfigurationBySettings(settings, true);
        }
        if (auto* unit = dynamic_cast<DRMXAudioUnitInterface*>(microphone.get()))
        {
            unit->AudioUnitStart(DRAVTimestamp(-1));
        }
    }
    return microphone->Init();
}

void DRMXManager::UpdateMainMicrophoneCache()
{
    MixerThenMicrophoneLock lock(mixerLock_, microphoneLock_);
    mainMicrophone_.reset();
    mainMicrophoneSelector_ = DRMXInputSelector();
    if (auto coreAudio = std::dynamic_pointer_cast<DRMXDeviceObserverCoreAudio>(
            FindDeviceObserver(kDeviceNotificationCoreAudio)))
    {
        coreAudio->ResetMainMicrophoneID();
    }
    std::shared_ptr<DRMXMicrophoneInterface> microphone;
    GetMicrophoneInterface(DRMXInputSelector(), &microphone);
}

bool DRMXManager::IsMicrophoneConnected()
{
    return systemAwake_.load() && IsMicrophoneConnectedPlatformSpecific();
}

bool DRMXManager::IsDFUMicrophoneConnected()
{
    return systemAwake_.load() && IsAnyDFUMicrophoneConnectedPlatformSpecific();
}

bool DRMXManager::IsVirtualDeviceInitialized(std::string name)
{
    return systemAwake_.load() && CheckDeviceInitializedPlatformSpecific(name);
}

DRAVResult DRMXManager::GetFirmwarePath(DRMXMicrophoneType type, std::string& path)
{
    switch (type)
    {
        case kMicrophoneTypeReed1:
        case kMicrophoneTypeReed1DFU:
            path = "reed_1_firmware.dfu";
            break;
        case kMicrophoneTypeReed3:
        case kMicrophoneTypeReed3DFU:
            path = "reed_3_firmware.dfu";
            break;
        case kMicrophoneTypeReedPro:
        case kMicrophoneTypeReedProDFU:
            path = "reed_pro_firmware.dfu";
            break;
        default:
            break;
    }
    path = DRMXApplicationBundle::PathForBundleResource(path);
    std::error_code error;
    return DRAVResult(!path.empty() && std::filesystem::is_regular_file(path, error)
                          ? kDRAVResultOk
                          : kDRAVResultErrNotFound);
}

std::weak_ptr<DRMXMicrophoneInterface> DRMXManager::GetFirstDFUMicrophone()
{
    return GetFirstDFUMicrophonePlatformSpecific();
}

std::shared_ptr<DRMXFirmwareUpdateInterface> DRMXManager::GetFirmwareUpdater(const std::string& name)
{
    return CreateFirmwareUpdaterPlatformSpecific(name);
}

DRAVResult DRMXManager::GetSupportedSamplerates(std::vector<uint32_t>&)
{
    return DRAVResult(kDRAVResultErrNotImplemented);
}

DRAVResult DRMXManager::GetCurrentSampleRate(uint32_t&)
{
    return DRAVResult(kDRAVResultErrNotImplemented);
}

DRAVResult DRMXManager::SetSampleRate(uint32_t)
{
    return DRAVResult(kDRAVResultErrNotImplemented);
}

bool DRMXManager::ChangedAppAudioEndpointIsInUse() const
{
    const auto observer = std::dynamic_pointer_cast<DRMXDeviceObserverAppAudio>(
        FindDeviceObserver(kDeviceNotificationAppAudio));
    const std::string bundleId = observer ? observer->GetLastChangedBundleId() : std::string();
    if (!observer || bundleId.empty())
    {
        return false;
    }
    const std::shared_ptr<DRMXMixerBase> local = GetMixerForType(kMixerLocal);
    if (!local)
    {
        return false;
    }
    for (const auto& input : local->GetInputs())
    {
        if (input && input->GetSelector().GetHardwareId() == bundleId)
        {
            return true;
        }
    }
    return false;
}

// Device observers.

std::shared_ptr<DRMXDeviceObserverBase> DRMXManager::FindDeviceObserver(
    DRMXDeviceNotification notification) const
{
    CDplScopedLock lock(microphoneLock_);
    for (const auto& observer : deviceObservers_)
    {
        if (observer && observer->GetNotification() == notification)
        {
            return observer;
        }
    }
    return nullptr;
}

DRAVResult DRMXManager::AttachDeviceChangeObserver(KVObserver* observer, DRMXDeviceNotification notification)
{
    std::vector<std::shared_ptr<DRMXDeviceObserverBase>> observers;
    {
        CDplScopedLock lock(microphoneLock_);
        observers = deviceObservers_;
    }
    DRAVResult result(kDRAVResultOk);
    for (const auto& deviceObserver : observers)
    {
        // 0 as the argument means every observer; an observer of its own 0
        // takes every attachment.
        if (deviceObserver && (notification == kDeviceNotificationAny ||
                               deviceObserver->GetNotification() == kDeviceNotificationAny ||
                               deviceObserver->GetNotification() == notification))
        {
            result = deviceObserver->AttachObserver(observer);
        }
    }
    return result;
}

DRAVResult DRMXManager::DetachDeviceChangeObserver(KVObserver* observer)
{
    std::vector<std::shared_ptr<DRMXDeviceObserverBase>> observers;
    {
        CDplScopedLock lock(microphoneLock_);
        observers = deviceObservers_;
    }
    DRAVResult result(kDRAVResultOk);
    for (const auto& deviceObserver : observers)
    {
        if (deviceObserver)
        {
            result = deviceObserver->DetachObserver(observer);
        }
    }
    return result;
}

void DRMXManager::EnableDeviceNotification(bool enable)
{
    std::vector<std::shared_ptr<DRMXDeviceObserverBase>> observers;
    {
        CDplScopedLock lock(microphoneLock_);
        observers = deviceObservers_;
    }
    for (const auto& observer : observers)
    {
        if (observer)
        {
            observer->SetEnabled(enable);
        }
    }
}

void DRMXManager::HandleDeviceChange(const DRAVPropertyKVPair& pair)
{
    // 4 is a change of application audio, which doesn't concern the microphone.
    if (pair.GetInt() != kDeviceNotificationAppAudio)
    {
        UpdateMainMicrophoneCache();
    }
}
