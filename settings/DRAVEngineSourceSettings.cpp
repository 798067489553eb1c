#include "settings/DRAVEngineSourceSettings.h"

DRAVEngineSourceSettings::DRAVEngineSourceSettings(const DRAVEngineSourceSettings& other)
    : DRAVJSONSerializationInterface(other), entries_(other.entries_.Copy())
{
}

DRAVEngineSourceSettings& DRAVEngineSourceSettings::operator=(const DRAVEngineSourceSettings& other)
{
    if (this != &other)
    {
        entries_ = other.entries_.Copy();
    }
    return *this;
}

std::string DRAVEngineSourceSettings::ToJSON() const
{
    return entries_.ToString();
}

DRAVResult DRAVEngineSourceSettings::FromDocument(const TJSON& json)
{
    if (!json.IsObject())
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "source settings are no object");
    }
    entries_ = json.Copy();
    return kDRAVResultOk;
}

DRAVResult DRAVEngineSourceSettings::FromJSON(const std::string& text)
{
    return FromDocument(TJSON(text));
}

std::string DRAVEngineSourceSettings::GetId() const
{
    return entries_.GetObject(kDeviceIdKey).GetString();
}

void DRAVEngineSourceSettings::SetId(const std::string& id)
{
    entries_.AddString(kDeviceIdKey, id);
}
