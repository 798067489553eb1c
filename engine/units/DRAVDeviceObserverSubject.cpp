#include "engine/units/DRAVDeviceObserverSubject.h"

#include "portable-core/KVCMapBuilder.h"

DRAVDeviceObserverSubject::DRAVDeviceObserverSubject(const std::string& name, KVCMap* propertyMap)
    : DRAVUnit(name,
               propertyMap != nullptr ? propertyMap : DRAVDeviceObserverSubject::GetMyObjectProperties(), 0,
               0)
{
}

DRAVDeviceObserverSubject::~DRAVDeviceObserverSubject() = default;

KVCMap* DRAVDeviceObserverSubject::GetMyObjectProperties()
{
    static KVCMap* const sClassProperties =
        KVCMapBuilder<DRAVDeviceObserverSubject>(DRAVUnit::GetMyObjectProperties())
            .Bool(kPropertyDeviceObserverChange, nullptr, &DRAVDeviceObserverSubject::GetDeviceObserverChange)
            .Bool(kPropertyDeviceObserverChangeInternal, nullptr,
                  &DRAVDeviceObserverSubject::GetDeviceObserverChange)
            .Build();
    return sClassProperties;
}

const char* DRAVDeviceObserverSubject::PropertyName(bool internal)
{
    return internal ? kPropertyDeviceObserverChangeInternal : kPropertyDeviceObserverChange;
}

DRAVResult DRAVDeviceObserverSubject::Init()
{
    SetUnitInitialized(true);
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVDeviceObserverSubject::Deinit()
{
    SetUnitInitialized(false);
    return DRAVUnit::Deinit();
}

DRAVResult DRAVDeviceObserverSubject::AttachObserver(KVObserver* observer, bool internal)
{
    if (observer == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    KVCProperty* property = FindProperty(PropertyName(internal));
    if (property == nullptr)
    {
        return DRAVResult(kDRAVResultErrNotFound, "<%s> has no property \"%s\"", GetFriendlyName().c_str(),
                          PropertyName(internal));
    }
    property->AddObserver(KVOItem::Raw(observer));
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVDeviceObserverSubject::DetachObserver(KVObserver* observer, bool internal)
{
    if (observer == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    KVCProperty* property = FindProperty(PropertyName(internal));
    if (property == nullptr)
    {
        return DRAVResult(kDRAVResultErrNotFound);
    }
    property->RemoveObserver(KVOItem::Raw(observer));
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVDeviceObserverSubject::NotifyChanges(bool internal)
{
    SetBoolProperty(PropertyName(internal), true, true);
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVDeviceObserverSubject::IsBonjourInstalled(bool*)
{
    return DRAVResult(kDRAVResultErrNotImplemented);
}
