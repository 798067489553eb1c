#include "control/DRMXMixerNodeBase.h"

#include "control/DRMXVULevel.h"
#include "portable-core/KVCMapBuilder.h"

using namespace DRMX_Settings;

DRMXMixerNodeBase::DRMXMixerNodeBase(const std::string& name, KVCMap* properties,
                                     const DRMXInputSelector& inputSelector,
                                     const DRMXOutputSelector& outputSelector)
    : DRAVUnit(name, properties != nullptr ? properties : GetMyObjectProperties(), 0, 0),
      inputSelector_(inputSelector),
      outputSelector_(outputSelector)
{
    selector_.type = inputSelector.GetType();
    selector_.gain = inputSelector.gain;
    selector_.mute = inputSelector.mute;
    selector_.nodeId = 0;
}

DRMXMixerNodeBase::~DRMXMixerNodeBase() = default;

KVCMap* DRMXMixerNodeBase::GetMyObjectProperties()
{
    static KVCMap* const sClassProperties =
        KVCMapBuilder<DRMXMixerNodeBase>(DRAVUnit::GetMyObjectProperties())
            .Double(kPropertyNodeGain, &DRMXMixerNodeBase::SetGain, &DRMXMixerNodeBase::GetGain)
            .Bool(kPropertyNodeMute, &DRMXMixerNodeBase::SetMute, &DRMXMixerNodeBase::GetMute)
            .Double(kPropertyNodeVULevelChannel1, nullptr, &DRMXMixerNodeBase::GetVULevelChannel1)
            .Double(kPropertyNodeVULevelChannel2, nullptr, &DRMXMixerNodeBase::GetVULevelChannel2)
            .Build();
    return sClassProperties;
}

DRAVResult DRMXMixerNodeBase::Init()
{
    CDplScopedLock lock(lock_);
    selector_.nodeId = inputSelector_.GetMixerNodeId();
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXMixerNodeBase::Deinit()
{
    return DRAVResult(kDRAVResultOk);
}

DRMXMixerNodeSelector DRMXMixerNodeBase::GetSelector()
{
    CDplScopedLock lock(lock_);
    return selector_;
}

void DRMXMixerNodeBase::SetSelector(const DRMXMixerNodeSelector& selector)
{
    CDplScopedLock lock(lock_);
    selector_ = selector;
}

void DRMXMixerNodeBase::UpdateNodeId(int id)
{
    CDplScopedLock lock(lock_);
    selector_.nodeId = id;
    inputSelector_.SetMixerNodeID(id);
}

double DRMXMixerNodeBase::GetVULevelChannel1()
{
    return vuLevelChannel1_.load();
}

double DRMXMixerNodeBase::GetVULevelChannel2()
{
    return vuLevelChannel2_.load();
}

void DRMXMixerNodeBase::SetVULevel(double level, int channel)
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

DRMXInputSelector DRMXMixerNodeBase::GetInputSelector() const
{
    CDplScopedLock lock(lock_);
    return inputSelector_;
}

void DRMXMixerNodeBase::SetInputSelector(const DRMXInputSelector& selector)
{
    CDplScopedLock lock(lock_);
    inputSelector_ = selector;
}

DRMXOutputSelector DRMXMixerNodeBase::GetOutputSelector() const
{
    CDplScopedLock lock(lock_);
    return outputSelector_;
}

void DRMXMixerNodeBase::SetOutputSelector(const DRMXOutputSelector& selector)
{
    CDplScopedLock lock(lock_);
    outputSelector_ = selector;
}

void DRMXMixerNodeBase::SetGain(double gain)
{
    CDplScopedLock lock(lock_);
    selector_.gain = gain;
}

double DRMXMixerNodeBase::GetGain()
{
    CDplScopedLock lock(lock_);
    return selector_.gain;
}

void DRMXMixerNodeBase::SetMute(bool mute)
{
    CDplScopedLock lock(lock_);
    selector_.mute = mute;
}

bool DRMXMixerNodeBase::GetMute()
{
    CDplScopedLock lock(lock_);
    return selector_.mute;
}
