#include "control/DRMXOutput.h"

#include <utility>

#include "engine/DRAVManager.h"
#include "engine/devices/DRAVDeviceCoreAudio.h"
#include "engine/sinks/DRAVSinkAudioRendererAudioUnit.h"
#include "engine/units/DRAVUnitState.h"
#include "portable-core/DRAVPropertyNames.h"

using namespace DRMX_Settings;

struct DRMXOutput::Impl
{
    // Held across start, stop and every value handed to the sink, so a mute
    // set by the manager and one set by the application can't cross and leave
    // the sink with a stale combination.
    mutable CDplThreadMutex sinkLock;
    std::shared_ptr<DRAVSink> sink;
};

DRMXOutput::DRMXOutput(const DRMXOutputSelector& selector)
    : DRMXOutputBase(kObjectName), impl_(std::make_unique<Impl>())
{
    DRMXOutputBase::SetSelector(selector);
}

DRMXOutput::~DRMXOutput()
{
    AudioUnitStop();
}

std::shared_ptr<DRAVSink> DRMXOutput::GetSink() const
{
    CDplScopedLock lock(impl_->sinkLock);
    return impl_->sink;
}

bool DRMXOutput::IsUnitStarted()
{
    return GetSink() != nullptr;
}

std::string DRMXOutput::GetDevicePathForSelector(const DRMXOutputSelector& selector)
{
    if (!selector.GetDevicePath().empty())
    {
        return selector.GetDevicePath();
    }
    if (selector.GetHardwareId().empty())
    {
        return {};
    }
    for (const DRAVDeviceDescriptor& device :
         DRAVDeviceCoreAudio::EnumDeviceDescriptors(kDRAVDeviceTypeAudioOutput))
    {
        if (device.hardwareId == selector.GetHardwareId())
        {
            return device.devicePath;
        }
    }
    return {};
}

DRAVResult DRMXOutput::AudioUnitStart(const DRAVTimestamp&)
{
    CDplScopedLock lock(impl_->sinkLock);
    // A second start must not leave the first sink's device open.
    StopLocked();

    std::shared_ptr<DRAVSink> sink;
    DRAVResult result = DRAVManager::GetDRAVManager()->CreateSink(
        DRAVSinkConfig{DRAVSink::kTypeAudioRenderer}, &sink, nullptr, false);
    if (!result.Succeeded() || !sink)
    {
        return result.Succeeded() ? DRAVResult(kDRAVResultErrNullPointer) : result;
    }
    impl_->sink = sink;
    started.store(true);
    if (auto renderer = std::dynamic_pointer_cast<DRAVSinkAudioRendererAudioUnit>(sink))
    {
        renderer->SetBufferSizeFrameCount(DRMXOutputBase::GetBufferSizeFrameCount());
    }
    result = sink->Init();
    if (!result.Succeeded())
    {
        return result;
    }
    const std::string path = GetDevicePathForSelector(GetSelector());
    if (path.empty())
    {
        return DRAVResult(kDRAVResultErrUnknown, "no output device for \"%s\"",
                          GetSelector().GetName().c_str());
    }
    sink->SetStringProperty(kPropertyCaptureDevicePath, path);
    sink->SetDoubleProperty(kPropertyAudioRendererVolume, GetOutputLevel());
    ApplyMuteLocked();
    return sink->SetUnitState(kDRAVUnitStateRunning);
}

void DRMXOutput::AudioUnitStop()
{
    CDplScopedLock lock(impl_->sinkLock);
    StopLocked();
}

void DRMXOutput::StopLocked()
{
    std::shared_ptr<DRAVSink> sink = std::move(impl_->sink);
    started.store(false);
    if (!sink)
    {
        return;
    }
    sink->SetUnitState(kDRAVUnitStatePaused);
    sink->Deinit();
    // Made anew at each start: the engine's registry mustn't keep them all.
    DRAVManager::GetDRAVManager()->RemoveUnit(sink);
}

void DRMXOutput::SetSelector(const DRMXOutputSelector& selector)
{
    CDplScopedLock lock(impl_->sinkLock);
    DRMXOutputBase::SetSelector(selector);
    if (impl_->sink)
    {
        const std::string path = GetDevicePathForSelector(selector);
        if (!path.empty())
        {
            impl_->sink->SetStringProperty(kPropertyCaptureDevicePath, path);
        }
    }
}

void DRMXOutput::SetOutputLevel(double level)
{
    CDplScopedLock lock(impl_->sinkLock);
    DRMXOutputBase::SetOutputLevel(level);
    if (impl_->sink)
    {
        impl_->sink->SetDoubleProperty(kPropertyAudioRendererVolume, level);
    }
}

void DRMXOutput::SetOutputMute(bool mute)
{
    CDplScopedLock lock(impl_->sinkLock);
    DRMXOutputBase::SetOutputMute(mute);
    ApplyMuteLocked();
}

void DRMXOutput::SetEngineMute(bool mute)
{
    CDplScopedLock lock(impl_->sinkLock);
    DRMXOutputBase::SetEngineMute(mute);
    ApplyMuteLocked();
}

void DRMXOutput::ApplyMuteLocked()
{
    if (impl_->sink)
    {
        impl_->sink->SetBoolProperty(kPropertyAudioRendererMute, GetOutputMute() || GetEngineMute());
    }
}

int64_t DRMXOutput::GetBufferSizeFrameCount()
{
    if (auto renderer = std::dynamic_pointer_cast<DRAVSinkAudioRendererAudioUnit>(GetSink()))
    {
        return renderer->GetBufferSizeFrameCount();
    }
    return DRMXOutputBase::GetBufferSizeFrameCount();
}

DRAVResult DRMXOutput::SetBufferSizeFrameCount(int64_t frames)
{
    CDplScopedLock lock(impl_->sinkLock);
    DRAVResult result = DRMXOutputBase::SetBufferSizeFrameCount(frames);
    if (result.Succeeded())
    {
        if (auto renderer = std::dynamic_pointer_cast<DRAVSinkAudioRendererAudioUnit>(impl_->sink))
        {
            result = renderer->SetBufferSizeFrameCount(frames);
        }
    }
    return result;
}
