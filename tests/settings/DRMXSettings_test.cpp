// The control layer's section of the settings file: defaults, load and save,
// and the sharing of the file with the engine's keys.

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

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
        queries.availableOutputs = [](DRMXOutputType type, const std::string& name)
        {
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
                if ((type == kOutputTypeAny || type == output.GetType()) &&
                    (name.empty() || name == output.GetName()))
                {
                    outputs.push_back(output);
                }
            }
            return outputs;
        };
        queries.availableInputs = [](DRMXInputType type)
        {
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

TEST_F(SettingsFileTest, DefaultApplicationInputsFollowTheMicrophoneInBothMixes)
{
    DRMXSettings settings = Defaults();
    EXPECT_EQ(settings.LoadDefaultAppAudioSettings(), kDRAVResultOk) << "no application inputs is no error";
    EXPECT_EQ(settings.mixerConfiguration.mixerInputsLocal.size(), 1u);

    DRMXSettings::DeviceQueries queries = Devices();
    queries.defaultAppAudioInputs = []
    {
        std::vector<DRMXInputSelector> inputs(2);
        inputs[0].SetType(kInputTypeAppAudio);
        inputs[0].SetHardwareId("org.example.Player");
        inputs[1].SetType(kInputTypeAppAudio);
        inputs[1].SetHardwareId("org.example.Chat");
        inputs[1].gain = 0.2;
        return inputs;
    };
    settings.SetDeviceQueries(queries);
    ASSERT_EQ(settings.LoadDefaultAppAudioSettings(), kDRAVResultOk);
    for (const auto* list :
         {&settings.mixerConfiguration.mixerInputsLocal, &settings.mixerConfiguration.mixerInputsStream})
    {
        ASSERT_EQ(list->size(), 3u);
        EXPECT_EQ((*list)[2].GetInputID(), "org.example.Chat");
        EXPECT_EQ((*list)[2].GetMixerNodeId(), 2) << "node 0 is the microphone's";
        EXPECT_DOUBLE_EQ((*list)[2].gain, 1.0);
    }
    EXPECT_TRUE(settings.Validate().Succeeded());
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
    for (const char* list : {"Mixer Inputs Local", "Mixer Inputs Stream"})
    {
        nlohmann::json channel = root["Tidemix Engine Settings"][list][0];
        channel["inputType"] = 3;
        root["Tidemix Engine Settings"][list].push_back(channel);
    }
    Write(root.dump());
    DRMXSettings virtualChannel;
    EXPECT_TRUE(virtualChannel.LoadSettings(path).Succeeded()) << "a virtual channel is a device of ours";
    EXPECT_EQ(virtualChannel.mixerConfiguration.mixerInputsLocal.at(1).GetType(), kInputTypeVirtual);

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

// ---- The file against bad input: never a crash, never a half-written file.

namespace
{
bool IsRefusal(const DRAVResult& result)
{
    return result == kDRAVResultErrInvalidFormat || result == kDRAVResultErrInvalidParameter ||
           result == kDRAVResultErrInvalidState || result == kDRAVResultErrCouldNotOpenFile;
}

std::string ReadText(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

// Every value in the tree, by JSON pointer, for the wrong-type walk.
void CollectPointers(const nlohmann::json& value, const nlohmann::json::json_pointer& at,
                     std::vector<nlohmann::json::json_pointer>& out)
{
    out.push_back(at);
    if (value.is_object())
    {
        for (const auto& [key, child] : value.items())
        {
            CollectPointers(child, at / key, out);
        }
    }
    else if (value.is_array())
    {
        for (size_t i = 0; i < value.size(); ++i)
        {
            CollectPointers(value[i], at / i, out);
        }
    }
}

// The calling thread alone loses root's right to write anywhere: capabilities
// are per thread, so the rest of the test process keeps them.
bool DropFileOverrideOnThisThread()
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2]{};
    if (syscall(SYS_capget, &header, data) != 0)
    {
        return false;
    }
    for (const int capability : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, CAP_FOWNER})
    {
        data[capability / 32].effective &= ~(1u << (capability % 32));
    }
    return syscall(SYS_capset, &header, data) == 0;
}
}  // namespace

TEST_F(SettingsFileTest, DamagedTextNeverLoadsAndNeverCrashes)
{
    DRMXSettings good = Defaults();
    ASSERT_EQ(good.SaveSettings(path), kDRAVResultOk);
    const std::string text = ReadText(path);
    for (size_t cut = 0; cut < text.size(); ++cut)
    {
        DRMXSettings settings;
        const DRAVResult result = settings.LoadSettingsFromText(text.substr(0, cut));
        ASSERT_TRUE(IsRefusal(result)) << "cut at byte " << cut << ": " << result.toString();
        ASSERT_FALSE(settings.isLoadedCorrectly());
        ASSERT_EQ(settings.SaveSettings(path), kDRAVResultErrInvalidState)
            << "nothing half-read is ever saved";
    }
    EXPECT_EQ(ReadText(path), text);

    struct Case
    {
        const char* name;
        std::string text;
        DRAVResult expected;
    };
    std::string binary(4096, '\0');
    for (size_t i = 0; i < binary.size(); ++i)
    {
        binary[i] = static_cast<char>((i * 2654435761u) >> 13);
    }
    const auto withVersion = [&](int64_t version)
    {
        nlohmann::json root = nlohmann::json::parse(text);
        root["Tidemix Settings Version"] = version;
        return root.dump();
    };
    const Case cases[] = {
        {"binary", binary, kDRAVResultErrInvalidFormat},
        {"nested 100 000 deep", std::string(100000, '[') + std::string(100000, ']'),
         kDRAVResultErrInvalidFormat},
        {"a top-level array", "[1, 2]", kDRAVResultErrInvalidFormat},
        {"version 2", withVersion(2), kDRAVResultErrInvalidFormat},
        {"version 2^31-1", withVersion(2147483647), kDRAVResultErrInvalidFormat},
        {"version -1", withVersion(-1), kDRAVResultOk},
    };
    for (const Case& c : cases)
    {
        DRMXSettings settings;
        EXPECT_EQ(settings.LoadSettingsFromText(c.text), c.expected.GetCode()) << c.name;
        EXPECT_EQ(settings.isLoadedCorrectly(), c.expected.Succeeded()) << c.name;
    }

    // Far too big to be ours: refused before it is read, like a file that can't be opened.
    std::filesystem::resize_file(path, 50u * 1024 * 1024);
    DRMXSettings huge;
    EXPECT_EQ(huge.LoadSettings(path), kDRAVResultErrCouldNotOpenFile);
}

TEST_F(SettingsFileTest, AWrongTypeAnywhereIsRefusedOrReadSafely)
{
    DRMXSettings good = Defaults();
    good.mixerConfiguration.AddMixerInputLocal(good.mixerConfiguration.mixerInputsLocal[0]);
    good.mixerConfiguration.AddMixerInputStream(good.mixerConfiguration.mixerInputsStream[0]);
    ASSERT_EQ(good.SaveSettings(path), kDRAVResultOk);
    const nlohmann::json root = Read();
    std::vector<nlohmann::json::json_pointer> pointers;
    CollectPointers(root, nlohmann::json::json_pointer(), pointers);
    const nlohmann::json wrongs[] = {
        nullptr, true, "text", 1.5, -7, nlohmann::json::array(), nlohmann::json::object()};
    size_t refused = 0;
    for (const auto& pointer : pointers)
    {
        for (const nlohmann::json& wrong : wrongs)
        {
            if (pointer.empty() || wrong.type() == root.at(pointer).type())
            {
                continue;
            }
            nlohmann::json damaged = root;
            damaged.at(pointer) = wrong;
            DRMXSettings settings;
            const DRAVResult result = settings.LoadSettingsFromText(damaged.dump());
            SCOPED_TRACE(pointer.to_string() + " = " + wrong.dump());
            if (!result.Succeeded())
            {
                ++refused;
                ASSERT_TRUE(IsRefusal(result)) << result.toString();
                ASSERT_FALSE(settings.isLoadedCorrectly());
                continue;
            }
            // Read leniently (an optional key, a value that converts): what
            // loaded must save and load again.
            ASSERT_EQ(settings.SaveSettings(path), kDRAVResultOk);
            DRMXSettings again;
            ASSERT_TRUE(again.LoadSettings(path).Succeeded());
        }
    }
    EXPECT_GT(refused, pointers.size()) << "the required keys refuse wrong types";
}

TEST_F(SettingsFileTest, AFolderThatCanNotBeWrittenKeepsTheOldFile)
{
    DRMXSettings settings = Defaults();
    ASSERT_EQ(settings.SaveSettings(path), kDRAVResultOk);
    const std::string before = ReadText(path);
    settings.applicationSettings.localizationLanguage = "nl";

    std::filesystem::permissions(folder,
                                 std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
    DRAVResult result;
    bool dropped = false;
    std::thread(
        [&]
        {
            dropped = getuid() != 0 || DropFileOverrideOnThisThread();
            result = settings.SaveSettings(path);
        })
        .join();
    std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
    ASSERT_TRUE(dropped) << "root's write override could not be given up on the test thread";
    EXPECT_EQ(result, kDRAVResultErrCouldNotOpenFile);
    EXPECT_EQ(ReadText(path), before);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 1) << "no temporary file left";
}

TEST_F(SettingsFileTest, AFullDiskKeepsTheOldFile)
{
    // A tiny file system where the machine lets us mount one, and always the
    // same failure from a file size limit on the write.
    const std::filesystem::path small = folder / "small";
    std::filesystem::create_directories(small);
    const bool mounted = mount("tidemix-test", small.c_str(), "tmpfs", 0, "size=16k") == 0;
    for (const bool onTmpfs : {mounted, false})
    {
        SCOPED_TRACE(onTmpfs ? "tmpfs" : "file size limit");
        const std::string target = onTmpfs ? (small / SETTINGS_JSON_FILENAME).string() : path;
        DRMXSettings settings = Defaults();
        ASSERT_EQ(settings.SaveSettings(target), kDRAVResultOk);
        const std::string before = ReadText(target);
        settings.applicationSettings.localizationLanguage = std::string(64 * 1024, 'x');

        rlimit original{};
        getrlimit(RLIMIT_FSIZE, &original);
        const auto oldHandler = signal(SIGXFSZ, SIG_IGN);
        rlimit limited = original;
        limited.rlim_cur = onTmpfs ? original.rlim_cur : 16 * 1024;
        setrlimit(RLIMIT_FSIZE, &limited);
        const DRAVResult result = settings.SaveSettings(target);
        setrlimit(RLIMIT_FSIZE, &original);
        signal(SIGXFSZ, oldHandler);

        EXPECT_EQ(result, kDRAVResultErrCouldNotOpenFile);
        EXPECT_EQ(ReadText(target), before);
        const auto files = std::distance(
            std::filesystem::directory_iterator(std::filesystem::path(target).parent_path()), {});
        EXPECT_EQ(files, onTmpfs ? 1 : 2) << "no temporary file left";
    }
    if (mounted)
    {
        umount2(small.c_str(), MNT_DETACH);
    }
}
