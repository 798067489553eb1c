#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "portable-core/CDplThreadMutex.h"
#include "portable-core/DRAVResult.h"
#include "portable-core/json/TJSON.h"
#include "settings/DRAVEngineSourceSettings.h"
#include "settings/DRAVSourceSelector.h"

// The settings file shared with the control layer's settings, in the same folder.
constexpr const char* kDRAVEngineSettingsFileName = "Settings.json";

constexpr const char* kEngineSettingVersion = "version";
constexpr const char* kEngineSettingSourceSettings = "primarySource";
constexpr const char* kEngineSettingAudioSourceSettings = "micSource";
constexpr const char* kEngineSettingSources = "sources";
constexpr const char* kEngineSettingMaxNumberLogFiles = "maxNumberLogFiles";
constexpr const char* kEngineSettingEnableAudioRendering = "enableAudioProcessing";
constexpr const char* kEngineSettingAudioMute = "audioMute";
constexpr const char* kEngineSettingAutoDefaultAudioSelection = "autoDefaultAudioSelection";
constexpr const char* kEngineSettingAutoRestartAudio = "autoRestartAudio";
constexpr const char* kEngineSettingPreviewPageSelected = "previewPageSelected";
constexpr const char* kEngineSettingEncoderVideoScaler = "encoderVideoScaler";
constexpr const char* kEngineSettingSourceVideoScaler = "sourceVideoScaler";
constexpr const char* kEngineSettingProcessorAdditionalDelayMs = "processorAdditionalDelayMs";
constexpr const char* kEngineSettingProcessorJitterCompensation = "processorJitterCompensation";
constexpr const char* kEngineSettingUseNewLibraryStructure = "activateNewLibraryStructure";
constexpr const char* kEngineSettingProjectFileCreationFlag = "createProjectFile";
constexpr const char* kEngineSettingLiveCommentaryActivateFeature = "activateLiveCommentaryFeature";
constexpr const char* kEngineSettingLiveCommentaryEnableMonitoring = "liveCommentaryEnableMonitoring";
constexpr const char* kEngineSettingLiveCommentaryAudioGain = "liveCommentaryAudioGain";
constexpr const char* kEngineSettingIsLiveCommentaryActivated = "isLiveCommentaryActivated";
constexpr const char* kEngineSettingLiveCommentaryForceMono = "liveCommentaryForceMono";

constexpr int64_t kEngineSettingsFileVersion = 3;

// Held across every read-modify-write of the shared settings file in this
// process, so that two savers never drop each other's keys.
std::mutex& DRAVSettingsFileMutex();

// Width and height of a video format.
struct DRAVSettingsSize
{
    int64_t width = 0;
    int64_t height = 0;
    bool operator==(const DRAVSettingsSize& other) const = default;
};

// The value part of the engine settings: copied and compared as a whole.
struct DRAV_ENGINE_SETTINGS
{
    DRAV_ENGINE_SETTINGS();

    std::string settingsFolder;
    std::string overridesFolder;
    std::string logFolder;
    std::string recordingsLogFolder;
    std::string edidFolder;
    std::string tmpFolder;
    DRAVSourceSelector primarySource;
    DRAVSourceSelector micSource;
    std::vector<DRAVEngineSourceSettings> sources;
    int64_t maxNumberLogFiles = 10;
    bool enableAudioRendering = true;
    bool audioMute = false;
    bool autoDefaultAudioSelection = true;
    bool autoRestartAudio = false;
    bool previewPageSelected = true;
    int32_t encoderVideoScaler = 0;
    int32_t sourceVideoScaler = 3;
    int64_t processorAdditionalDelayMs = 20;
    bool processorJitterCompensation = true;
    bool useNewLibraryStructure = true;
    int32_t projectFileCreationFlag = 1;
    bool liveCommentaryActivateFeature = true;
    bool isLiveCommentaryActivated = false;
    bool liveCommentaryEnableMonitoring = false;
    bool liveCommentaryForceMono = false;
    double liveCommentaryAudioGain = 1.0;
};

class DRAVEngineSettings;

// Told of every change of the engine settings.
class DRAVSettingsNotificationInterface
{
public:
    virtual ~DRAVSettingsNotificationInterface() = default;
    virtual void SettingsChanged(const DRAVEngineSettings& settings) = 0;
};

// The media engine's own settings: its folders, the number of log files to
// keep and a few audio switches, loaded from and saved to the settings file
// that it shares with the control layer. A save keeps the keys of the file
// that are not the engine's own.
class DRAVEngineSettings : public DRAV_ENGINE_SETTINGS
{
public:
    DRAVEngineSettings() = default;
    // Copies the values only; the copy has no handlers.
    DRAVEngineSettings(const DRAVEngineSettings& other);
    DRAVEngineSettings& operator=(const DRAVEngineSettings& other);
    // Waits for notifications still running on their own threads.
    ~DRAVEngineSettings();

    // Reads the file at path (a missing file is no error) and derives the folders.
    DRAVResult LoadSettings(const std::string& path);
    // Writes the engine's keys into the file at path, keeping all others.
    DRAVResult SaveSettings(const std::string& path) const;
    // Takes the other's values and tells the handlers; false when nothing changed.
    bool UpdateSettings(const DRAVEngineSettings& other, bool async);
    bool AreSettingsValid() const { return true; }

    void RegisterNotificationHandler(const std::shared_ptr<DRAVSettingsNotificationInterface>& handler);
    void UnregisterNotificationHandler(const std::shared_ptr<DRAVSettingsNotificationInterface>& handler);
    void NotifySettingsChanged();

    // Every field but autoRestartAudio and liveCommentaryActivateFeature.
    bool operator==(const DRAVEngineSettings& other) const;
    bool operator!=(const DRAVEngineSettings& other) const { return !(*this == other); }

    // Video source entries by their id; false when there is none.
    bool GetSourceSettings(const std::string& id, DRAVEngineSourceSettings& settings) const;
    void SetSourceSettings(const std::string& id, const DRAVEngineSourceSettings& settings);

    // The document with every key of these settings.
    TJSON ToDocument() const;

    // Typed readers: a value that is there and not null is stored and gives
    // "Ok"; otherwise the place keeps its value and the result is "ErrNotFound".
    static DRAVResult Int64FromJSON(const TJSON& json, const char* key, int64_t& place);
    static DRAVResult Int32FromJSON(const TJSON& json, const char* key, int32_t& place);
    static DRAVResult BoolFromJSON(const TJSON& json, const char* key, bool& place);
    static DRAVResult DoubleFromJSON(const TJSON& json, const char* key, double& place);
    static DRAVResult StringFromJSON(const TJSON& json, const char* key, std::string& place);
    static DRAVResult SizeFromJSON(const TJSON& json, const char* key, DRAVSettingsSize& place);
    static DRAVResult JSONFromJSON(const TJSON& json, const char* key, TJSON& place);

private:
    void ReadDocument(const TJSON& json);
    void DeriveFolders(const std::string& path);
    std::vector<std::shared_ptr<DRAVSettingsNotificationInterface>> CopyHandlers();
    void JoinFinishedNotifiers();

    CDplThreadMutex lock_;
    std::vector<std::shared_ptr<DRAVSettingsNotificationInterface>> handlers_;

    struct Notifier
    {
        std::thread thread;
        std::shared_ptr<std::atomic<bool>> done;
    };
    std::mutex notifiersMutex_;
    std::vector<Notifier> notifiers_;
};
