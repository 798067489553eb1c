// The control layer's section of the settings file: defaults, load and save,
// and the sharing of the file with the engine's keys.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "settings/DRMXSettings.h"
#include "support/LogCapture.h"

using namespace DRMX_Settings;

namespace
{
class SettingsFileTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        folder = std::filesystem::path(DRMXGetAppDataDirectory(true)) /
                 ::testing::UnitTest::GetInstance()->current_test_info()->name();
        std::filesystem::create_directories(folder);
        path = (folder / SETTINGS_JSON_FILENAME).string();
    }
    void TearDown() override { std::filesystem::remove_all(folder); }

    static DRMXSettings::DeviceQueries Devices()
    {
        DRMXSettings::DeviceQueries queries;
        queries.availableOutputs = [](DRMXOutputType type, const std::string& name) {
            std::vector<DRMXOutputSelector> outputs;
            DRMXOutputSelector speakers;
            speakers.SetType(kOutputTypeHardware);
            speakers.SetName("Speakers");
            speakers.SetHardwareId("speakers");
            speakers.isDefaultOutput = true;
            DRMXOutputSelector stream;
            stream.SetType(kOutputTypeVirtual);
            stream.SetName("Tidemix Stream");
            stream.SetHardwareId("tidemix-stream");
            for (const auto& output : {speakers, stream})
            {
                if ((type == kOutputTypeAny || type == output.GetType()) && (name.empty() || name == output.GetName()))
                {
                    outputs.push_back(output);
                }
            }
            return outputs;
        };
        queries.availableInputs = [](DRMXInputType type) {
            std::vector<DRMXInputSelector> inputs;
            if (type == kInputTypeMainMicrophone)
            {
                DRMXInputSelector microphone;
                microphone.SetType(kInputTypeMainMicrophone);
                microphone.SetHardwareId("reed-pro");
                microphone.SetName("Reed Pro");
                microphone.SetVendorId(0x7E11);
                microphone.SetProductId(0x0B25);
                inputs.push_back(microphone);
            }
            return inputs;
        };
        return queries;
    }

    DRMXSettings Defaults()
    {
        DRMXSettings settings;
        settings.SetDeviceQueries(Devices());
        EXPECT_TRUE(settings.LoadDefaultSettings().Succeeded());
        return settings;
    }

    void Write(const std::string& text)
    {
        std::ofstream file(path, std::ios::binary | std::ios::trunc);
        file << text;
    }
    nlohmann::json Read()
    {
        std::ifstream file(path);
        return nlohmann::json::parse(file);
    }

    std::filesystem::path folder;
    std::string path;
};
}  // namespace

TEST_F(SettingsFileTest, DefaultsMuteTheMicrophoneLocallyAndOpenItToTheStream)
{
    DRMXSettings settings = Defaults();
    EXPECT_TRUE(settings.isLoadedCorrectly());
    ASSERT_EQ(settings.mixerConfiguration.mixerInputsLocal.size(), 1u);
    ASSERT_EQ(settings.mixerConfiguration.mixerInputsStream.size(), 1u);
    EXPECT_DOUBLE_EQ(settings.mixerConfiguration.mixerInputsLocal[0].gain, 0.5);
    EXPECT_TRUE(settings.mixerConfiguration.mixerInputsLocal[0].mute);
    EXPECT_DOUBLE_EQ(settings.mixerConfiguration.mixerInputsStream[0].gain, 1.0);
    EXPECT_FALSE(settings.mixerConfiguration.mixerInputsStream[0].mute);
    EXPECT_EQ(settings.mixerConfiguration.mixerOutputLocal.GetOutputId(), "speakers");
    EXPECT_EQ(settings.mixerConfiguration.mixerOutputStream.GetOutputId(), "tidemix-stream");
    EXPECT_EQ(settings.microphoneSettings.customName, "Reed Pro");
}

TEST_F(SettingsFileTest, WithoutDevicesTheDefaultsFailAndNothingCanBeSaved)
{
    DRMXSettings settings;
    EXPECT_EQ(settings.LoadDefaultSettings(), kDRAVResultErrNotFound);
    EXPECT_FALSE(settings.isLoadedCorrectly());
    EXPECT_EQ(settings.SaveSettings(path), kDRAVResultErrInvalidState);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(SettingsFileTest, SaveAndLoadRoundTrip)
{
    DRMXSettings saved = Defaults();
    saved.applicationSettings.localizationLanguage = "fr";
    saved.mixerConfiguration.mixerInputsLocal[0].SetCustomName("Voice");
    ASSERT_EQ(saved.SaveSettings(path), kDRAVResultOk);

    DRMXSettings loaded;
    ASSERT_TRUE(loaded.LoadSettings(path).Succeeded());
    EXPECT_TRUE(loaded.isLoadedCorrectly());
    EXPECT_EQ(loaded.version, 1) << "the writer puts the version in the section, the reader looks at the top";
    EXPECT_EQ(loaded.applicationSettings.localizationLanguage, "fr");
    ASSERT_EQ(loaded.mixerConfiguration.mixerInputsLocal.size(), 1u);
    EXPECT_EQ(loaded.mixerConfiguration.mixerInputsLocal[0].GetCustomName(), "Voice");
    EXPECT_EQ(loaded.mixerConfiguration.mixerInputsLocal[0].GetMixerNodeId(), 0);
    EXPECT_EQ(loaded.mixerConfiguration.mixerOutputStream.GetOutputId(), "tidemix-stream");
    EXPECT_EQ(loaded.mixerConfiguration.audioBufferFrameCount, 960);
}

TEST_F(SettingsFileTest, ASaveKeepsTheEngineKeysAndWritesIndentedSortedJson)
{
    Write(R"({"maxNumberLogFiles": 7, "primarySource": {"sourceDeviceType": 1}, "zzz": [1, 2]})");
    DRMXSettings settings = Defaults();
    ASSERT_EQ(settings.SaveSettings(path), kDRAVResultOk);
    const nlohmann::json root = Read();
    EXPECT_EQ(root.at("maxNumberLogFiles"), 7);
    EXPECT_EQ(root.at("primarySource").at("sourceDeviceType"), 1);
    EXPECT_EQ(root.at("zzz").size(), 2u);
    EXPECT_TRUE(root.contains("Tidemix Engine Settings"));
    EXPECT_TRUE(root.contains("Tidemix Application Settings"));

    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    EXPECT_NE(text.str().find("\n    \"Tidemix Application Settings\""), std::string::npos) << "indent of 4";
    EXPECT_LT(text.str().find("\"Tidemix Application Settings\""), text.str().find("\"maxNumberLogFiles\""))
        << "keys in byte order";
}

TEST_F(SettingsFileTest, AFailedSaveLeavesTheOldFile)
{
    DRMXSettings settings = Defaults();
    ASSERT_EQ(settings.SaveSettings(path), kDRAVResultOk);
    const nlohmann::json before = Read();

    // The temporary file can't be made where a folder of that name stands.
    const std::string blocker = path + ".tmp-" + std::to_string(getpid());
    std::filesystem::create_directories(blocker);
    settings.applicationSettings.localizationLanguage = "it";
    EXPECT_EQ(settings.SaveSettings(path), kDRAVResultErrCouldNotOpenFile);
    EXPECT_EQ(Read(), before);
    std::filesystem::remove_all(blocker);
}

TEST_F(SettingsFileTest, VersionsAndBadFiles)
{
    DRMXSettings good = Defaults();
    ASSERT_EQ(good.SaveSettings(path), kDRAVResultOk);
    nlohmann::json root = Read();

    root["Tidemix Settings Version"] = 2;
    Write(root.dump());
    DRMXSettings tooNew;
    EXPECT_EQ(tooNew.LoadSettings(path), kDRAVResultErrInvalidFormat);

    root["Tidemix Settings Version"] = 1.0;  // a float counts as absent: version 1
    Write(root.dump());
    DRMXSettings floatVersion;
    EXPECT_TRUE(floatVersion.LoadSettings(path).Succeeded());
    EXPECT_EQ(floatVersion.version, 1);

    Write("{ not json");
    DRMXSettings broken;
    EXPECT_EQ(broken.LoadSettings(path), kDRAVResultErrInvalidFormat);

    Write(R"({"Tidemix Application Settings": {}})");
    DRMXSettings noSection;
    EXPECT_EQ(noSection.LoadSettings(path), kDRAVResultErrInvalidParameter);
    EXPECT_FALSE(noSection.isLoadedCorrectly());

    root.erase("Tidemix Settings Version");
    root["Tidemix Engine Settings"]["Mixer Inputs Local"][0]["inputType"] = 3;
    Write(root.dump());
    DRMXSettings virtualLocal;
    EXPECT_EQ(virtualLocal.LoadSettings(path), kDRAVResultErrInvalidParameter) << "no virtual channel in the local mix";

    DRMXSettings missing;
    EXPECT_EQ(missing.LoadSettings((folder / "absent.json").string()), kDRAVResultErrCouldNotOpenFile);
}

TEST_F(SettingsFileTest, FrameCountFollowsTheInputMilliseconds)
{
    DRMXSettings settings = Defaults();
    settings.mixerConfiguration.SetAudioBufferSizeInputMSec(21);
    ASSERT_EQ(settings.SaveSettings(path), kDRAVResultOk);
    DRMXSettings loaded;
    ASSERT_TRUE(loaded.LoadSettings(path).Succeeded());
    EXPECT_EQ(loaded.mixerConfiguration.audioBufferSizeInputMSec, 21);
    EXPECT_EQ(loaded.mixerConfiguration.audioBufferFrameCount, 1008);
}

TEST_F(SettingsFileTest, SavingCanBeForbidden)
{
    DRMXSettings settings = Defaults();
    settings.setSaveSettingsAllowed(false);
    EXPECT_EQ(settings.SaveSettings((folder / "no" / "such" / "folder.json").string()),
              kDRAVResultOkButIncomplete);
    EXPECT_TRUE(DRMXSettings::CanImportSettingsFromFileWithVersion(1));
    EXPECT_FALSE(DRMXSettings::CanImportSettingsFromFileWithVersion(2));
}

TEST_F(SettingsFileTest, TheFolderLivesUnderTheConfigurationHome)
{
    const char* config = getenv("XDG_CONFIG_HOME");
    ASSERT_NE(config, nullptr);
    EXPECT_EQ(DRMXGetAppDataDirectory(false), std::string(config) + "/Drovane/Tidemix");
}
