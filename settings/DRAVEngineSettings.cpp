#include "settings/DRAVEngineSettings.h"

#include <sys/stat.h>
#include <algorithm>
#include <cerrno>
#include <limits>

#include "portable-core/BreakIntoDebugger.h"
#include "portable-core/DRAVLog.h"
#include "portable-core/DRAVLogFolder.h"
#include "portable-core/DplFile.h"
#include "portable-core/json/CDplJsonFile.h"
#include "settings/DRAVEngineFolders.h"

namespace
{
// Marks a state that should not happen; the caller goes on with a result.
void ReportUnexpected(const char* what, const std::string& detail)
{
    DRAVLogPrintf(kDbgPrintLevelError, "DRAVEngineSettings: %s %s", what, detail.c_str());
    BreakIntoDebugger();
}

enum class FileState
{
    Missing,
    Empty,
    Present,
    Unusable,
};

FileState StateOfFile(const std::string& path)
{
    struct stat info = {};
    if (stat(path.c_str(), &info) != 0)
    {
        return errno == ENOENT ? FileState::Missing : FileState::Unusable;
    }
    if (!S_ISREG(info.st_mode))
    {
        return FileState::Unusable;
    }
    return info.st_size == 0 ? FileState::Empty : FileState::Present;
}

// Turns a record's text into a document; none when the text is no object.
TJSON RecordDocument(const DRAVJSONSerializationInterface& record, const char* key)
{
    std::string text = record.ToJSON();
    TJSON json(text);
    if (text.empty() || !json.IsObject())
    {
        ReportUnexpected("record without text:", key);
        return TJSONNone();
    }
    return json;
}
}  // namespace

std::mutex& DRAVSettingsFileMutex()
{
    static std::mutex* mutex = new std::mutex();
    return *mutex;
}

DRAV_ENGINE_SETTINGS::DRAV_ENGINE_SETTINGS() : settingsFolder(DRAVGetAppDataDirectory(false)) {}

DRAVEngineSettings::DRAVEngineSettings(const DRAVEngineSettings& other) : DRAV_ENGINE_SETTINGS(other) {}

DRAVEngineSettings& DRAVEngineSettings::operator=(const DRAVEngineSettings& other)
{
    if (this != &other)
    {
        DRAV_ENGINE_SETTINGS::operator=(other);
    }
    return *this;
}

DRAVEngineSettings::~DRAVEngineSettings()
{
    std::vector<Notifier> notifiers;
    {
        std::lock_guard<std::mutex> guard(notifiersMutex_);
        notifiers.swap(notifiers_);
    }
    for (Notifier& notifier : notifiers)
    {
        if (notifier.thread.get_id() == std::this_thread::get_id())
        {
            notifier.thread.detach();  // a handler that destroys its settings object
        }
        else if (notifier.thread.joinable())
        {
            notifier.thread.join();
        }
    }
}

// ---------------------------------------------------------------------------
// Typed readers

DRAVResult DRAVEngineSettings::Int64FromJSON(const TJSON& json, const char* key, int64_t& place)
{
    TJSON value = json.GetObject(key);
    if (!value.IsValidAndNotNull())
    {
        return kDRAVResultErrNotFound;
    }
    place = value.GetInt();
    return kDRAVResultOk;
}

DRAVResult DRAVEngineSettings::Int32FromJSON(const TJSON& json, const char* key, int32_t& place)
{
    int64_t value = place;
    DRAVResult result = Int64FromJSON(json, key, value);
    if (result.Succeeded())
    {
        place = static_cast<int32_t>(std::clamp<int64_t>(value, std::numeric_limits<int32_t>::min(),
                                                         std::numeric_limits<int32_t>::max()));
    }
    return result;
}

DRAVResult DRAVEngineSettings::BoolFromJSON(const TJSON& json, const char* key, bool& place)
{
    TJSON value = json.GetObject(key);
    if (!value.IsValidAndNotNull())
    {
        return kDRAVResultErrNotFound;
    }
    place = value.GetBool();
    return kDRAVResultOk;
}

DRAVResult DRAVEngineSettings::DoubleFromJSON(const TJSON& json, const char* key, double& place)
{
    TJSON value = json.GetObject(key);
    if (!value.IsValidAndNotNull())
    {
        return kDRAVResultErrNotFound;
    }
    place = value.GetDouble();
    return kDRAVResultOk;
}

DRAVResult DRAVEngineSettings::StringFromJSON(const TJSON& json, const char* key, std::string& place)
{
    TJSON value = json.GetObject(key);
    if (!value.IsValidAndNotNull())
    {
        return kDRAVResultErrNotFound;
    }
    place = value.GetString();
    return kDRAVResultOk;
}

DRAVResult DRAVEngineSettings::SizeFromJSON(const TJSON& json, const char* key, DRAVSettingsSize& place)
{
    TJSON value = json.GetObject(key);
    if (!value.IsValidAndNotNull())
    {
        return kDRAVResultErrNotFound;
    }
    place.width = value.GetObject("width").GetInt();
    place.height = value.GetObject("height").GetInt();
    return kDRAVResultOk;
}

DRAVResult DRAVEngineSettings::JSONFromJSON(const TJSON& json, const char* key, TJSON& place)
{
    TJSON value = json.GetObject(key);
    if (!value.IsValidAndNotNull())
    {
        return kDRAVResultErrNotFound;
    }
    place = value;
    return kDRAVResultOk;
}

// ---------------------------------------------------------------------------
// Load and save

void DRAVEngineSettings::ReadDocument(const TJSON& json)
{
    int64_t version = 0;
    Int64FromJSON(json, kEngineSettingVersion, version);  // read, not used

    TJSON record;
    if (JSONFromJSON(json, kEngineSettingSourceSettings, record).Succeeded())
    {
        primarySource.FromDocument(record);
    }
    if (JSONFromJSON(json, kEngineSettingAudioSourceSettings, record).Succeeded())
    {
        micSource.FromDocument(record);
    }
    TJSON list;
    if (JSONFromJSON(json, kEngineSettingSources, list).Succeeded() && list.IsArray())
    {
        // The file's list replaces the one in memory, so a second load can't double it.
        sources.clear();
        for (int64_t i = 0; i < list.GetCount(); ++i)
        {
            DRAVEngineSourceSettings entry;
            if (entry.FromDocument(list.GetIndObject(i)).Succeeded())
            {
                sources.push_back(entry);
            }
        }
    }
    Int64FromJSON(json, kEngineSettingMaxNumberLogFiles, maxNumberLogFiles);
    BoolFromJSON(json, kEngineSettingEnableAudioRendering, enableAudioRendering);
    BoolFromJSON(json, kEngineSettingAudioMute, audioMute);
    BoolFromJSON(json, kEngineSettingAutoDefaultAudioSelection, autoDefaultAudioSelection);
    BoolFromJSON(json, kEngineSettingAutoRestartAudio, autoRestartAudio);
    BoolFromJSON(json, kEngineSettingPreviewPageSelected, previewPageSelected);
    Int32FromJSON(json, kEngineSettingEncoderVideoScaler, encoderVideoScaler);
    Int32FromJSON(json, kEngineSettingSourceVideoScaler, sourceVideoScaler);
    Int64FromJSON(json, kEngineSettingProcessorAdditionalDelayMs, processorAdditionalDelayMs);
    BoolFromJSON(json, kEngineSettingProcessorJitterCompensation, processorJitterCompensation);
    BoolFromJSON(json, kEngineSettingUseNewLibraryStructure, useNewLibraryStructure);
    Int32FromJSON(json, kEngineSettingProjectFileCreationFlag, projectFileCreationFlag);
    BoolFromJSON(json, kEngineSettingLiveCommentaryActivateFeature, liveCommentaryActivateFeature);
    BoolFromJSON(json, kEngineSettingLiveCommentaryEnableMonitoring, liveCommentaryEnableMonitoring);
    DoubleFromJSON(json, kEngineSettingLiveCommentaryAudioGain, liveCommentaryAudioGain);
    BoolFromJSON(json, kEngineSettingIsLiveCommentaryActivated, isLiveCommentaryActivated);
    BoolFromJSON(json, kEngineSettingLiveCommentaryForceMono, liveCommentaryForceMono);

    if (!liveCommentaryActivateFeature)
    {
        liveCommentaryEnableMonitoring = false;
        isLiveCommentaryActivated = false;
    }
}

void DRAVEngineSettings::DeriveFolders(const std::string& path)
{
    size_t slash = path.find_last_of('/');
    if (slash == std::string::npos)
    {
        settingsFolder = path;
    }
    else
    {
        settingsFolder = slash == 0 ? std::string("/") : path.substr(0, slash);
    }
    overridesFolder = DplFile_AddPathComponent(settingsFolder, "Overrides");
    DplFile_CreateFolder(overridesFolder, true);
    logFolder = DplFile_AddPathComponent(settingsFolder, "Log");
    recordingsLogFolder = DplFile_AddPathComponent(logFolder, "Recordings");
    DRAVLog::DRAVInitLogFile(logFolder, GetProductName(true), maxNumberLogFiles);
    edidFolder = DplFile_AddPathComponent(settingsFolder, "EDID");
    DplFile_CreateFolder(edidFolder, true);
    tmpFolder = DplFile_AddPathComponent(settingsFolder, "Tmp");
    DplFile_CreateFolder(tmpFolder, true);
}

DRAVResult DRAVEngineSettings::LoadSettings(const std::string& path)
{
    // A missing file is the first start: nothing to read, and nothing is written.
    if (StateOfFile(path) != FileState::Missing)
    {
        TJSON json;
        if (!CDplJsonFile::ImportFromFile(path, json))
        {
            ReportUnexpected("can't read", path);
            return DRAVResult(kDRAVResultErrNoData, "can't read %s", path.c_str());
        }
        ReadDocument(json);
    }
    DeriveFolders(path);
    return kDRAVResultOk;
}

TJSON DRAVEngineSettings::ToDocument() const
{
    TJSON json;
    json.AddInt(kEngineSettingVersion, kEngineSettingsFileVersion);
    TJSON record = RecordDocument(primarySource, kEngineSettingSourceSettings);
    if (record.IsObject())
    {
        json.Add(kEngineSettingSourceSettings, record);
    }
    record = RecordDocument(micSource, kEngineSettingAudioSourceSettings);
    if (record.IsObject())
    {
        json.Add(kEngineSettingAudioSourceSettings, record);
    }
    TJSON list = TJSONArray();
    for (const DRAVEngineSourceSettings& entry : sources)
    {
        record = RecordDocument(entry, kEngineSettingSources);
        if (record.IsObject())
        {
            list.Add(record);
        }
    }
    json.Add(kEngineSettingSources, list);
    json.AddInt(kEngineSettingMaxNumberLogFiles, maxNumberLogFiles);
    json.AddBool(kEngineSettingEnableAudioRendering, enableAudioRendering);
    json.AddBool(kEngineSettingAudioMute, audioMute);
    json.AddBool(kEngineSettingAutoDefaultAudioSelection, autoDefaultAudioSelection);
    json.AddBool(kEngineSettingAutoRestartAudio, autoRestartAudio);
    json.AddBool(kEngineSettingPreviewPageSelected, previewPageSelected);
    json.AddInt(kEngineSettingEncoderVideoScaler, encoderVideoScaler);
    json.AddInt(kEngineSettingSourceVideoScaler, sourceVideoScaler);
    json.AddInt(kEngineSettingProcessorAdditionalDelayMs, processorAdditionalDelayMs);
    json.AddBool(kEngineSettingProcessorJitterCompensation, processorJitterCompensation);
    json.AddBool(kEngineSettingUseNewLibraryStructure, useNewLibraryStructure);
    json.AddInt(kEngineSettingProjectFileCreationFlag, projectFileCreationFlag);
    if (liveCommentaryActivateFeature)
    {
        json.AddBool(kEngineSettingLiveCommentaryActivateFeature, true);
    }
    json.AddBool(kEngineSettingLiveCommentaryEnableMonitoring, liveCommentaryEnableMonitoring);
    json.AddDouble(kEngineSettingLiveCommentaryAudioGain, liveCommentaryAudioGain);
    json.AddBool(kEngineSettingIsLiveCommentaryActivated, isLiveCommentaryActivated);
    json.AddBool(kEngineSettingLiveCommentaryForceMono, liveCommentaryForceMono);
    return json;
}

DRAVResult DRAVEngineSettings::SaveSettings(const std::string& path) const
{
    std::lock_guard<std::mutex> fileGuard(DRAVSettingsFileMutex());

    // Start from what the file holds, so that the control layer's keys stay.
    TJSON merged;
    switch (StateOfFile(path))
    {
        case FileState::Missing:
        case FileState::Empty:
            break;
        case FileState::Present:
        {
            TJSON existing;
            if (!CDplJsonFile::ImportFromFile(path, existing))
            {
                ReportUnexpected("can't read the former file, not replacing it:", path);
                return DRAVResult(kDRAVResultErrNoData, "can't read %s", path.c_str());
            }
            if (existing.IsObject())
            {
                merged = existing;
            }
            break;
        }
        case FileState::Unusable:
            ReportUnexpected("no file can be written at", path);
            return DRAVResult(kDRAVResultErrNoData, "can't write %s", path.c_str());
    }

    TJSON own = ToDocument();
    for (const std::string& key : own.GetKeys())
    {
        merged.Add(key, own.GetObject(key));
    }
    if (!liveCommentaryActivateFeature)
    {
        merged.Remove(kEngineSettingLiveCommentaryActivateFeature);
    }
    if (!CDplJsonFile::ExportToFile(path, merged))
    {
        ReportUnexpected("can't write", path);
        return DRAVResult(kDRAVResultErrNoData, "can't write %s", path.c_str());
    }
    return kDRAVResultOk;
}

// ---------------------------------------------------------------------------
// Changes and handlers

bool DRAVEngineSettings::UpdateSettings(const DRAVEngineSettings& other, bool async)
{
    if (*this == other)
    {
        return false;
    }
    DRAV_ENGINE_SETTINGS::operator=(other);
    if (!async)
    {
        NotifySettingsChanged();
        return true;
    }
    JoinFinishedNotifiers();
    // The thread gets values and handlers of its own, so it never reads this
    // object while the caller goes on changing it.
    auto snapshot = std::make_shared<const DRAVEngineSettings>(*this);
    auto handlers = CopyHandlers();
    auto done = std::make_shared<std::atomic<bool>>(false);
    std::thread thread(
        [snapshot, handlers, done]()
        {
            for (const auto& handler : handlers)
            {
                handler->SettingsChanged(*snapshot);
            }
            done->store(true, std::memory_order_release);
        });
    std::lock_guard<std::mutex> guard(notifiersMutex_);
    notifiers_.push_back({std::move(thread), done});
    return true;
}

void DRAVEngineSettings::JoinFinishedNotifiers()
{
    std::vector<Notifier> finished;
    {
        std::lock_guard<std::mutex> guard(notifiersMutex_);
        auto split =
            std::partition(notifiers_.begin(), notifiers_.end(),
                           [](const Notifier& n) { return !n.done->load(std::memory_order_acquire); });
        std::move(split, notifiers_.end(), std::back_inserter(finished));
        notifiers_.erase(split, notifiers_.end());
    }
    for (Notifier& notifier : finished)
    {
        notifier.thread.join();
    }
}

std::vector<std::shared_ptr<DRAVSettingsNotificationInterface>> DRAVEngineSettings::CopyHandlers()
{
    CDplScopedLock guard(lock_);
    return handlers_;
}

void DRAVEngineSettings::NotifySettingsChanged()
{
    // Called outside the lock, so a handler may unregister itself.
    for (const auto& handler : CopyHandlers())
    {
        handler->SettingsChanged(*this);
    }
}

void DRAVEngineSettings::RegisterNotificationHandler(
    const std::shared_ptr<DRAVSettingsNotificationInterface>& handler)
{
    if (!handler)
    {
        return;
    }
    CDplScopedLock guard(lock_);
    handlers_.push_back(handler);
}

void DRAVEngineSettings::UnregisterNotificationHandler(
    const std::shared_ptr<DRAVSettingsNotificationInterface>& handler)
{
    CDplScopedLock guard(lock_);
    handlers_.erase(std::remove(handlers_.begin(), handlers_.end(), handler), handlers_.end());
}

bool DRAVEngineSettings::operator==(const DRAVEngineSettings& other) const
{
    return settingsFolder == other.settingsFolder && overridesFolder == other.overridesFolder &&
           logFolder == other.logFolder && recordingsLogFolder == other.recordingsLogFolder &&
           edidFolder == other.edidFolder && tmpFolder == other.tmpFolder &&
           primarySource == other.primarySource && micSource == other.micSource && sources == other.sources &&
           maxNumberLogFiles == other.maxNumberLogFiles &&
           enableAudioRendering == other.enableAudioRendering && audioMute == other.audioMute &&
           autoDefaultAudioSelection == other.autoDefaultAudioSelection &&
           previewPageSelected == other.previewPageSelected &&
           encoderVideoScaler == other.encoderVideoScaler && sourceVideoScaler == other.sourceVideoScaler &&
           processorAdditionalDelayMs == other.processorAdditionalDelayMs &&
           processorJitterCompensation == other.processorJitterCompensation &&
           useNewLibraryStructure == other.useNewLibraryStructure &&
           projectFileCreationFlag == other.projectFileCreationFlag &&
           isLiveCommentaryActivated == other.isLiveCommentaryActivated &&
           liveCommentaryEnableMonitoring == other.liveCommentaryEnableMonitoring &&
           liveCommentaryForceMono == other.liveCommentaryForceMono &&
           liveCommentaryAudioGain == other.liveCommentaryAudioGain;
}

bool DRAVEngineSettings::GetSourceSettings(const std::string& id, DRAVEngineSourceSettings& settings) const
{
    for (const DRAVEngineSourceSettings& entry : sources)
    {
        if (entry.GetId() == id)
        {
            settings = entry;
            return true;
        }
    }
    return false;
}

void DRAVEngineSettings::SetSourceSettings(const std::string& id, const DRAVEngineSourceSettings& settings)
{
    DRAVEngineSourceSettings entry = settings;
    entry.SetId(id);
    for (DRAVEngineSourceSettings& existing : sources)
    {
        if (existing.GetId() == id)
        {
            existing = entry;
            return;
        }
    }
    sources.push_back(entry);
}
