#include "control/DRMXOutputBase.h"

#include "control/DRMXVULevel.h"
#include "portable-core/KVCMapBuilder.h"

DRMXOutputBase::DRMXOutputBase(const std::string& name, KVCMap* properties)
    : DRAVObject(name, properties != nullptr ? properties : GetMyObjectProperties())
{
}

DRMXOutputBase::~DRMXOutputBase() = default;

KVCMap* DRMXOutputBase::GetMyObjectProperties()
{
    static KVCMap* const sClassProperties =
        KVCMapBuilder<DRMXOutputBase>(DRAVObject::GetMyObjectProperties())
            .Double(kPropertyOutputLevel, &DRMXOutputBase::SetOutputLevel, &DRMXOutputBase::GetOutputLevel)
            .Bool(kPropertyOutputMute, &DRMXOutputBase::SetOutputMute, &DRMXOutputBase::GetOutputMute)
            .Int(kPropertyAudioBufferSizeFrameCount, &DRMXOutputBase::SetBufferSizeFrameCount,
                 &DRMXOutputBase::GetBufferSizeFrameCount)
            .Int(kPropertyAudioBufferSizeMs, &DRMXOutputBase::SetBufferSizeMSec, &DRMXOutputBase::GetBufferSizeMSec)
            .Double(kPropertyOutputVULevelChannel1, nullptr, &DRMXOutputBase::GetVULevelChannel1)
            .Double(kPropertyOutputVULevelChannel2, nullptr, &DRMXOutputBase::GetVULevelChannel2)
            .Build();
    return sClassProperties;
}

DRMX_Settings::DRMXOutputSelector DRMXOutputBase::GetSelector() const
{
    CDplScopedLock lock(selectorLock_);
    return selector_;
}

void DRMXOutputBase::SetSelector(const DRMX_Settings::DRMXOutputSelector& selector)
{
    CDplScopedLock lock(selectorLock_);
    selector_ = selector;
}

DRAVResult DRMXOutputBase::AudioUnitStart(const DRAVTimestamp&)
{
    started.store(true);
    return DRAVResult(kDRAVResultErrNotImplemented);
}

void DRMXOutputBase::AudioUnitStop()
{
    started.store(false);
}

void DRMXOutputBase::SetOutputLevel(double level)
{
    outputLevel_.store(level);
}

double DRMXOutputBase::GetOutputLevel()
{
    return outputLevel_.load();
}

void DRMXOutputBase::SetOutputMute(bool mute)
{
    outputMute_.store(mute);
}

bool DRMXOutputBase::GetOutputMute()
{
    return outputMute_.load();
}

double DRMXOutputBase::GetVULevelChannel1()
{
    return vuLevelChannel1_.load();
}

double DRMXOutputBase::GetVULevelChannel2()
{
    return vuLevelChannel2_.load();
}

void DRMXOutputBase::SetVULevel(double level, int channel)
{
    if (channel == 0)
    {
        vuLevelChannel1_.store(DRMXMeterValueFromDecibels(level));
    }
    else if (channel == 1)
    {
        vuLevelChannel2_.store(DRMXMeterValueFromDecibels(level));
    }
}

int64_t DRMXOutputBase::GetBufferSizeFrameCount()
{
    return bufferFrameCount_.load();
}

void DRMXOutputBase::SetBufferSizeFrameCount(int64_t frames)
{
    bufferFrameCount_.store(frames);
}

int64_t DRMXOutputBase::GetBufferSizeMSec()
{
    return bufferSizeMSec_.load();
}

void DRMXOutputBase::SetBufferSizeMSec(int64_t milliseconds)
{
    bufferSizeMSec_.store(milliseconds);
}
