#include "control/DRMXInput.h"

#include <utility>
#include <vector>

#include "engine/devices/DRAVDeviceCoreAudio.h"
#include "observers/appaudio/DRMXDeviceObserverAppAudio.h"
#include "portable-core/DRAVPropertyNames.h"

using namespace DRMX_Settings;

namespace
{
bool IsAppAudio(const DRMXInputSelector& selector)
{
    return selector.GetType() == kInputTypeAppAudio && !selector.GetHardwareId().empty();
}
}  // namespace

std::map<std::string, std::string>& DRMXInput::AppAudioDeviceMapping()
{
    static auto* const sMapping = new std::map<std::string, std::string>();
    return *sMapping;
}

CDplThreadMutex& DRMXInput::AppAudioMappingLock()
{
    static auto* const sLock = new CDplThreadMutex();
    return *sLock;
}

DRMXInput::DRMXInput(const DRMXInputSelector& selector, const std::string& name) : DRMXInputBase(name)
{
    CDplScopedLock mappingLock(AppAudioMappingLock());
    {
        CDplScopedLock lock(selectorLock_);
        selector_ = selector;
    }
    ActivateAppAudio(selector);
}

DRMXInput::~DRMXInput()
{
    AudioUnitStop();
    CDplScopedLock mappingLock(AppAudioMappingLock());
    DeactivateAppAudio(GetSelector());
}

void DRMXInput::ActivateAppAudio(const DRMXInputSelector& selector)
{
    if (!IsAppAudio(selector))
    {
        return;
    }
    std::string& path = AppAudioDeviceMapping()[selector.GetHardwareId()];
    if (path.empty())
    {
        std::string made;
        if (DRMXDeviceObserverAppAudio::ActivateAppAudioDevice(selector, made))
        {
            path = made;
        }
    }
}

void DRMXInput::DeactivateAppAudio(const DRMXInputSelector& selector)
{
    if (!IsAppAudio(selector))
    {
        return;
    }
    DRMXDeviceObserverAppAudio::DeactivateAppAudioDevice(selector);
    AppAudioDeviceMapping()[selector.GetHardwareId()].clear();
}

void DRMXInput::SetSelector(const DRMXInputSelector& selector)
{
    CDplScopedLock mappingLock(AppAudioMappingLock());
    const DRMXInputSelector former = GetSelector();
    if (selector == former)
    {
        return;
    }
    {
        CDplScopedLock lock(selectorLock_);
        selector_ = selector;
    }
    // The former application's sound would otherwise stay on a device that
    // nothing records any more.
    DeactivateAppAudio(former);
    ActivateAppAudio(selector);

    if (const std::shared_ptr<DRAVSourceAudioCaptureCoreAudio> source = GetCaptureSource())
    {
        const std::string path = GetDevicePathForSelector(selector);
        if (!path.empty())
        {
            source->SetStringProperty(kPropertyCaptureDevicePath, path);
        }
    }
}

std::shared_ptr<DRAVSource> DRMXInput::GetSource() const
{
    return GetCaptureSource();
}

std::shared_ptr<DRAVSourceAudioCaptureCoreAudio> DRMXInput::GetCaptureSource() const
{
    return capture_.Source();
}

std::string DRMXInput::GetDevicePathForSelector(const DRMXInputSelector& selector)
{
    if (selector.GetHardwareId().empty())
    {
        return {};
    }
    {
        CDplScopedLock mappingLock(AppAudioMappingLock());
        const auto& mapping = AppAudioDeviceMapping();
        const auto found = mapping.find(selector.GetHardwareId());
        if (found != mapping.end() && !found->second.empty())
        {
            return found->second;
        }
    }
    for (const DRAVDeviceDescriptor& device :
         DRAVDeviceCoreAudio::EnumDeviceDescriptors(kDRAVDeviceTypeAudioCapture))
    {
        if (device.hardwareId == selector.GetHardwareId())
        {
            return device.devicePath;
        }
    }
    return {};
}

DRAVResult DRMXInput::AudioUnitStart(const DRAVTimestamp&)
{
    const DRMXInputSelector selector = GetSelector();
    if (selector.GetType() == kInputTypeAppAudio)
    {
        CDplScopedLock mappingLock(AppAudioMappingLock());
        const auto& mapping = AppAudioDeviceMapping();
        const auto found = mapping.find(selector.GetHardwareId());
        if (found == mapping.end() || found->second.empty())
        {
            return DRAVResult(kDRAVResultErrNotFound, "the application \"%s\" has no capture device",
                              selector.GetHardwareId().c_str());
        }
    }
    started.store(true);
    return capture_.Start(GetDevicePathForSelector(selector), selector.GetHardwareId());
}

void DRMXInput::AudioUnitStop()
{
    capture_.Stop();
    started.store(false);
}

bool DRMXInput::IsUnitStarted()
{
    return GetCaptureSource() != nullptr;
}

int64_t DRMXInput::GetBufferSizeFrameCount()
{
    return capture_.GetBufferSizeFrameCount();
}

DRAVResult DRMXInput::SetBufferSizeFrameCount(int64_t frames)
{
    return capture_.SetBufferSizeFrameCount(frames);
}
