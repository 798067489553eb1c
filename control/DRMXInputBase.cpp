#include "control/DRMXInputBase.h"

#include "portable-core/DRAVPropertyNames.h"
#include "portable-core/KVCMapBuilder.h"

DRMXInputBase::DRMXInputBase(const std::string& name, KVCMap* properties)
    : DRAVUnit(name, properties != nullptr ? properties : GetMyObjectProperties(), 0, 0)
{
}

DRMXInputBase::~DRMXInputBase() = default;

KVCMap* DRMXInputBase::GetMyObjectProperties()
{
    // A property set has no result to give back: a refused size is logged and
    // the value stays.
    static KVCMap* const sClassProperties =
        KVCMapBuilder<DRMXInputBase>(DRAVUnit::GetMyObjectProperties())
            .Int(
                kPropertyAudioBufferSizeFrameCount,
                [](DRMXInputBase& input, const int64_t& frames)
                { input.SetBufferSizeFrameCount(frames).LogError("%s", kPropertyAudioBufferSizeFrameCount); },
                &DRMXInputBase::GetBufferSizeFrameCount)
            .Int(
                kPropertyAudioBufferSizeMs,
                [](DRMXInputBase& input, const int64_t& milliseconds)
                { input.SetBufferSizeMSec(milliseconds).LogError("%s", kPropertyAudioBufferSizeMs); },
                &DRMXInputBase::GetBufferSizeMSec)
            .Build();
    return sClassProperties;
}

DRMX_Settings::DRMXInputSelector DRMXInputBase::GetSelector() const
{
    CDplScopedLock lock(selectorLock_);
    return selector_;
}

void DRMXInputBase::SetSelector(const DRMX_Settings::DRMXInputSelector& selector)
{
    CDplScopedLock lock(selectorLock_);
    selector_ = selector;
}

void DRMXInputBase::UpdateMixerNodeId(int nodeId)
{
    CDplScopedLock lock(selectorLock_);
    selector_.SetMixerNodeID(nodeId);
}

std::shared_ptr<DRAVSource> DRMXInputBase::GetSource() const
{
    return nullptr;
}

DRAVResult DRMXInputBase::AudioUnitStart(const DRAVTimestamp&)
{
    started.store(true);
    return DRAVResult(kDRAVResultErrNotImplemented);
}

void DRMXInputBase::AudioUnitStop()
{
    started.store(false);
}

int64_t DRMXInputBase::GetBufferSizeFrameCount()
{
    return 0;
}

DRAVResult DRMXInputBase::SetBufferSizeFrameCount(int64_t)
{
    return DRAVResult(kDRAVResultErrNotImplemented, "an input without a source has no frame count");
}

int64_t DRMXInputBase::GetBufferSizeMSec()
{
    return bufferSizeMSec_.load();
}

DRAVResult DRMXInputBase::SetBufferSizeMSec(int64_t milliseconds)
{
    if (milliseconds <= 0)
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "buffer size of %lld ms",
                          static_cast<long long>(milliseconds));
    }
    bufferSizeMSec_.store(milliseconds);
    return DRAVResult(kDRAVResultOk);
}
