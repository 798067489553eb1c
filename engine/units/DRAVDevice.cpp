#include "engine/units/DRAVDevice.h"

#include <nlohmann/json.hpp>

#include "portable-core/KVCMapBuilder.h"

std::string DRAVDeviceDescription::ToJSON() const
{
    nlohmann::json object;
    object["Device Name"] = name;
    object["Device Path"] = path;
    object["Device Present"] = present;
    return object.dump();
}

DRAVResult DRAVDeviceDescription::FromJSON(const std::string& text)
{
    const nlohmann::json object = nlohmann::json::parse(text, nullptr, false);
    if (!object.is_object() || !object.contains("Device Name") || !object.contains("Device Path") ||
        !object["Device Name"].is_string() || !object["Device Path"].is_string())
    {
        return DRAVResult(kDRAVResultErrInvalidParameter);
    }
    name = object["Device Name"].get<std::string>();
    path = object["Device Path"].get<std::string>();
    present = true;
    return DRAVResult(kDRAVResultOk);
}

DRAVDevice::DRAVDevice(const std::string& name, KVCMap* propertyMap, std::shared_ptr<DRAVUnit> owner)
    : DRAVFilter("Device <" + name + ">",
                 propertyMap != nullptr ? propertyMap : DRAVDevice::GetMyObjectProperties(),
                 DRAVFilterConfig{0, false}, 0, 0),
      deviceOwner_(owner)
{
    description_.name = name;
}

KVCMap* DRAVDevice::GetMyObjectProperties()
{
    static KVCMap* const sClassProperties =
        KVCMapBuilder<DRAVDevice>(DRAVUnit::GetMyObjectProperties())
            .Json(kPropertyCaptureDeviceDescription, nullptr, &DRAVDevice::DeviceInfo)
            .Build();
    return sClassProperties;
}

std::string DRAVDevice::DeviceInfo()
{
    return GetDescription().ToJSON();
}

DRAVDeviceDescription DRAVDevice::GetDescription()
{
    CDplScopedLock lock(descriptionMutex_);
    return description_;
}

void DRAVDevice::SetDescription(const DRAVDeviceDescription& description)
{
    CDplScopedLock lock(descriptionMutex_);
    description_ = description;
}
