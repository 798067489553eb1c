#include "settings/DRMXApplicationSettings.h"

#include "settings/DPLJSONUtils.h"
#include "settings/DRMXRecordJSON.h"

namespace DRMX_Settings
{

nlohmann::json DRMXApplicationSettings::ToJSONObject() const
{
    nlohmann::json value = nlohmann::json::object();
    value["Application CheckForUpdate"] = checkForUpdate;
    value["Application AutoOpenLogin"] = autoOpenLogin;
    value["Application UpdateSkipVersion"] = updateSkipVersion;
    value["Application DontShowAlertOnQuit"] = dontShowAlertOnQuit;
    value["Application DontShowAlertOnLocalMicChannelUnmute"] = dontShowAlertOnLocalMicChannelUnmute;
    value["Application LevelMeterDecayAnimationDelay"] = levelMeterDecayAnimationDelay;
    value["Application Localization Language"] = localizationLanguage;
    return value;
}

void DRMXApplicationSettings::FillFromJSON(const nlohmann::json& value)
{
    checkForUpdate = DPLJSONUtils::GetBoolByName(value, "Application CheckForUpdate", true);
    autoOpenLogin = DPLJSONUtils::GetBoolByName(value, "Application AutoOpenLogin", true);
    updateSkipVersion = DPLJSONUtils::GetStringByName(value, "Application UpdateSkipVersion", "");
    dontShowAlertOnQuit = DPLJSONUtils::GetBoolByName(value, "Application DontShowAlertOnQuit", false);
    dontShowAlertOnLocalMicChannelUnmute =
        DPLJSONUtils::GetBoolByName(value, "Application DontShowAlertOnLocalMicChannelUnmute", false);
    levelMeterDecayAnimationDelay =
        DPLJSONUtils::GetUnsignedIntByName(value, "Application LevelMeterDecayAnimationDelay", 1000);
    localizationLanguage = DPLJSONUtils::GetStringByName(value, "Application Localization Language", "");
}

std::string DRMXApplicationSettings::ToJSON() const
{
    return DumpRecord(ToJSONObject());
}

DRAVResult DRMXApplicationSettings::FromJSON(const std::string& text)
{
    return RecordFromJSONText(text, *this);
}

DRAVResult DRMXApplicationSettings::FromJSONObject(const nlohmann::json& value)
{
    return RecordFromJSONObject(value, *this);
}

}  // namespace DRMX_Settings
