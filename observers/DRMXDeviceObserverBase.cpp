#include "observers/DRMXDeviceObserverBase.h"

#include "portable-core/KVCMapBuilder.h"

DRMXDeviceObserverBase::DRMXDeviceObserverBase(const std::string& friendlyName, KVCMap* properties)
    : DRAVObject(friendlyName, properties != nullptr ? properties : GetMyObjectProperties())
{
}

DRMXDeviceObserverBase::~DRMXDeviceObserverBase() = default;

KVCMap* DRMXDeviceObserverBase::GetMyObjectProperties()
{
    static KVCMap* const sClassProperties =
        KVCMapBuilder<DRMXDeviceObserverBase>(DRAVObject::GetMyObjectProperties())
            .Int(kPropertyDeviceObserverNotification, nullptr, &DRMXDeviceObserverBase::DeviceObserverChange)
            .Build();
    return sClassProperties;
}

void DRMXDeviceObserverBase::SetEnabled(bool enabled)
{
    enabled_.store(enabled);
}

DRAVResult DRMXDeviceObserverBase::AttachObserver(KVObserver* observer)
{
    if (!HasProperty(kPropertyDeviceObserverNotification))
    {
        return DRAVResult(kDRAVResultErrNotFound);
    }
    AddObserver(KVOItem::Raw(observer), kPropertyDeviceObserverNotification);
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXDeviceObserverBase::DetachObserver(KVObserver* observer)
{
    if (!HasProperty(kPropertyDeviceObserverNotification))
    {
        return DRAVResult(kDRAVResultErrNotFound);
    }
    RemoveObserver(KVOItem::Raw(observer), kPropertyDeviceObserverNotification);
    return DRAVResult(kDRAVResultOk);
}

void DRMXDeviceObserverBase::SetNotification(DRMXDeviceNotification notification)
{
    notification_.store(notification);
}

void DRMXDeviceObserverBase::NotifyChanges()
{
    if (enabled_.load())
    {
        SetIntProperty(kPropertyDeviceObserverNotification, notification_.load(), true);
    }
}
