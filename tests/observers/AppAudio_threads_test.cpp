// Applications as inputs on the simulated platform: the list and its events,
// the capture device that the inputs of both mixes share, the resource of
// default inputs, icons and installed flags.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>

#include "control/DRMXInput.h"
#include "microphones/DRMXNotificationCenter.h"
#include "observers/appaudio/DRMXDeviceObserverAppAudio.h"
#include "platform/Platform.h"
#include "platform/sim/SimPlatform.h"
#include "support/LogCapture.h"
#include "support/MixObjectsTestSupport.h"
#include "support/ObserverTestSupport.h"
#include "support/SimAudioAnalysis.h"

namespace
{
using namespace DRMX_Settings;
using tidemix::platform::ApplicationPolicy;
using tidemix::platform::InstalledApplication;
using tidemix::platform::Platform;
using tidemix::platform::sim::SimApplicationSpec;
using tidemix::platform::sim::SimPlatform;
using tidemix::platform::sim::SimSignal;
using Events = std::vector<std::string>;

// A 2 x 2 red RGBA picture.
const unsigned char kPng[] = {0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a, 0x00, 0x00, 0x00, 0x0d, 0x49,
                              0x48, 0x44, 0x52, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x02, 0x08, 0x06,
                              0x00, 0x00, 0x00, 0x72, 0xb6, 0x0d, 0x24, 0x00, 0x00, 0x00, 0x11, 0x49, 0x44,
                              0x41, 0x54, 0x78, 0x9c, 0x63, 0xf8, 0xcf, 0xc0, 0xf0, 0x1f, 0x84, 0x19, 0x60,
                              0x0c, 0x00, 0x47, 0xca, 0x07, 0xf9, 0x67, 0x59, 0x6e, 0xb7, 0x00, 0x00, 0x00,
                              0x00, 0x49, 0x45, 0x4e, 0x44, 0xae, 0x42, 0x60, 0x82};

DRMXInputSelector AppSelector(const std::string& bundleId, const std::string& name = "App")
{
    DRMXInputSelector selector;
    selector.SetType(kInputTypeAppAudio);
    selector.SetName(name);
    selector.SetHardwareId(bundleId);
    return selector;
}

// The width in a PNG's header.
uint32_t PngWidth(const std::vector<uint8_t>& png)
{
    return png.size() < 24 ? 0 : (png[16] << 24) | (png[17] << 16) | (png[18] << 8) | png[19];
}

class AppAudio : public ::testing::Test
{
protected:
    void SetUp() override
    {
        platform_ = std::make_shared<SimPlatform>();
        Platform::Use(platform_);
        speaker_ = tidemix::test::AddSimSpeaker(platform_->World(), "phones");
        ASSERT_TRUE(observer_.Init().Succeeded());
        observer_.SetNotification(kDeviceNotificationAppAudio);
        observer_.AttachObserver(recorder_.Property());
        auto center = DRMXNotificationCenter::defaultNotificationCenter();
        for (const std::string& name : {DRMXDeviceObserverAppAudio::OtherAppLaunchedNotification,
                                        DRMXDeviceObserverAppAudio::OtherAppTerminatedNotification})
        {
            handles_.emplace_back(
                name, center->addObserver(name,
                                          [this, name](DRMXNotificationParameters parameters)
                                          {
                                              const auto* id = static_cast<std::string*>(
                                                  parameters.at(DRMXDeviceObserverAppAudio::AppBundleIDKey));
                                              std::lock_guard lock(mutex_);
                                              posts_.push_back(name + " " + *id);
                                          }));
        }
    }

    void TearDown() override
    {
        // Quit applications leave the process-wide list before the observer goes.
        for (const auto& app : Apps().Running())
        {
            Apps().Quit(app.identifier);
        }
        Settle();
        for (const auto& [name, handle] : handles_)
        {
            DRMXNotificationCenter::defaultNotificationCenter()->removeObserver(name, handle);
        }
        observer_.DetachObserver(recorder_.Property());
        observer_.Deinit();
        Platform::Use(nullptr);
    }

    // Every event so far handled on the main queue.
    void Settle()
    {
        Apps().FlushNotifications();
        tidemix::test::SettleObservers(*platform_);
    }

    Events Posts()
    {
        std::lock_guard lock(mutex_);
        return posts_;
    }

    tidemix::platform::sim::SimApplications& Apps() { return platform_->SimApps(); }

    // The tone's amplitude in what the speaker plays for a while from now.
    double ToneOnSpeaker(double frequency)
    {
        platform_->World().StartRecording(speaker_, 1.0);
        usleep(400 * 1000);
        const auto sound = platform_->World().Recording(speaker_)->Snapshot();
        const auto left = tidemix::test::Deinterleave(sound.samples, sound.channels, 0);
        return tidemix::test::WholeToneAmplitude(tidemix::test::Pieces(left, 4800), sound.sampleRate,
                                                 frequency);
    }

    std::shared_ptr<SimPlatform> platform_;
    uint32_t speaker_ = 0;
    DRMXDeviceObserverAppAudio observer_;
    tidemix::test::ObserverRecorder recorder_;
    std::mutex mutex_;
    Events posts_;
    std::vector<std::pair<std::string, DRMXNotificationCenter::ObserverHandle>> handles_;
};

// Which running programs may be inputs, and what their start and end tell.
TEST_F(AppAudio, OnlyRegularApplicationsAndTheAllowedAccessoryAreListed)
{
    struct Case
    {
        SimApplicationSpec spec;
        bool listed;
    };
    const std::string accessory = DRMXDeviceObserverAppAudio::kWhitelistedAccessoryAppBundleID;
    const Case cases[] = {
        {{"org.example.ListedPlayer", "Player", ApplicationPolicy::Regular, {}}, true},
        {{"tidemix-host", "Tidemix", ApplicationPolicy::Regular, {}}, false},  // the program itself
        {{accessory, "Control", ApplicationPolicy::Accessory, {}}, true},
        {{"org.example.Menulet", "Menulet", ApplicationPolicy::Accessory, {}}, false},
        {{"org.example.Daemon", "Daemon", ApplicationPolicy::Background, {}}, false},
        {{"org.example.Nameless", "", ApplicationPolicy::Regular, {}}, false},
    };
    for (const Case& c : cases)
    {
        ASSERT_TRUE(Apps().Start(c.spec));
    }
    Settle();
    const auto descriptors = DRMXDeviceObserverAppAudio::EnumDeviceDescriptors(kDRAVDeviceTypeAudioCapture);
    const auto inputs = DRMXDeviceObserverAppAudio::EnumInputs();
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.spec.identifier);
        const auto found =
            std::find_if(inputs.begin(), inputs.end(),
                         [&](const auto& s) { return s.GetHardwareId() == c.spec.identifier; });
        EXPECT_EQ(found != inputs.end(), c.listed);
        if (found != inputs.end())
        {
            EXPECT_EQ(found->GetType(), kInputTypeAppAudio);
            EXPECT_EQ(found->GetName(), c.spec.name);
        }
    }
    // One descriptor per application, counted from 0, marked as an application's.
    ASSERT_EQ(descriptors.size(), inputs.size());
    for (size_t i = 0; i < descriptors.size(); ++i)
    {
        EXPECT_EQ(descriptors[i].index, static_cast<int32_t>(i));
        const auto* caps =
            dynamic_cast<const DRAVDeviceCapabilitiesAudioCapture*>(descriptors[i].capabilities.get());
        ASSERT_NE(caps, nullptr);
        EXPECT_EQ(caps->terminal, kDRAVDeviceTerminalApplicationAudio);
    }
    EXPECT_TRUE(DRMXDeviceObserverAppAudio::EnumDeviceDescriptors(kDRAVDeviceTypeNone).empty());

    // Launches of all but the program itself were told, each with its value 4.
    const auto posts = Posts();
    EXPECT_EQ(std::count_if(posts.begin(), posts.end(),
                            [](const auto& p) { return p.find("tidemix-host") != std::string::npos; }),
              0);
    EXPECT_EQ(posts.front(), "OtherAppLaunchedNotification org.example.ListedPlayer");
    EXPECT_EQ(recorder_.Events().size(), std::size(cases) - 1);

    // A quit application without a device leaves the list.
    recorder_.Clear();
    ASSERT_TRUE(Apps().Quit("org.example.ListedPlayer"));
    Settle();
    EXPECT_EQ(Posts().back(), "OtherAppTerminatedNotification org.example.ListedPlayer");
    EXPECT_EQ(recorder_.Events(), (Events{"value 4"}));
    EXPECT_EQ(observer_.GetLastChangedBundleId(), "org.example.ListedPlayer");
    const auto after = DRMXDeviceObserverAppAudio::GetAudioInfos();
    EXPECT_TRUE(std::none_of(after.begin(), after.end(),
                             [](const auto& app)
                             { return app->GetIdentifier() == "org.example.ListedPlayer"; }));
    for (const Case& c : cases)
    {
        Apps().Quit(c.spec.identifier);
    }
}

// The inputs of both mixes share one device; the application's sound leaves
// the speaker for it, and comes back when the first input goes, which also
// empties the entry the other input still names.
TEST_F(AppAudio, BothMixesShareOneDeviceUntilOneOfTheirInputsGoes)
{
    const std::string app = "org.example.SharedPlayer";
    ASSERT_TRUE(
        Apps().Start({app, "Shared Player", ApplicationPolicy::Regular, SimSignal::Sine(660.0, 0.5)}));
    EXPECT_GT(ToneOnSpeaker(660.0), 0.3);

    auto local = std::make_unique<DRMXInput>(AppSelector(app, "Shared Player"));
    auto stream = std::make_unique<DRMXInput>(AppSelector(app, "Shared Player"));
    EXPECT_EQ(Apps().CaptureDevicesCreated(), 1);
    const std::string path = DRMXInput::GetDevicePathForSelector(AppSelector(app));
    ASSERT_FALSE(path.empty());
    const auto device = platform_->World().Device(static_cast<uint32_t>(std::stoul(path)));
    ASSERT_TRUE(device.has_value());
    EXPECT_EQ(device->name, "Shared Player");
    EXPECT_EQ(Apps().SoundDevice(app), device->id);
    EXPECT_LT(ToneOnSpeaker(660.0), 0.01);

    local.reset();
    EXPECT_EQ(DRMXInput::GetDevicePathForSelector(AppSelector(app)), "");
    EXPECT_FALSE(platform_->World().Device(device->id).has_value());
    EXPECT_EQ(Apps().SoundDevice(app), 0u);
    EXPECT_GT(ToneOnSpeaker(660.0), 0.3);
    EXPECT_EQ(stream->AudioUnitStart(DRAVTimestamp(0)).GetCode(), kDRAVResultErrNotFound);
    EXPECT_FALSE(stream->IsUnitStarted());
    stream.reset();
    Apps().Quit(app);
}

// No device for an application that isn't running (it may have quit since it
// was listed), and an input of it starts nothing.
TEST_F(AppAudio, AnApplicationThatQuitBeforeActivationGetsNoDevice)
{
    tidemix::test::LogCapture log;
    const std::string app = "org.example.Quitter";
    ASSERT_TRUE(Apps().Start({app, "Quitter", ApplicationPolicy::Regular, SimSignal::Sine(440.0, 0.5)}));
    Settle();
    ASSERT_EQ(DRMXDeviceObserverAppAudio::EnumInputs().back().GetHardwareId(), app);
    Apps().Quit(app);

    DRMXInput input(AppSelector(app));
    EXPECT_EQ(Apps().CaptureDevicesCreated(), 0);
    EXPECT_EQ(input.AudioUnitStart(DRAVTimestamp(0)).GetCode(), kDRAVResultErrNotFound);
    EXPECT_EQ(log.Count("\"org.example.Quitter\" doesn't run"), 1u);
    std::string path;
    EXPECT_FALSE(DRMXDeviceObserverAppAudio::ActivateAppAudioDevice(AppSelector(app), path));
    DRMXInputSelector device = AppSelector(app);
    device.SetType(kInputTypeVirtual);
    EXPECT_FALSE(DRMXDeviceObserverAppAudio::ActivateAppAudioDevice(device, path));
}

// An application that quits keeps its entry while it has a device; letting
// the device go removes the entry and makes the observers speak.
TEST_F(AppAudio, AQuitApplicationStaysListedUntilItsDeviceGoes)
{
    const std::string app = "org.example.Leaver";
    ASSERT_TRUE(Apps().Start({app, "Leaver", ApplicationPolicy::Regular, SimSignal::Sine(440.0, 0.5)}));
    std::string path;
    ASSERT_TRUE(DRMXDeviceObserverAppAudio::ActivateAppAudioDevice(AppSelector(app), path));
    Apps().Quit(app);
    Settle();
    auto listed = [&]
    {
        const auto list = DRMXDeviceObserverAppAudio::GetAudioInfos();
        return std::any_of(list.begin(), list.end(),
                           [&](const auto& a) { return a->GetIdentifier() == app; });
    };
    EXPECT_TRUE(listed());
    recorder_.Clear();
    DRMXDeviceObserverAppAudio::DeactivateAppAudioDevice(AppSelector(app));
    EXPECT_FALSE(listed());
    EXPECT_FALSE(platform_->World().Device(static_cast<uint32_t>(std::stoul(path))).has_value());
    Settle();
    EXPECT_EQ(recorder_.Events(), (Events{"value 4"}));
    // A second time reaches no device.
    DRMXDeviceObserverAppAudio::DeactivateAppAudioDevice(AppSelector(app));
}

// The resource of default inputs: broken ones give no inputs and one line of
// log each; a good one takes a URL's handler first, else the first installed
// bundle identifier.
TEST_F(AppAudio, DefaultInputsComeFromTheResourceAndABrokenOneGivesNone)
{
    const auto folder =
        std::filesystem::temp_directory_path() / ("tidemix-appaudio-" + std::to_string(getpid()));
    std::filesystem::create_directories(folder);
    setenv("TIDEMIX_RESOURCE_DIR", folder.c_str(), 1);
    Apps().Install({"org.example.Browser", "Browser", "", ""});
    Apps().Install({"org.example.Music", "Music", "", ""});
    Apps().SetUrlHandler("https", "org.example.Browser");
    struct Case
    {
        const char* what;
        const char* text;  // null: no file
        std::vector<std::string> expected;
        const char* logged;
    };
    const Case cases[] = {
        {"missing", nullptr, {}, "Need the file DefaultAppAudioInputs.json in main bundle"},
        {"empty", "", {}, "Could not load data from file DefaultAppAudioInputs.json"},
        {"not JSON", "{\"inputs\": [", {}, "Could not deserial JSON from file DefaultAppAudioInputs.json"},
        {"inputs not an array", "{\"inputs\": 5}", {}, "Could not deserial JSON"},
        {"wrong types inside",
         R"({"inputs": [7, {"urlToOpenDefaultApp": 3, "bundleIDs": "org.example.Music"}, {"bundleIDs": [1, "org.example.Music"]}]})",
         {"org.example.Music"},
         nullptr},
        {"URL first, then identifiers in order",
         R"({"inputs": [{"urlToOpenDefaultApp": "https://example.org", "bundleIDs": ["org.example.Music"]},
                       {"urlToOpenDefaultApp": "nohandler:x", "bundleIDs": ["org.example.Absent", "org.example.Music"]},
                       {}]})",
         {"org.example.Browser", "org.example.Music"},
         nullptr},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.what);
        std::filesystem::remove(folder / "DefaultAppAudioInputs.json");
        if (c.text != nullptr)
        {
            std::ofstream(folder / "DefaultAppAudioInputs.json") << c.text;
        }
        tidemix::test::LogCapture log;
        std::vector<std::string> ids;
        for (const auto& selector : DRMXDeviceObserverAppAudio::GetDefaultAppAudioInputs())
        {
            EXPECT_EQ(selector.GetType(), kInputTypeAppAudio);
            ids.push_back(selector.GetHardwareId());
        }
        EXPECT_EQ(ids, c.expected);
        if (c.logged != nullptr)
        {
            EXPECT_EQ(log.Count(c.logged), 1u);
        }
    }
    unsetenv("TIDEMIX_RESOURCE_DIR");
    std::filesystem::remove_all(folder);
}

// Icons and installed flags of applications in the list and not in it, and
// launching them.
TEST_F(AppAudio, IconsInstalledFlagsAndLaunching)
{
    const auto folder =
        std::filesystem::temp_directory_path() / ("tidemix-icons-" + std::to_string(getpid()));
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "good.png", std::ios::binary)
        .write(reinterpret_cast<const char*>(kPng), sizeof(kPng));
    std::ofstream(folder / "bad.png") << "not a picture";
    Apps().Install({"org.example.Painted", "Painted", "", (folder / "good.png").string()});
    Apps().Install({"org.example.Smudged", "Smudged", "", (folder / "bad.png").string()});
    for (const char* id : {"org.example.Painted", "org.example.Smudged", "org.example.Foreign"})
    {
        Apps().Start({id, id, ApplicationPolicy::Regular, {}});
    }
    tidemix::test::LogCapture log;
    DRMXDeviceObserverAppAudio::GetAudioInfos();
    EXPECT_EQ(log.Count("can't be read"), 1u);

    struct Case
    {
        const char* id;
        bool image;
        bool installed;
    };
    for (const Case& c :
         {Case{"org.example.Painted", true, true}, Case{"org.example.Smudged", false, false},
          Case{"org.example.Foreign", false, false}, Case{"org.example.Unlisted", false, false}})
    {
        SCOPED_TRACE(c.id);
        const DRMXInputSelector selector = AppSelector(c.id);
        EXPECT_EQ(DRMXDeviceObserverAppAudio::ImageExistsForInputSelector(selector), c.image);
        EXPECT_EQ(DRMXDeviceObserverAppAudio::IsInstalled(selector), c.installed);
        void* out = reinterpret_cast<void*>(0x1);  // stays as it is without a picture
        const int size = DRMXDeviceObserverAppAudio::CopyImageData(selector, &out, 16, 16, true);
        if (!c.image)
        {
            EXPECT_EQ(size, 0);
            EXPECT_EQ(out, reinterpret_cast<void*>(0x1));
            continue;
        }
        ASSERT_GT(size, 0);
        const std::vector<uint8_t> png(static_cast<uint8_t*>(out), static_cast<uint8_t*>(out) + size);
        free(out);
        EXPECT_EQ(PngWidth(png), 16u);
        const int same = DRMXDeviceObserverAppAudio::CopyImageDataFromBundleID(c.id, &out, 16, 16, false);
        ASSERT_GT(same, 0);
        EXPECT_EQ(
            PngWidth(std::vector<uint8_t>(static_cast<uint8_t*>(out), static_cast<uint8_t*>(out) + same)),
            2u);
        free(out);
    }
    // The smudged application has an entry, so it counts as installed once asked.
    EXPECT_TRUE(DRMXDeviceObserverAppAudio::UpdateIsInstalledFlag(AppSelector("org.example.Smudged")));
    EXPECT_FALSE(DRMXDeviceObserverAppAudio::UpdateIsInstalledFlag(AppSelector("org.example.Unlisted")));
    EXPECT_TRUE(AppSelector("org.example.Painted").GetIsAvailable());

    EXPECT_FALSE(DRMXDeviceObserverAppAudio::OpenApp(AppSelector("")));
    EXPECT_TRUE(DRMXDeviceObserverAppAudio::OpenApp(AppSelector("org.example.Absent")));
    EXPECT_TRUE(DRMXDeviceObserverAppAudio::OpenApp(AppSelector("org.example.Music")));
    EXPECT_EQ(Apps().LaunchRequests(), (std::vector<std::string>{"org.example.Absent", "org.example.Music"}));
    for (const char* id : {"org.example.Painted", "org.example.Smudged", "org.example.Foreign"})
    {
        Apps().Quit(id);
    }
    std::filesystem::remove_all(folder);
}
}  // namespace
