#include "settings/DRAVSourceSelector.h"

#include <limits>

namespace
{
constexpr const char* kSourceDeviceType = "sourceDeviceType";
constexpr const char* kSourceUsageType = "sourceUsageType";
constexpr const char* kSourceDevicePath = "sourceDevicePath";

void ReadNonNegative(const TJSON& json, const char* key, int32_t& field)
{
    TJSON value = json.GetObject(key);
    if (!value.IsValidAndNotNull())
    {
        return;
    }
    int64_t number = value.GetInt();
    if (number >= 0 && number <= std::numeric_limits<int32_t>::max())
    {
        field = static_cast<int32_t>(number);
    }
}
}  // namespace

DRAVSourceSelector::DRAVSourceSelector(int32_t type, int32_t usage, std::string path)
    : deviceType(type), usageType(usage), devicePath(std::move(path))
{
}

TJSON DRAVSourceSelector::ToDocument() const
{
    TJSON json;
    json.AddInt(kSourceDeviceType, deviceType);
    json.AddInt(kSourceUsageType, usageType);
    json.AddString(kSourceDevicePath, devicePath);
    return json;
}

std::string DRAVSourceSelector::ToJSON() const
{
    return ToDocument().ToString();
}

DRAVResult DRAVSourceSelector::FromDocument(const TJSON& json)
{
    if (!json.IsObject())
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "source selector is no object");
    }
    ReadNonNegative(json, kSourceDeviceType, deviceType);
    ReadNonNegative(json, kSourceUsageType, usageType);
    TJSON path = json.GetObject(kSourceDevicePath);
    if (path.IsValidAndNotNull())
    {
        devicePath = path.GetString();
    }
    return kDRAVResultOk;
}

DRAVResult DRAVSourceSelector::FromJSON(const std::string& text)
{
    return FromDocument(TJSON(text));
}

bool DRAVSourceSelector::operator==(const DRAVSourceSelector& other) const
{
    return deviceType == other.deviceType && usageType == other.usageType && devicePath == other.devicePath;
}
