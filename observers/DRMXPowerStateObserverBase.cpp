#include "observers/DRMXPowerStateObserverBase.h"

#include "portable-core/KVCMapBuilder.h"

DRMXPowerStateObserverBase::DRMXPowerStateObserverBase(const std::string& friendlyName, KVCMap* properties)
    : DRAVObject(friendlyName, properties != nullptr ? properties : GetMyObjectProperties())
{
}

DRMXPowerStateObserverBase::~DRMXPowerStateObserverBase() = default;

KVCMap* DRMXPowerStateObserverBase::GetMyObjectProperties()
{
    static KVCMap* const sClassProperties =
        KVCMapBuilder<DRMXPowerStateObserverBase>(DRAVObject::GetMyObjectProperties())
            .Int(kPropertPowerStateNotification, nullptr,
                 &DRMXPowerStateObserverBase::PowerStateObserverChange)
            .Build();
    return sClassProperties;
}

void DRMXPowerStateObserverBase::SetEnabled(bool enabled)
{
    enabled_.store(enabled);
}

DRAVResult DRMXPowerStateObserverBase::AttachObserver(KVObserver* observer)
{
    if (!HasProperty(kPropertPowerStateNotification))
    {
        return DRAVResult(kDRAVResultErrNotFound);
    }
    AddObserver(KVOItem::Raw(observer), kPropertPowerStateNotification);
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXPowerStateObserverBase::DetachObserver(KVObserver* observer)
{
    if (!HasProperty(kPropertPowerStateNotification))
    {
        return DRAVResult(kDRAVResultErrNotFound);
    }
    RemoveObserver(KVOItem::Raw(observer), kPropertPowerStateNotification);
    return DRAVResult(kDRAVResultOk);
}

void DRMXPowerStateObserverBase::SetPowerState(DRMXPowerState state)
{
    powerState_.store(state);
}

void DRMXPowerStateObserverBase::NotifyChanges()
{
    if (enabled_.load())
    {
        SetIntProperty(kPropertPowerStateNotification, powerState_.load(), true);
    }
}
