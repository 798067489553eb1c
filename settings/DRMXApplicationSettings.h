#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "settings/DRAVJSONSerializationInterface.h"

namespace DRMX_Settings
{

// The application's own preferences, kept in the settings file for it.
class DRMXApplicationSettings : public DRAVJSONSerializationInterface
{
public:
    DRMXApplicationSettings() = default;

    const std::string& GetUpdateSkipVersion() const { return updateSkipVersion; }
    void SetUpdateSkipVersion(const std::string& version) { updateSkipVersion = version; }
    void ResetSkipVersion() { updateSkipVersion.clear(); }

    // Fixed development values.
    int GetDebugSetTimeForSWUpdateCheck() const { return 1440; }
    bool GetDebugAlwaysUpdateVersion() const { return false; }
    std::string GetDebugReleaseNotesLocalPath() const { return {}; }

    std::string ToJSON() const override;
    DRAVResult FromJSON(const std::string& text) override;
    nlohmann::json ToJSONObject() const;
    DRAVResult FromJSONObject(const nlohmann::json& value);
    // Fills this record from a value; throws the JSON library's exceptions.
    void FillFromJSON(const nlohmann::json& value);

    bool checkForUpdate = true;
    bool autoOpenLogin = true;
    bool dontShowAlertOnQuit = false;
    bool dontShowAlertOnLocalMicChannelUnmute = false;
    std::string updateSkipVersion;
    uint32_t levelMeterDecayAnimationDelay = 1000;
    std::string localizationLanguage;
};

}  // namespace DRMX_Settings
