#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "portable-core/DRAVResult.h"
#include "settings/DRMXApplicationSettings.h"
#include "settings/DRMXInputSelector.h"
#include "settings/DRMXMicrophoneSettings.h"
#include "settings/DRMXMixerConfiguration.h"
#include "settings/DRMXMixerNodeSelector.h"
#include "settings/DRMXOutputSelector.h"
#include "settings/DRMXProductNames.h"
#include "settings/DRMXSettingsTypes.h"

namespace DRMX_Settings
{

inline constexpr const char* SETTINGS_JSON_FILENAME = "Settings.json";

// The folder of the settings file, the engine's DRAVGetAppDataDirectory:
// empty when no configuration home is known, and then there is no file.
std::string DRMXGetAppDataDirectory(bool create);

// The whole persistent state of the control layer: the layout of both mixes,
// the microphone's values and the application's preferences, in one section
// of Settings.json. The file's other sections (the engine's) are kept as they
// are on every save, and a save replaces the file atomically.
class DRMXSettings
{
public:
    // Where defaults come from: the devices the manager sees. Without them
    // the defaults find no output and no microphone.
    struct DeviceQueries
    {
        std::function<std::vector<DRMXOutputSelector>(DRMXOutputType, const std::string& name)>
            availableOutputs;
        std::function<std::vector<DRMXInputSelector>(DRMXInputType)> availableInputs;
        std::function<std::vector<DRMXInputSelector>()> defaultAppAudioInputs;
    };

    void SetDeviceQueries(DeviceQueries queries) { queries_ = std::move(queries); }

    DRAVResult LoadSettings(const std::string& path);
    // The same from the file's text, for callers that hold it already.
    DRAVResult LoadSettingsFromText(const std::string& text);
    DRAVResult SaveSettings(const std::string& path);
    DRAVResult LoadDefaultSettings();
    DRAVResult LoadDefaultOutputs();
    DRAVResult LoadDefaultMicrophoneSettings();
    static void LoadDefaultMicrophoneSettings(DRMXInputSelector& selector, DRMXMixerType mixerType);
    DRAVResult LoadDefaultAppAudioSettings();
    DRAVResult Validate();
    // Back to a new state with empty mixer lists; version, the buffer sizes
    // and the two flags stay.
    void ResetSettings();
    void UpdateSettings(const DRMXSettings& other);
    bool isLoadedCorrectly() const { return loadedCorrectly_; }
    void setSaveSettingsAllowed(bool allowed) { saveSettingsAllowed_ = allowed; }
    static bool CanImportSettingsFromFileWithVersion(int version) { return version < 2; }

    int32_t version = 0;
    DRMXMixerConfiguration mixerConfiguration;
    DRMXMicrophoneSettings microphoneSettings;
    DRMXApplicationSettings applicationSettings;

private:
    bool loadedCorrectly_ = false;
    bool saveSettingsAllowed_ = true;
    DeviceQueries queries_;
};

}  // namespace DRMX_Settings
