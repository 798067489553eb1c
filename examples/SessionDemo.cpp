#include "SessionDemo.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "control/DRMXManager.h"
#include "control/DRMXMixer.h"
#include "microphones/DRMXNotificationCenter.h"
#include "observers/appaudio/DRMXDeviceObserverAppAudio.h"
#include "platform/Platform.h"
#include "platform/sim/SimPlatform.h"
#include "portable-core/DRAVPropertyNames.h"
#include "portable-core/KVObserver.h"
#include "settings/DRAVEngineFolders.h"

namespace
{
using namespace DRMX_Settings;
using tidemix::platform::SampleEncoding;
using tidemix::platform::sim::SimDeviceSpec;
using tidemix::platform::sim::SimSignal;

constexpr char kMicrophoneSerial[] = "SESSION1";
constexpr char kMicrophoneUid[] = "usb-Drovane_Reed_SESSION1-00";
constexpr char kDeskMicrophoneName[] = "Desk Microphone";
constexpr char kHeadphonesName[] = "Session Headphones";
constexpr char kMusicName[] = "Tidemix Music";
constexpr char kStreamName[] = "Tidemix Stream";
constexpr char kPlayerId[] = "org.example.CadencePlayer";
constexpr char kPlayerName[] = "Cadence Player";

const char* MixName(DRMXMixerType type)
{
    return type == kMixerLocal ? "local" : "stream";
}

const char* TypeName(DRMXInputType type)
{
    switch (type)
    {
        case kInputTypeMainMicrophone:
            return "main microphone";
        case kInputTypeVirtual:
            return "virtual channel";
        case kInputTypeHardware:
            return "microphone";
        default:
            return "input";
    }
}

void PrintLayout(const char* title, const DRMXMixerConfiguration& layout)
{
    printf("%s\n", title);
    for (const auto type : {kMixerLocal, kMixerStream})
    {
        const auto& inputs = type == kMixerLocal ? layout.mixerInputsLocal : layout.mixerInputsStream;
        const auto& output = type == kMixerLocal ? layout.mixerOutputLocal : layout.mixerOutputStream;
        printf("  %s mix -> %s\n", MixName(type), output.GetHardwareId().c_str());
        for (const auto& input : inputs)
        {
            printf("    node %d: %s (%s), gain %.2f%s\n", input.GetMixerNodeId(), input.GetName().c_str(),
                   TypeName(input.GetType()), input.gain, input.mute ? ", muted" : "");
        }
    }
}

// What the application hears from the library: the named notifications with
// the devices they carry, and the observers' change values.
class ApplicationEars : public KVObserver
{
public:
    ApplicationEars()
    {
        auto center = DRMXNotificationCenter::defaultNotificationCenter();
        for (const char* name : {"CoreAudioInputsAddedNotification", "CoreAudioInputsRemovedNotification"})
        {
            handles_.push_back(center->addObserver(
                name, [this, name](DRMXNotificationParameters parameters) { Inputs(name, parameters); }));
        }
        for (const std::string& name : {DRMXDeviceObserverAppAudio::OtherAppLaunchedNotification,
                                        DRMXDeviceObserverAppAudio::OtherAppTerminatedNotification})
        {
            handles_.push_back(center->addObserver(name, [this, name](DRMXNotificationParameters parameters)
                                                   { Application(name, parameters); }));
        }
        for (const char* name : {"CoreAudioOutputsAddedNotification", "CoreAudioOutputsRemovedNotification"})
        {
            handles_.push_back(center->addObserver(
                name, [name](DRMXNotificationParameters parameters) { Outputs(name, parameters); }));
        }
    }
    ~ApplicationEars() override
    {
        for (const auto& handle : handles_)
        {
            DRMXNotificationCenter::defaultNotificationCenter()->removeObserver(handle);
        }
    }

    using KVObserver::UpdateObserver;
    void UpdateObserver(const std::string&, DRAVPropertyKVPair pair, KVCProperty*) override
    {
        printf("  [device change] %s = %lld\n", pair.key.c_str(), static_cast<long long>(pair.intValue));
    }

    // The music channel's selector once it went or came back, each taken once.
    std::optional<DRMXInputSelector> TakeReturnedMusic()
    {
        std::lock_guard guard(mutex_);
        return std::exchange(returnedMusic_, std::nullopt);
    }
    std::optional<DRMXInputSelector> TakeRemovedMusic()
    {
        std::lock_guard guard(mutex_);
        return std::exchange(removedMusic_, std::nullopt);
    }
    // The music player's launch and end, each taken once.
    bool TakePlayerLaunched()
    {
        std::lock_guard guard(mutex_);
        return std::exchange(playerLaunched_, false);
    }
    bool TakePlayerTerminated()
    {
        std::lock_guard guard(mutex_);
        return std::exchange(playerTerminated_, false);
    }

private:
    void Inputs(const char* name, const DRMXNotificationParameters& parameters)
    {
        const auto found = parameters.find("inputs");
        if (found == parameters.end() || found->second == nullptr)
        {
            return;
        }
        const auto& inputs = *static_cast<const std::vector<DRMXInputSelector>*>(found->second);
        for (const auto& input : inputs)
        {
            printf("  [notification] %s: %s\n", name, input.GetName().c_str());
            if (input.GetName() == kMusicName)
            {
                std::lock_guard guard(mutex_);
                (std::string(name) == "CoreAudioInputsAddedNotification" ? returnedMusic_ : removedMusic_) =
                    input;
            }
        }
    }
    void Application(const std::string& name, const DRMXNotificationParameters& parameters)
    {
        const auto found = parameters.find(DRMXDeviceObserverAppAudio::AppBundleIDKey);
        if (found == parameters.end() || found->second == nullptr)
        {
            return;
        }
        const std::string identifier = *static_cast<const std::string*>(found->second);
        printf("  [notification] %s: %s\n", name.c_str(), identifier.c_str());
        if (identifier == kPlayerId)
        {
            std::lock_guard guard(mutex_);
            (name == DRMXDeviceObserverAppAudio::OtherAppLaunchedNotification ? playerLaunched_
                                                                              : playerTerminated_) = true;
        }
    }
    static void Outputs(const char* name, const DRMXNotificationParameters& parameters)
    {
        const auto found = parameters.find("outputs");
        if (found == parameters.end() || found->second == nullptr)
        {
            return;
        }
        for (const auto& output : *static_cast<const std::vector<DRMXOutputSelector>*>(found->second))
        {
            printf("  [notification] %s: %s\n", name, output.GetName().c_str());
        }
    }

    std::vector<DRMXNotificationCenter::ObserverHandle> handles_;
    std::mutex mutex_;
    std::optional<DRMXInputSelector> returnedMusic_;
    std::optional<DRMXInputSelector> removedMusic_;
    bool playerLaunched_ = false;
    bool playerTerminated_ = false;
};

template <typename Selector>
std::optional<Selector> Named(const std::vector<Selector>& selectors, const std::string& name)
{
    const auto found = std::find_if(selectors.begin(), selectors.end(),
                                    [&](const Selector& selector) { return selector.GetName() == name; });
    return found == selectors.end() ? std::nullopt : std::optional<Selector>(*found);
}

// A first start: the microphone, a further microphone and the music channel
// in both mixes, from the devices the library offers.
std::optional<DRMXMixerConfiguration> LayoutFromAvailableDevices(DRMXManager& manager)
{
    const auto microphones = manager.GetAvailableInputs(kInputTypeMainMicrophone);
    const auto desk = Named(manager.GetAvailableInputs(kInputTypeHardware), kDeskMicrophoneName);
    const auto music = Named(manager.GetAvailableInputs(kInputTypeVirtual), kMusicName);
    const auto headphones = Named(manager.GetAvailableOutputs(kOutputTypeHardware, ""), kHeadphonesName);
    const auto stream = Named(manager.GetAvailableOutputs(kOutputTypeVirtual, kStreamName), kStreamName);
    if (microphones.size() != 1 || !desk || !music || !headphones || !stream)
    {
        printf("the devices of the layout are not all there\n");
        return std::nullopt;
    }
    DRMXMixerConfiguration layout;
    const std::vector<std::pair<DRMXInputSelector, std::pair<double, double>>> inputs = {
        {microphones.front(), {1.0, 1.0}}, {*desk, {0.75, 0.5}}, {*music, {0.25, 0.625}}};
    int node = 0;
    for (const auto& [selector, gains] : inputs)
    {
        DRMXInputSelector input = selector;
        input.SetMixerNodeID(node++);
        input.gain = gains.first;
        layout.AddMixerInputLocal(input);
        input.gain = gains.second;
        layout.AddMixerInputStream(input);
    }
    layout.SetMixerOutputLocal(*headphones);
    layout.SetMixerOutputStream(*stream);
    return layout;
}

DRAVResult ApplyLayout(DRMXManager& manager, const DRMXMixerConfiguration& layout)
{
    DRAVResult steps(kDRAVResultOk);
    const DRAVResult configured = manager.ConfigureMixer(
        DRMXManager::kReconfigureLayout,
        [&]
        {
            const auto keep = [&](const DRAVResult& result) { steps = steps.Succeeded() ? result : steps; };
            keep(manager.SetOutputOnMixer(kMixerLocal, layout.mixerOutputLocal));
            keep(manager.SetOutputOnMixer(kMixerStream, layout.mixerOutputStream));
            for (const auto& input : layout.mixerInputsLocal)
            {
                keep(manager.AddInputToMixer(kMixerLocal, input));
            }
            for (const auto& input : layout.mixerInputsStream)
            {
                keep(manager.AddInputToMixer(kMixerStream, input));
            }
        });
    return steps.Succeeded() ? configured : steps;
}

double NodeLevel(DRMXManager& manager, DRMXMixerType type, const std::string& name)
{
    for (const auto& node : manager.GetMixerNodes(type))
    {
        if (node->GetInputSelector().GetName() == name)
        {
            return node->GetDoubleProperty(kPropertyNodeVULevelChannel1);
        }
    }
    return -1.0;
}

void PrintLevels(double at, DRMXManager& manager)
{
    printf("%6.1f s", at);
    for (const auto type : {kMixerLocal, kMixerStream})
    {
        printf("  | %s:", MixName(type));
        for (const auto& node : manager.GetMixerNodes(type))
        {
            printf(" %s %.3f", node->GetInputSelector().GetName().c_str(),
                   node->GetDoubleProperty(kPropertyNodeVULevelChannel1));
        }
    }
    printf("\n");
}

// Points the music channel of a mix at another device. The user's fader
// values (gain, mute, custom name, node) are the application's and go along.
DRAVResult RepointMusic(DRMXManager& manager, DRMXMixerType type, DRMXInputSelector target)
{
    const auto mixer = manager.GetMixerForType(type);
    const auto inputs = mixer ? mixer->GetInputs() : std::vector<std::shared_ptr<DRMXInputInterface>>();
    for (unsigned index = 0; index < inputs.size(); ++index)
    {
        const DRMXInputSelector current = inputs[index]->GetSelector();
        if (current.GetName() == kMusicName)
        {
            target.gain = current.gain;
            target.mute = current.mute;
            target.SetCustomName(current.GetCustomName());
            target.SetMixerNodeID(current.GetMixerNodeId());
            return manager.SetInputOnMixer(type, target, index);
        }
    }
    return DRAVResult(kDRAVResultErrNotFound);
}
}  // namespace

int RunSession(double seconds, const std::string& configDir)
{
    auto platform = std::make_shared<tidemix::platform::sim::SimPlatform>();
    tidemix::platform::Platform::Use(platform);
    auto& world = platform->World();

    // The user's desk: a Reed on USB, a second microphone, headphones, and
    // the virtual devices with a music player feeding the music channel.
    const uint32_t location = platform->UsbDevices().Plug(
        tidemix::platform::sim::SimUsbDeviceSpec::Microphone(0x0B21, kMicrophoneSerial));
    SimDeviceSpec reed = SimDeviceSpec::Microphone(kMicrophoneUid, "Drovane Reed 1",
                                                   {48000, 1, SampleEncoding::Float32, true});
    reed.transport = tidemix::platform::AudioTransport::Usb;
    reed.usb = tidemix::platform::UsbIdentity{0x7E11, 0x0B21, location};
    reed.signal = SimSignal::Sine(1000.0, 0.5);
    SimDeviceSpec desk = SimDeviceSpec::Microphone("session-desk-microphone", kDeskMicrophoneName,
                                                   {48000, 1, SampleEncoding::Int16, true});
    desk.signal = SimSignal::Sine(300.0, 0.3);
    world.AddDevice(reed);
    world.AddDevice(desk);
    world.SetDefaultOutput(world.AddDevice(SimDeviceSpec::Speaker(
        "session-headphones", kHeadphonesName, {48000, 2, SampleEncoding::Float32, true})));
    SimDeviceSpec music;
    for (const uint32_t id : world.PublishVirtualDevices())
    {
        const auto info = world.Device(id);
        if (info && info->name == kMusicName)
        {
            music =
                SimDeviceSpec::Microphone(info->uid, kMusicName, {48000, 2, SampleEncoding::Float32, true});
            music.transport = tidemix::platform::AudioTransport::Virtual;
            music.signal = SimSignal::Sine(440.0, 0.5);
            world.RemoveDevice(id);
        }
    }
    uint32_t musicId = world.AddDevice(music);
    world.FlushNotifications();

    DRAVSetAppDataDirectory(configDir);
    ApplicationEars ears;
    DRMXManager* manager = DRMXManager::GetDRMXManager();
    printf("Init (application data folder %s) ...\n", configDir.c_str());
    const DRAVResult init = manager->Init("");
    printf("Init: %s\n", init.toString().c_str());
    if (!init.Succeeded())
    {
        tidemix::platform::Platform::Use(nullptr);
        return 1;
    }
    manager->AttachDeviceChangeObserver(&ears, kDeviceNotificationAny);
    manager->UpdateMainMicrophoneCache();

    // A layout that came back from the file is used as it is; a first start
    // builds one from the devices there are.
    DRMXMixerConfiguration stored;
    std::optional<DRMXMixerConfiguration> layout;
    if (!manager->GetNoSettingsFileAvailable() &&
        manager->GetMixerConfigurationSettings(stored).Succeeded() && stored.mixerInputsLocal.size() > 1)
    {
        layout = stored;
        PrintLayout(("layout restored from " + manager->GetSettingsPath() + ":").c_str(), stored);
    }
    else
    {
        printf("no stored layout in %s: building one from the available devices\n",
               manager->GetSettingsPath().c_str());
        layout = LayoutFromAvailableDevices(*manager);
        if (layout)
        {
            PrintLayout("layout built:", *layout);
        }
    }
    const DRAVResult applied = layout ? ApplyLayout(*manager, *layout) : DRAVResult(kDRAVResultErrNotFound);
    printf("ConfigureMixer (layout): %s, mixing=%s\n", applied.toString().c_str(),
           manager->IsMixing() ? "yes" : "no");

    const auto start = std::chrono::steady_clock::now();
    const auto elapsed = [&]
    { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); };
    bool unplugged = false;
    bool pluggedBack = false;
    bool slept = false;
    bool musicRestored = false;
    bool playerStarted = false;
    bool playerQuit = false;
    double playerLevel = 0.0;
    std::optional<DRMXInputSelector> playerInput;
    tidemix::platform::sim::SimApplicationSpec player{
        kPlayerId, kPlayerName, tidemix::platform::ApplicationPolicy::Regular, SimSignal::Sine(660.0, 0.5)};
    double silentLevel = -1.0;
    double nextPrint = 0.0;
    const auto musicBack = [&]
    { return musicRestored && NodeLevel(*manager, kMixerStream, kMusicName) > 0.05; };
    // A loaded machine may hear of the returned device late: the run waits a
    // few seconds more for it rather than end on a channel not yet back.
    while (applied.Succeeded() &&
           (elapsed() < seconds || (pluggedBack && !musicBack() && elapsed() < seconds + 5)))
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        const double at = elapsed();
        if (!unplugged && at >= seconds / 3.0)
        {
            unplugged = true;
            printf("%6.1f s  unplugging %s\n", at, kMusicName);
            world.RemoveDevice(musicId);
        }
        if (!pluggedBack && at >= 2.0 * seconds / 3.0)
        {
            pluggedBack = true;
            silentLevel = NodeLevel(*manager, kMixerStream, kMusicName);
            printf("%6.1f s  plugging %s back (its channel reads %.3f)\n", at, kMusicName, silentLevel);
            musicId = world.AddDevice(music);
        }
        // A channel keeps its place while its device is away: the application
        // points it at no device, and at the device again when it returns (a
        // selector equal to the current one would change nothing).
        if (ears.TakeRemovedMusic())
        {
            DRMXInputSelector away;
            away.SetType(kInputTypeVirtual);
            away.SetName(kMusicName);
            for (const auto type : {kMixerLocal, kMixerStream})
            {
                printf("%6.1f s  SetInputOnMixer(%s, %s -> no device): %s\n", at, MixName(type), kMusicName,
                       RepointMusic(*manager, type, away).toString().c_str());
            }
        }
        if (const auto returned = ears.TakeReturnedMusic())
        {
            musicRestored = true;
            for (const auto type : {kMixerLocal, kMixerStream})
            {
                const DRAVResult moved = RepointMusic(*manager, type, *returned);
                printf("%6.1f s  SetInputOnMixer(%s, %s -> %s): %s\n", at, MixName(type), kMusicName,
                       returned->GetInputID().c_str(), moved.toString().c_str());
                musicRestored = musicRestored && moved.Succeeded();
            }
        }
        if (!slept && at >= seconds / 6.0)
        {
            slept = true;
            platform->PowerSource().Sleep();
            printf("%6.1f s  system sleeps: mixing=%s\n", at, manager->IsMixing() ? "yes" : "no");
            platform->PowerSource().Wake();
            printf("%6.1f s  system wakes: mixing=%s\n", elapsed(), manager->IsMixing() ? "yes" : "no");
        }
        // The music player: it starts, the application offers it and adds it
        // to the stream mix by a layout change, and when it quits its channel goes.
        if (!playerStarted && at >= 0.2 * seconds)
        {
            playerStarted = true;
            printf("%6.1f s  %s starts\n", at, kPlayerName);
            platform->SimApps().Start(player);
        }
        if (ears.TakePlayerLaunched())
        {
            playerInput = Named(DRMXDeviceObserverAppAudio::EnumInputs(), kPlayerName);
            printf("%6.1f s  offered as an input: %s\n", at,
                   playerInput ? playerInput->GetName().c_str() : "(nothing)");
            DRMXMixerConfiguration next;
            if (playerInput && manager->GetMixerConfiguration(next).Succeeded())
            {
                playerInput->SetMixerNodeID(static_cast<int>(next.mixerInputsStream.size()));
                playerInput->gain = 0.5;
                next.AddMixerInputStream(*playerInput);
                printf("%6.1f s  ConfigureMixer (layout, %s joins the stream mix): %s\n", at, kPlayerName,
                       ApplyLayout(*manager, next).toString().c_str());
            }
        }
        if (playerInput && !playerQuit)
        {
            playerLevel = std::max(playerLevel, NodeLevel(*manager, kMixerStream, kPlayerName));
        }
        if (playerStarted && !playerQuit && at >= 0.55 * seconds)
        {
            playerQuit = true;
            printf("%6.1f s  %s quits (its channel read up to %.3f)\n", at, kPlayerName, playerLevel);
            platform->SimApps().Quit(kPlayerId);
        }
        if (ears.TakePlayerTerminated() && playerInput)
        {
            printf("%6.1f s  StopMixingOnInput(%s, erase): %s\n", at, kPlayerName,
                   manager->StopMixingOnInput(*playerInput, true).toString().c_str());
        }
        if (at >= nextPrint)
        {
            nextPrint += 0.5;
            PrintLevels(at, *manager);
        }
    }
    const double musicAtEnd = NodeLevel(*manager, kMixerStream, kMusicName);
    const bool musicCameBack = musicBack() && silentLevel < 0.01;
    printf("music channel at the end: %.3f (silent while unplugged: %.3f)\n", musicAtEnd, silentLevel);

    // The layout as it stands is what the next start restores.
    DRMXMixerConfiguration live;
    if (manager->GetMixerConfiguration(live).Succeeded())
    {
        manager->SetMixerConfigurationSettings(live);
    }
    manager->DetachDeviceChangeObserver(&ears);
    printf("Deinit ...\n");
    for (const auto type : {kMixerLocal, kMixerStream})
    {
        if (const auto mixer = manager->GetMixerForType(type))
        {
            manager->StopMixing();
            mixer->EraseAllChannels();
        }
    }
    manager->Deinit();
    std::error_code error;
    const bool written = std::filesystem::is_regular_file(manager->GetSettingsPath(), error);
    printf("Deinit: settings %s %s\n", manager->GetSettingsPath().c_str(),
           written ? "written" : "NOT written");
    tidemix::platform::Platform::Use(nullptr);
    DRAVSetAppDataDirectory("");

    const bool playerHeard = playerLevel > 0.05;
    return applied.Succeeded() && written && musicCameBack && slept && playerHeard ? 0 : 1;
}
