#include "control/DRMXOutputBase.h"

#include "control/DRMXVULevel.h"
#include "engine/sinks/DRAVSinkAudioRendererAudioUnit.h"
#include "portable-core/DRAVPropertyNames.h"
#include "portable-core/KVCMapBuilder.h"

DRMXOutputBase::DRMXOutputBase(const std::string& name, KVCMap* properties)
    : DRAVUnit(name, properties != nullptr ? properties : GetMyObjectProperties(), 0, 0)
{
}

DRMXOutputBase::~DRMXOutputBase() = default;

KVCMap* DRMXOutputBase::GetMyObjectProperties()
{
    static KVCMap* const sClassProperties =
        KVCMapBuilder<DRMXOutputBase>(DRAVUnit::GetMyObjectProperties())
            .Double(kPropertyOutputLevel, &DRMXOutputBase::SetOutputLevel, &DRMXOutputBase::GetOutputLevel)
            .Bool(kPropertyOutputMute, &DRMXOutputBase::SetOutputMute, &DRMXOutputBase::GetOutputMute)
            // A property set has no result to give back: a refused size is
            // logged and the value stays.
            .Int(
                kPropertyAudioBufferSizeFrameCount,
                [](DRMXOutputBase& output, const int64_t& frames) {
                    output.SetBufferSizeFrameCount(frames).LogError("%s", kPropertyAudioBufferSizeFrameCount);
                },
                &DRMXOutputBase::GetBufferSizeFrameCount)
            .Int(
                kPropertyAudioBufferSizeMs,
                [](DRMXOutputBase& output, const int64_t& milliseconds)
                { output.SetBufferSizeMSec(milliseconds).LogError("%s", kPropertyAudioBufferSizeMs); },
                &DRMXOutputBase::GetBufferSizeMSec)
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

DRAVResult DRMXOutputBase::SetBufferSizeFrameCount(int64_t frames)
{
    if (frames < 1 || frames > DRAVSinkAudioRendererAudioUnit::kMaxBufferSizeFrameCount)
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "buffer size of %lld frames",
                          static_cast<long long>(frames));
    }
    bufferFrameCount_.store(frames);
    return DRAVResult(kDRAVResultOk);
}

int64_t DRMXOutputBase::GetBufferSizeMSec()
{
    return bufferSizeMSec_.load();
}

DRAVResult DRMXOutputBase::SetBufferSizeMSec(int64_t milliseconds)
{
    if (milliseconds <= 0)
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "buffer size of %lld ms",
                          static_cast<long long>(milliseconds));
    }
    bufferSizeMSec_.store(milliseconds);
    return DRAVResult(kDRAVResultOk);
}

std::shared_ptr<DRAVSink> DRMXOutputBase::GetSink() const
{
    return nullptr;
}
