#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <unistd.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "portable-core/BreakIntoDebugger.h"
#include "portable-core/json/CDplJsonFile.h"
#include "settings/DRAVEngineFolders.h"
#include "settings/DRAVEngineSettings.h"

namespace fs = std::filesystem;

namespace
{
// Every test works in a folder of its own below the system's temporary folder.
class DRAVEngineSettingsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        folder_ =
            fs::temp_directory_path() / ("engine-settings-" + std::to_string(getpid()) + "-" +
                                         ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(folder_);
        fs::create_directories(folder_);
        path_ = (folder_ / kDRAVEngineSettingsFileName).string();
    }
    void TearDown() override { fs::remove_all(folder_); }

    static std::string Read(const std::string& path)
    {
        std::ifstream in(path, std::ios::binary);
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }
    static void Write(const std::string& path, const std::string& text)
    {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out << text;
    }

    // Settings that differ from a new object in every field that is saved.
    static DRAVEngineSettings Changed()
    {
        DRAVEngineSettings settings;
        settings.primarySource = DRAVSourceSelector(2, 3, "video-7");
        settings.micSource = DRAVSourceSelector(1, 2, "84");
        DRAVEngineSourceSettings source;
        source.FromJSON("{\"edid\":\"AAEC\",\"hdr\":true,\"volume\":0.25}");
        settings.SetSourceSettings("cam-1", source);
        settings.maxNumberLogFiles = 4;
        settings.enableAudioRendering = false;
        settings.audioMute = true;
        settings.autoDefaultAudioSelection = false;
        settings.autoRestartAudio = true;
        settings.previewPageSelected = false;
        settings.encoderVideoScaler = 2;
        settings.sourceVideoScaler = 1;
        settings.processorAdditionalDelayMs = 45;
        settings.processorJitterCompensation = false;
        settings.useNewLibraryStructure = false;
        settings.projectFileCreationFlag = 0;
        settings.liveCommentaryActivateFeature = true;
        settings.isLiveCommentaryActivated = true;
        settings.liveCommentaryEnableMonitoring = true;
        settings.liveCommentaryForceMono = true;
        settings.liveCommentaryAudioGain = 0.1;
        return settings;
    }

    // The control layer's section as its own writer leaves it.
    static constexpr const char* kControlSection =
        "{\n"
        "    \"Tidemix Application Settings\": {\n"
        "        \"checkForUpdate\": true,\n"
        "        \"updateSkipVersion\": \"1.2.3\"\n"
        "    },\n"
        "    \"Tidemix Engine Settings\": {\n"
        "        \"Microphone Settings\": {\n"
        "            \"Microphone Custom Name\": \"Reed \\\"Pro\\\" \xC3\xA9\",\n"
        "            \"Microphone Gain\": 0.10000000149011612\n"
        "        },\n"
        "        \"Mixer Input Buffer Size MSec\": 20,\n"
        "        \"Mixer Inputs Local\": [\n"
        "            {\n"
        "                \"inputMixerNodeGain\": 1.0,\n"
        "                \"inputType\": 1\n"
        "            }\n"
        "        ],\n"
        "        \"Tidemix Settings Version\": 0\n"
        "    }\n"
        "}";

    fs::path folder_;
    std::string path_;
};

// Equality covers every saved value but two switches; the folders are where
// a load put them, so they are taken from the loaded side.
void ExpectSameSavedValues(DRAVEngineSettings a, const DRAVEngineSettings& b)
{
    a.settingsFolder = b.settingsFolder;
    a.overridesFolder = b.overridesFolder;
    a.logFolder = b.logFolder;
    a.recordingsLogFolder = b.recordingsLogFolder;
    a.edidFolder = b.edidFolder;
    a.tmpFolder = b.tmpFolder;
    EXPECT_TRUE(a == b);
    EXPECT_EQ(a.autoRestartAudio, b.autoRestartAudio);
    EXPECT_EQ(a.liveCommentaryActivateFeature, b.liveCommentaryActivateFeature);
}
}  // namespace

TEST_F(DRAVEngineSettingsTest, SaveAndLoadRoundTrip)
{
    DRAVEngineSettings saved = Changed();
    ASSERT_TRUE(saved.SaveSettings(path_).Succeeded());

    TJSON file;
    ASSERT_TRUE(CDplJsonFile::ImportFromFile(path_, file));
    EXPECT_EQ(file.GetObject("version").GetInt(), 3);
    EXPECT_TRUE(file.GetObject("enableAudioProcessing").IsBool());
    EXPECT_EQ(file.GetObject("micSource").ToString(),
              "{\"sourceDevicePath\":\"84\",\"sourceDeviceType\":1,\"sourceUsageType\":2}");
    EXPECT_EQ(Read(path_).substr(0, 3), "{\n\t");

    DRAVEngineSettings loaded;
    ASSERT_EQ(loaded.LoadSettings(path_), kDRAVResultOk);
    ExpectSameSavedValues(saved, loaded);
    DRAVEngineSourceSettings source;
    ASSERT_TRUE(loaded.GetSourceSettings("cam-1", source));
    EXPECT_EQ(source.ToJSON(),
              "{\"edid\":\"AAEC\",\"hdr\":true,\"sourceDeviceId\":\"cam-1\",\"volume\":0.25}");
    EXPECT_FALSE(loaded.GetSourceSettings("cam-2", source));

    // Loading twice doesn't double the list of sources.
    ASSERT_EQ(loaded.LoadSettings(path_), kDRAVResultOk);
    EXPECT_EQ(loaded.sources.size(), 1u);
}

TEST_F(DRAVEngineSettingsTest, LoadDerivesAndCreatesTheFolders)
{
    // The log of the former session is moved aside for the new one.
    fs::create_directories(folder_ / "Log");
    Write((folder_ / "Log" / "Trace.log").string(), "former session");
    DRAVEngineSettings settings;
    ASSERT_EQ(settings.LoadSettings(path_), kDRAVResultOk);
    EXPECT_FALSE(fs::exists(path_)) << "loading never writes the file";
    EXPECT_FALSE(fs::exists(folder_ / "Log" / "Trace.log"));
    EXPECT_EQ(Read((folder_ / "Log" / "Trace01.log").string()), "former session");
    EXPECT_EQ(settings.settingsFolder, folder_.string());
    EXPECT_EQ(settings.overridesFolder, (folder_ / "Overrides").string());
    EXPECT_EQ(settings.logFolder, (folder_ / "Log").string());
    EXPECT_EQ(settings.recordingsLogFolder, (folder_ / "Log" / "Recordings").string());
    EXPECT_EQ(settings.edidFolder, (folder_ / "EDID").string());
    EXPECT_EQ(settings.tmpFolder, (folder_ / "Tmp").string());
    EXPECT_TRUE(fs::is_directory(settings.overridesFolder));
    EXPECT_TRUE(fs::is_directory(settings.edidFolder));
    EXPECT_TRUE(fs::is_directory(settings.tmpFolder));

    // A path without "/" is a folder name of its own.
    DRAVEngineSettings relative;
    fs::path former = fs::current_path();
    fs::current_path(folder_);
    EXPECT_EQ(relative.LoadSettings("SettingsHere"), kDRAVResultOk);
    fs::current_path(former);
    EXPECT_EQ(relative.settingsFolder, "SettingsHere");
    EXPECT_EQ(relative.overridesFolder, "SettingsHere/Overrides");
    EXPECT_TRUE(fs::is_directory(folder_ / "SettingsHere" / "Overrides"));
}

TEST_F(DRAVEngineSettingsTest, BadFilesGiveNoDataOrWhatCouldBeRead)
{
    DRAVEngineSettings settings;
    settings.maxNumberLogFiles = 7;
    settings.overridesFolder = "kept";

    Write(path_, "");
    const uint64_t breaks = BreakIntoDebugger_GetCallCount();
    EXPECT_EQ(settings.LoadSettings(path_), kDRAVResultErrNoData);
    EXPECT_EQ(BreakIntoDebugger_GetCallCount(), breaks + 1);
    EXPECT_EQ(settings.overridesFolder, "kept") << "folders stay after a failed load";

    fs::remove(path_);
    fs::create_directories(path_);
    EXPECT_EQ(settings.LoadSettings(path_), kDRAVResultErrNoData);
    fs::remove_all(path_);

    Write(path_, "\x01\x02 not json at all \xFF");
    EXPECT_EQ(settings.LoadSettings(path_), kDRAVResultOk);
    EXPECT_EQ(settings.maxNumberLogFiles, 7);

    Write(path_, "{\"maxNumberLogFiles\":3,\"audioMute\":true \"previewPageSelected\":false}");
    EXPECT_EQ(settings.LoadSettings(path_), kDRAVResultOk);
    EXPECT_EQ(settings.maxNumberLogFiles, 3);
    EXPECT_TRUE(settings.audioMute);
    EXPECT_TRUE(settings.previewPageSelected) << "the read stopped before this key";

    // Null and wrong kinds: null leaves the field, other kinds convert.
    Write(path_,
          "{\"maxNumberLogFiles\":null,\"audioMute\":\"0\",\"liveCommentaryAudioGain\":2,"
          "\"micSource\":{\"sourceDeviceType\":-4,\"sourceUsageType\":\"2\",\"sourceDevicePath\":null}}");
    settings.micSource = DRAVSourceSelector(5, 6, "p");
    EXPECT_EQ(settings.LoadSettings(path_), kDRAVResultOk);
    EXPECT_EQ(settings.maxNumberLogFiles, 3);
    EXPECT_FALSE(settings.audioMute);
    EXPECT_EQ(settings.liveCommentaryAudioGain, 2.0);
    EXPECT_EQ(settings.micSource, DRAVSourceSelector(5, 2, "p"));
}

TEST_F(DRAVEngineSettingsTest, EveryTruncationOfARealFileLoadsWithoutHarm)
{
    Write(path_, kControlSection);
    DRAVEngineSettings saved = Changed();
    ASSERT_TRUE(saved.SaveSettings(path_).Succeeded());
    const std::string whole = Read(path_);
    const std::string cutPath = (folder_ / "cut.json").string();
    for (size_t length = 0; length <= whole.size(); ++length)
    {
        Write(cutPath, whole.substr(0, length));
        DRAVEngineSettings settings;
        DRAVResult result = settings.LoadSettings(cutPath);
        if (length == 0)
        {
            EXPECT_EQ(result, kDRAVResultErrNoData);
            continue;
        }
        ASSERT_EQ(result, kDRAVResultOk) << "cut at " << length;
        // A flag is the new value or the saved one, never anything else.
        DRAVEngineSettings fresh;
        EXPECT_TRUE(settings.audioMute == fresh.audioMute || settings.audioMute == saved.audioMute);
        EXPECT_TRUE(settings.previewPageSelected == fresh.previewPageSelected ||
                    settings.previewPageSelected == saved.previewPageSelected);
        EXPECT_LE(settings.sources.size(), 1u);
    }
    DRAVEngineSettings complete;
    ASSERT_EQ(complete.LoadSettings(cutPath), kDRAVResultOk);
    ExpectSameSavedValues(saved, complete);
}

TEST_F(DRAVEngineSettingsTest, SaveKeepsTheControlLayersKeys)
{
    Write(path_, kControlSection);
    DRAVEngineSettings settings = Changed();
    ASSERT_TRUE(settings.SaveSettings(path_).Succeeded());

    // The control layer reads its section with nlohmann json: to it, the
    // section must be the same, value for value.
    const nlohmann::json before = nlohmann::json::parse(kControlSection);
    nlohmann::json after = nlohmann::json::parse(Read(path_));
    for (const char* key : {"Tidemix Application Settings", "Tidemix Engine Settings"})
    {
        EXPECT_EQ(after.at(key), before.at(key)) << key;
    }
    EXPECT_EQ(after["Tidemix Engine Settings"]["Microphone Settings"]["Microphone Gain"].get<double>(),
              0.10000000149011612);
    EXPECT_EQ(after["Tidemix Engine Settings"]["Microphone Settings"]["Microphone Custom Name"],
              "Reed \"Pro\" \xC3\xA9");
    EXPECT_EQ(after["maxNumberLogFiles"], 4);

    // A second save with other values still keeps them, and replaces our own keys.
    settings.maxNumberLogFiles = 9;
    ASSERT_TRUE(settings.SaveSettings(path_).Succeeded());
    after = nlohmann::json::parse(Read(path_));
    EXPECT_EQ(after.at("Tidemix Engine Settings"), before.at("Tidemix Engine Settings"));
    EXPECT_EQ(after.at("Tidemix Application Settings"), before.at("Tidemix Application Settings"));
    EXPECT_EQ(after["maxNumberLogFiles"], 9);
    EXPECT_FALSE(fs::exists(CDplJsonFile::TemporaryPathFor(path_)));
}

TEST_F(DRAVEngineSettingsTest, FeatureOffIsNotWrittenAndClearsItsSwitches)
{
    DRAVEngineSettings settings = Changed();
    settings.liveCommentaryActivateFeature = false;
    // A former save with the feature on must not leave its key behind.
    DRAVEngineSettings on = Changed();
    ASSERT_TRUE(on.SaveSettings(path_).Succeeded());
    ASSERT_TRUE(settings.SaveSettings(path_).Succeeded());
    EXPECT_EQ(Read(path_).find("activateLiveCommentaryFeature"), std::string::npos);

    DRAVEngineSettings fresh;
    ASSERT_EQ(fresh.LoadSettings(path_), kDRAVResultOk);
    EXPECT_TRUE(fresh.liveCommentaryActivateFeature) << "absent key: the new value stands";
    EXPECT_TRUE(fresh.liveCommentaryEnableMonitoring);

    Write(path_,
          "{\"activateLiveCommentaryFeature\":false,\"liveCommentaryEnableMonitoring\":true,"
          "\"isLiveCommentaryActivated\":true,\"liveCommentaryForceMono\":true}");
    DRAVEngineSettings off;
    ASSERT_EQ(off.LoadSettings(path_), kDRAVResultOk);
    EXPECT_FALSE(off.liveCommentaryActivateFeature);
    EXPECT_FALSE(off.liveCommentaryEnableMonitoring);
    EXPECT_FALSE(off.isLiveCommentaryActivated);
    EXPECT_TRUE(off.liveCommentaryForceMono);
}

TEST_F(DRAVEngineSettingsTest, FailedSavesReportAndLeaveTheFormerFile)
{
    Write(path_, kControlSection);
    DRAVEngineSettings settings = Changed();

    // The temporary file's name is taken by a folder: nothing can be written.
    fs::create_directories(CDplJsonFile::TemporaryPathFor(path_));
    const uint64_t breaks = BreakIntoDebugger_GetCallCount();
    EXPECT_EQ(settings.SaveSettings(path_), kDRAVResultErrNoData);
    EXPECT_EQ(BreakIntoDebugger_GetCallCount(), breaks + 1);
    EXPECT_EQ(Read(path_), kControlSection);
    fs::remove_all(CDplJsonFile::TemporaryPathFor(path_));

    // A folder below a regular file can't exist.
    EXPECT_EQ(settings.SaveSettings(path_ + "/Settings.json"), kDRAVResultErrNoData);
    // The path names a folder.
    EXPECT_EQ(settings.SaveSettings(folder_.string()), kDRAVResultErrNoData);
    EXPECT_EQ(Read(path_), kControlSection);
    EXPECT_TRUE(fs::is_directory(folder_));
}

TEST_F(DRAVEngineSettingsTest, EqualityLeavesOutTwoSwitches)
{
    DRAVEngineSettings a = Changed();
    DRAVEngineSettings b = Changed();
    EXPECT_TRUE(a == b);
    b.autoRestartAudio = !a.autoRestartAudio;
    b.liveCommentaryActivateFeature = !a.liveCommentaryActivateFeature;
    EXPECT_TRUE(a == b);
    b.tmpFolder = "elsewhere";
    EXPECT_FALSE(a == b);
    b = a;
    b.sources.clear();
    EXPECT_FALSE(a == b);
    b = a;
    b.liveCommentaryAudioGain = 0.2;
    EXPECT_TRUE(a != b);
}

TEST_F(DRAVEngineSettingsTest, TypedReaders)
{
    TJSON json(
        "{\"i\":5,\"n\":null,\"d\":2.5,\"s\":\"text\",\"b\":true,\"size\":{\"width\":1920,\"height\":1080},"
        "\"o\":{\"k\":1}}");
    int64_t i = -1;
    EXPECT_EQ(DRAVEngineSettings::Int64FromJSON(json, "i", i), kDRAVResultOk);
    EXPECT_EQ(i, 5);
    EXPECT_EQ(DRAVEngineSettings::Int64FromJSON(json, "n", i), kDRAVResultErrNotFound);
    EXPECT_EQ(DRAVEngineSettings::Int64FromJSON(json, "missing", i), kDRAVResultErrNotFound);
    EXPECT_EQ(i, 5);
    EXPECT_EQ(DRAVEngineSettings::Int64FromJSON(json, "d", i), kDRAVResultOk);
    EXPECT_EQ(i, 3) << "a double rounds as the document model does";
    double d = 0;
    EXPECT_EQ(DRAVEngineSettings::DoubleFromJSON(json, "i", d), kDRAVResultOk);
    EXPECT_EQ(d, 5.0);
    std::string s = "kept";
    EXPECT_EQ(DRAVEngineSettings::StringFromJSON(json, "n", s), kDRAVResultErrNotFound);
    EXPECT_EQ(s, "kept");
    EXPECT_EQ(DRAVEngineSettings::StringFromJSON(json, "s", s), kDRAVResultOk);
    EXPECT_EQ(s, "text");
    bool b = false;
    EXPECT_EQ(DRAVEngineSettings::BoolFromJSON(json, "b", b), kDRAVResultOk);
    EXPECT_TRUE(b);
    DRAVSettingsSize size;
    EXPECT_EQ(DRAVEngineSettings::SizeFromJSON(json, "size", size), kDRAVResultOk);
    EXPECT_EQ(size, (DRAVSettingsSize{1920, 1080}));
    TJSON inner;
    EXPECT_EQ(DRAVEngineSettings::JSONFromJSON(json, "o", inner), kDRAVResultOk);
    EXPECT_EQ(inner.ToString(), "{\"k\":1}");
    EXPECT_EQ(DRAVEngineSettings::JSONFromJSON(TJSONArray(), "o", inner), kDRAVResultErrNotFound);
}

TEST_F(DRAVEngineSettingsTest, UpdateTellsHandlersOnlyOfRealChanges)
{
    struct Counter : DRAVSettingsNotificationInterface
    {
        void SettingsChanged(const DRAVEngineSettings& settings) override
        {
            ++calls;
            lastDelay = settings.processorAdditionalDelayMs;
        }
        int calls = 0;
        int64_t lastDelay = 0;
    };
    DRAVEngineSettings settings;
    auto counter = std::make_shared<Counter>();
    settings.RegisterNotificationHandler(counter);
    settings.RegisterNotificationHandler(nullptr);

    DRAVEngineSettings other = settings;
    other.autoRestartAudio = !settings.autoRestartAudio;
    EXPECT_FALSE(settings.UpdateSettings(other, false));
    EXPECT_NE(settings.autoRestartAudio, other.autoRestartAudio) << "an ignored change is lost";
    EXPECT_EQ(counter->calls, 0);

    other.processorAdditionalDelayMs = 99;
    EXPECT_TRUE(settings.UpdateSettings(other, false));
    EXPECT_EQ(settings.processorAdditionalDelayMs, 99);
    EXPECT_EQ(settings.autoRestartAudio, other.autoRestartAudio);
    EXPECT_EQ(counter->calls, 1);
    EXPECT_EQ(counter->lastDelay, 99);

    settings.UnregisterNotificationHandler(counter);
    other.processorAdditionalDelayMs = 100;
    EXPECT_TRUE(settings.UpdateSettings(other, false));
    EXPECT_EQ(counter->calls, 1);
}

TEST_F(DRAVEngineSettingsTest, AppDataDirectoryFollowsTheConfigurationHomeAndNames)
{
    const char* formerConfig = getenv("XDG_CONFIG_HOME");
    const std::string savedConfig = formerConfig ? formerConfig : "";
    const char* formerHome = getenv("HOME");
    const std::string savedHome = formerHome ? formerHome : "";

    setenv("XDG_CONFIG_HOME", folder_.c_str(), 1);
    const std::string expected = (folder_ / "Drovane" / "Tidemix").string();
    EXPECT_EQ(DRAVGetAppDataDirectory(false), expected);
    EXPECT_FALSE(fs::exists(expected));
    EXPECT_EQ(DRAVGetAppDataDirectory(true), expected);
    EXPECT_TRUE(fs::is_directory(expected));

    // A relative configuration home is ignored: ~/.config stands in.
    setenv("XDG_CONFIG_HOME", "relative", 1);
    setenv("HOME", folder_.c_str(), 1);
    EXPECT_EQ(DRAVGetAppDataDirectory(false), (folder_ / ".config" / "Drovane" / "Tidemix").string());
    EXPECT_EQ(DRAVGetMovieDirectory(true), (folder_ / "Videos" / "Tidemix").string());
    EXPECT_TRUE(fs::is_directory(folder_ / "Videos" / "Tidemix"));

    setenv("XDG_CONFIG_HOME", folder_.c_str(), 1);
    DRAVSetProductNames("TM", "Tidemix Studio", nullptr);
    EXPECT_EQ(DRAVGetAppDataDirectory(false), (folder_ / "Drovane" / "Tidemix Studio").string());
    DRAVSetProductNames("Tidemix", "Tidemix", "Tidemix");

    setenv("XDG_CONFIG_HOME", savedConfig.c_str(), 1);
    if (formerHome)
    {
        setenv("HOME", savedHome.c_str(), 1);
    }
    else
    {
        unsetenv("HOME");
    }
}

TEST_F(DRAVEngineSettingsTest, FileWithOnlyTheControlLayersKeysLeavesEveryValue)
{
    Write(path_, kControlSection);
    DRAVEngineSettings settings = Changed();
    const DRAVEngineSettings before = settings;
    ASSERT_EQ(settings.LoadSettings(path_), kDRAVResultOk);
    ExpectSameSavedValues(before, settings);
    EXPECT_EQ(settings.logFolder, (folder_ / "Log").string());
    EXPECT_TRUE(fs::is_directory(settings.logFolder));
    EXPECT_EQ(Read(path_), kControlSection) << "loading never writes";
}
