#include "control/DRMXInput.h"

#include <atomic>
#include <utility>
#include <vector>

#include "control/DRMXPlatformHooks.h"
#include "engine/devices/DRAVDeviceCoreAudio.h"
#include "engine/media/DRAVAudioFormat.h"
#include "engine/media/DRAVMediaFormatChangeDelegate.h"
#include "engine/units/DRAVPinType.h"
#include "engine/units/DRAVRingBuffer.h"
#include "engine/units/DRAVUnitOutputPin.h"
#include "engine/units/DRAVUnitState.h"
#include "portable-core/DRAVPropertyNames.h"

using namespace DRMX_Settings;

namespace
{
// Replaces the first block the ring receives by silence of the fill's
// length, so the mix starts that far behind the device. It runs once, on the
// device's thread, when the ring learns its format; it allocates nothing.
class RingStartFill : public DRAVMediaFormatChangeDelegate
{
public:
    RingStartFill(const std::shared_ptr<DRAVRingBuffer>& ring, DRAVDuration fill) : ring_(ring), fill_(fill)
    {
    }

    DRAVResult MediaFormatChanged(std::shared_ptr<DRAVObject>, std::shared_ptr<DRAVMediaBuffer>) override
    {
        if (done_.exchange(true))
        {
            return DRAVResult(kDRAVResultOkNoDataChanged);
        }
        const std::shared_ptr<DRAVRingBuffer> ring = ring_.lock();
        return ring ? ring->MoveReadPointer(fill_) : DRAVResult(kDRAVResultOkNoDataChanged);
    }

private:
    const std::weak_ptr<DRAVRingBuffer> ring_;
    const DRAVDuration fill_;
    std::atomic<bool> done_{false};
};

std::shared_ptr<DRAVRingBuffer> RingOf(const std::shared_ptr<DRAVSourceAudioCaptureCoreAudio>& source)
{
    const std::shared_ptr<DRAVUnitOutputPin> pin = source->GetOutputPin(0);
    return pin ? std::dynamic_pointer_cast<DRAVRingBuffer>(pin->GetQueue()) : nullptr;
}

bool IsAppAudio(const DRMXInputSelector& selector)
{
    return selector.GetType() == kInputTypeAppAudio && !selector.GetHardwareId().empty();
}
}  // namespace

struct DRMXInput::Impl
{
    mutable CDplThreadMutex sourceLock;
    std::shared_ptr<DRAVSourceAudioCaptureCoreAudio> source;
    // The ring holds its delegate weakly.
    std::shared_ptr<RingStartFill> startFill;
    std::atomic<int64_t> bufferFrameCount{kDefaultBufferFrameCount};
};

std::map<std::string, DRMXInput::AppAudioEntry>& DRMXInput::AppAudioDeviceMapping()
{
    static auto* const sMapping = new std::map<std::string, AppAudioEntry>();
    return *sMapping;
}

CDplThreadMutex& DRMXInput::AppAudioMappingLock()
{
    static auto* const sLock = new CDplThreadMutex();
    return *sLock;
}

DRMXInput::DRMXInput(const DRMXInputSelector& selector, const std::string& name)
    : DRMXInputBase(name), impl_(std::make_unique<Impl>())
{
    CDplScopedLock mappingLock(AppAudioMappingLock());
    {
        CDplScopedLock lock(selectorLock_);
        selector_ = selector;
    }
    HoldAppAudio(selector);
}

DRMXInput::~DRMXInput()
{
    AudioUnitStop();
    CDplScopedLock mappingLock(AppAudioMappingLock());
    ReleaseAppAudio(GetSelector());
}

void DRMXInput::HoldAppAudio(const DRMXInputSelector& selector)
{
    if (!IsAppAudio(selector))
    {
        return;
    }
    AppAudioEntry& entry = AppAudioDeviceMapping()[selector.GetHardwareId()];
    ++entry.holders;
    if (entry.devicePath.empty())
    {
        std::string path;
        if (ActivateAppAudioDevicePlatformSpecific(selector, path))
        {
            entry.devicePath = path;
        }
    }
}

void DRMXInput::ReleaseAppAudio(const DRMXInputSelector& selector)
{
    if (!IsAppAudio(selector))
    {
        return;
    }
    auto& mapping = AppAudioDeviceMapping();
    const auto found = mapping.find(selector.GetHardwareId());
    if (found == mapping.end() || --found->second.holders > 0)
    {
        return;
    }
    // The input of the other mix may still name the application: its device
    // goes only with the last input.
    DeactivateAppAudioDevicePlatformSpecific(selector);
    mapping.erase(found);
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
    HoldAppAudio(selector);
    ReleaseAppAudio(former);

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
    CDplScopedLock lock(impl_->sourceLock);
    return impl_->source;
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
        if (found != mapping.end() && !found->second.devicePath.empty())
        {
            return found->second.devicePath;
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
        if (found == mapping.end() || found->second.devicePath.empty())
        {
            return DRAVResult(kDRAVResultErrNotFound, "the application \"%s\" has no capture device",
                              selector.GetHardwareId().c_str());
        }
    }
    // A second start must not leave the first source's device open.
    AudioUnitStop();

    const int64_t frames = impl_->bufferFrameCount.load();
    auto source = std::make_shared<DRAVSourceAudioCaptureCoreAudio>(DRAVSourceConfig{});
    source->SetBufferSizeFrameCount(frames);
    DRAVResult result = source->InitSource(kDRAVPinTypePullRingBuffer);
    std::shared_ptr<RingStartFill> startFill;
    if (result.Succeeded())
    {
        if (const std::shared_ptr<DRAVRingBuffer> ring = RingOf(source))
        {
            const DRAVAudioFormat& format = kDefaultAudioFormatFloat;
            ring->SetMaxTotalSizeMB(static_cast<int>(kRingBlocks * frames * format.GetBytesPerFrame()));
            startFill = std::make_shared<RingStartFill>(
                ring, format.GetDurationFromFrames(kStartFillBlocks * frames));
            ring->SetFormatChangeDelegate(startFill);
        }
    }
    {
        CDplScopedLock lock(impl_->sourceLock);
        impl_->source = source;
        impl_->startFill = startFill;
    }
    started.store(true);
    if (!result.Succeeded())
    {
        return result;
    }
    const std::string path = GetDevicePathForSelector(selector);
    if (path.empty())
    {
        return DRAVResult(kDRAVResultErrUnknown, "no capture device with the hardware id \"%s\"",
                          selector.GetHardwareId().c_str());
    }
    source->SetStringProperty(kPropertyCaptureDevicePath, path);
    return source->SetUnitState(kDRAVUnitStateRunning);
}

void DRMXInput::AudioUnitStop()
{
    std::shared_ptr<DRAVSourceAudioCaptureCoreAudio> source;
    std::shared_ptr<RingStartFill> startFill;
    {
        CDplScopedLock lock(impl_->sourceLock);
        source = std::move(impl_->source);
        startFill = std::move(impl_->startFill);
    }
    if (source)
    {
        source->SetUnitState(kDRAVUnitStatePaused);
        source->Deinit();
    }
    started.store(false);
}

bool DRMXInput::IsUnitStarted()
{
    return GetCaptureSource() != nullptr;
}

int64_t DRMXInput::GetBufferSizeFrameCount()
{
    if (const std::shared_ptr<DRAVSourceAudioCaptureCoreAudio> source = GetCaptureSource())
    {
        return source->GetBufferSizeFrameCount();
    }
    return impl_->bufferFrameCount.load();
}

DRAVResult DRMXInput::SetBufferSizeFrameCount(int64_t frames)
{
    if (frames < 1 || frames > DRAVSourceAudioCaptureCoreAudio::kMaxBufferSizeFrameCount)
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "buffer size of %lld frames",
                          static_cast<long long>(frames));
    }
    impl_->bufferFrameCount.store(frames);
    if (const std::shared_ptr<DRAVSourceAudioCaptureCoreAudio> source = GetCaptureSource())
    {
        return source->SetBufferSizeFrameCount(frames);
    }
    return DRAVResult(kDRAVResultOk);
}
