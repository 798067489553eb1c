// The manager's life cycle against stand-in collaborators. The manager starts
// the "levels" worker, so these tests also run under ThreadSanitizer.

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <thread>

#include "control/DRMXManager.h"
#include "control/DRMXPlatformHooks.h"
#include "control/ManagerFakes.h"
#include "support/LogCapture.h"
#include "support/ThreadsTestSupport.h"

using namespace DRMX_Settings;
using namespace tidemix::test;

namespace
{
// The user's speakers (the system's default output) and the stream device.
std::vector<DRMXOutputSelector> Outputs()
{
    DRMXOutputSelector speakers;
    speakers.SetType(kOutputTypeHardware);
    speakers.SetName("Speakers");
    speakers.SetHardwareId("speakers");
    speakers.isDefaultOutput = true;
    DRMXOutputSelector stream;
    stream.SetType(kOutputTypeVirtual);
    stream.SetName("Tidemix Stream");
    stream.SetHardwareId("tidemix-stream");
    return {speakers, stream};
}

DRMXInputSelector MicrophoneSelector()
{
    DRMXInputSelector selector;
    selector.SetType(kInputTypeMainMicrophone);
    selector.SetHardwareId("microphone");
    selector.SetName("Drovane Reed Pro");
    selector.SetVendorId(0x7E11);
    selector.SetProductId(0x0B25);
    return selector;
}

// Each test gets the singleton re-initialised on fresh stand-ins.
class ManagerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        manager = DRMXManager::GetDRMXManager();
        microphone = std::make_shared<FakeMicrophone>(events);
        deviceObserver = std::make_shared<FakeDeviceObserver>();
        deviceObserver->SetNotification(kDeviceNotificationCoreAudio);
        powerObserver = std::make_shared<FakePowerObserver>();

        DRMXPlatformHooks hooks;
        hooks.createMixer = [this](const std::string& name, DRMXMixerType type)
        {
            auto mixer = std::make_shared<FakeMixer>(name, type, events);
            (type == kMixerLocal ? localMixer : streamMixer) = mixer;
            return mixer;
        };
        hooks.registerDeviceObservers = [this]
        { return std::vector<std::shared_ptr<DRMXDeviceObserverBase>>{deviceObserver}; };
        hooks.registerPowerStateObserver = [this] { return powerObserver; };
        hooks.availableInputs = [this](DRMXInputType type)
        {
            std::vector<DRMXInputSelector> inputs;
            if (type == kInputTypeMainMicrophone && microphonePlugged.load())
            {
                inputs.push_back(MicrophoneSelector());
            }
            return inputs;
        };
        hooks.availableOutputs = [](DRMXOutputType) { return Outputs(); };
        hooks.createInput = [this](const DRMXInputSelector&, std::shared_ptr<DRMXInputInterface>* out)
        {
            ++microphonesCreated;
            *out = microphone;
            return DRAVResult(kDRAVResultOk);
        };
        formerHooks = DRMXSetPlatformHooks(hooks);

        ASSERT_TRUE(manager->Init("").Succeeded());
        manager->UpdateMainMicrophoneCache();
        ASSERT_NE(localMixer, nullptr);
        ASSERT_NE(streamMixer, nullptr);
        events.Clear();
        microphonesCreated = 0;
    }

    void TearDown() override
    {
        manager->StopMixing();
        manager->Deinit();
        DRMXSetPlatformHooks(formerHooks);
    }

    // Inputs and an output on both mixes, and the monitoring output of the stream mix.
    void LayOut(bool failingInput = false)
    {
        localMixer->AddInput(std::make_shared<FakeInput>("local input", events));
        if (failingInput)
        {
            localMixer->AddInput(std::make_shared<FakeInput>("gone input", events, false));
        }
        streamMixer->AddInput(std::make_shared<FakeInput>("stream input", events));
        localMixer->SetOutput(std::make_shared<FakeOutput>("local output", events));
        streamMixer->SetOutput(std::make_shared<FakeOutput>("stream output", events));
        streamMixer->SetMonitoringOutput(std::make_shared<FakeOutput>("monitor output", events));
    }

    DRMXManager* manager = nullptr;
    EventLog events;
    std::shared_ptr<FakeMicrophone> microphone;
    std::shared_ptr<FakeDeviceObserver> deviceObserver;
    std::shared_ptr<FakePowerObserver> powerObserver;
    std::shared_ptr<FakeMixer> localMixer;
    std::shared_ptr<FakeMixer> streamMixer;
    std::atomic<bool> microphonePlugged{true};
    std::atomic<int> microphonesCreated{0};
    DRMXPlatformHooks formerHooks;
};
}  // namespace

TEST_F(ManagerTest, EmptyMixesRefuseToStartWithBothMessages)
{
    LogCapture log;
    const DRAVResult result = manager->StartMixing();
    EXPECT_EQ(result, kDRAVResultErrInvalidState);
    EXPECT_EQ(log.Count("local mixer has no inputs"), 1u);
    EXPECT_EQ(log.Count("stream mixer has no inputs"), 1u);
    EXPECT_EQ(log.Count("has no output"), 0u);
    EXPECT_FALSE(manager->IsMixing());
    for (const std::string& event : events.Events())
    {
        EXPECT_NE(event.rfind("start ", 0), 0u)
            << "nothing may start when the layout is incomplete: " << event;
    }
}

TEST_F(ManagerTest, MissingOutputIsReportedOncePerMix)
{
    localMixer->AddInput(std::make_shared<FakeInput>("local input", events));
    streamMixer->AddInput(std::make_shared<FakeInput>("stream input", events));
    LogCapture log;
    EXPECT_EQ(manager->StartMixing(), kDRAVResultErrInvalidState);
    EXPECT_EQ(log.Count("local mixer has no output"), 1u);
    EXPECT_EQ(log.Count("stream mixer has no output"), 0u) << "the first failure ends the output checks";
    EXPECT_FALSE(manager->IsMixing());
}

TEST_F(ManagerTest, StartsInOrderAndStopsInReverseLayers)
{
    LayOut();
    ASSERT_TRUE(manager->StartMixing().Succeeded());
    EXPECT_TRUE(manager->IsMixing());
    const std::vector<std::string> expectedStart = {
        "start local input",    "start stream input", "start local output", "start stream output",
        "start monitor output", "start Local Mixer",  "start microphone",   "start Remote Mixer"};
    EXPECT_EQ(events.Events(), expectedStart);

    events.Clear();
    manager->StopMixing();
    EXPECT_FALSE(manager->IsMixing());
    const std::vector<std::string> expectedStop = {
        "stop local output", "stop stream output", "stop monitor output", "stop Local Mixer",
        "stop Remote Mixer", "stop local input",   "stop stream input"};
    EXPECT_EQ(events.Events(), expectedStop);
}

TEST_F(ManagerTest, StartAndStopAreIdempotent)
{
    LayOut();
    EXPECT_TRUE(manager->StartMixing().Succeeded());
    EXPECT_TRUE(manager->StartMixing().Succeeded());
    EXPECT_EQ(events.Count("start Local Mixer"), 1u);
    EXPECT_EQ(events.Count("start Remote Mixer"), 1u);

    manager->StopMixing();
    manager->StopMixing();
    EXPECT_EQ(events.Count("stop Local Mixer"), 1u);
    EXPECT_FALSE(manager->IsMixing());

    // The layout stays across a stop: a new start brings it back.
    EXPECT_TRUE(manager->StartMixing().Succeeded());
    EXPECT_EQ(events.Count("start Local Mixer"), 2u);
}

TEST_F(ManagerTest, AnInputThatFailsToStartIsLoggedAndTheMixRuns)
{
    LayOut(/*failingInput=*/true);
    LogCapture log;
    EXPECT_TRUE(manager->StartMixing().Succeeded());
    EXPECT_EQ(log.Count("input start fail"), 1u);
    EXPECT_TRUE(manager->IsMixing());
}

TEST_F(ManagerTest, WithoutAMicrophoneEverythingStartedIsStoppedAgain)
{
    microphonePlugged = false;
    manager->UpdateMainMicrophoneCache();
    LayOut();
    LogCapture log;
    EXPECT_FALSE(manager->StartMixing().Succeeded());
    EXPECT_FALSE(manager->IsMixing());
    EXPECT_GE(log.Count("No Drovane microphone found"), 1u);
    for (const char* unit : {"local input", "stream input", "local output", "stream output", "Local Mixer"})
    {
        EXPECT_EQ(events.Count(std::string("start ") + unit), events.Count(std::string("stop ") + unit))
            << unit;
    }
    EXPECT_EQ(events.Count("start Remote Mixer"), 0u);
    EXPECT_FALSE(manager->GetLevelMeteringEnabled());
}

TEST_F(ManagerTest, LevelMeteringNeedsMixingAndFeedsNodesAndOutputs)
{
    EXPECT_EQ(manager->SetLevelMeteringEnabled(true), kDRAVResultErrInvalidState);
    EXPECT_FALSE(manager->GetLevelMeteringEnabled());

    LayOut();
    ASSERT_TRUE(manager->StartMixing().Succeeded());
    EXPECT_TRUE(manager->GetLevelMeteringEnabled());
    // Enabling twice runs one loop, not two.
    EXPECT_TRUE(manager->SetLevelMeteringEnabled(true).Succeeded());

    auto output = std::dynamic_pointer_cast<DRMXOutputBase>(localMixer->GetOutput());
    ASSERT_NE(output, nullptr);
    ASSERT_TRUE(threads_test::WaitUntil([&] { return output->GetVULevelChannel1() > 0.99; }));
    EXPECT_DOUBLE_EQ(output->GetVULevelChannel1(), 1.0);  // 0 dB
    EXPECT_DOUBLE_EQ(output->GetVULevelChannel2(), 0.0);  // -50 dB

    manager->StopMixing();
    EXPECT_FALSE(manager->GetLevelMeteringEnabled());
    // The loop ends after the pass it is in; then nothing reads the meters.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const int reads = localMixer->levelReads.load();
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    EXPECT_EQ(localMixer->levelReads.load(), reads);
}

TEST_F(ManagerTest, DeviceChangesRebuildTheMicrophoneExceptForApplicationAudio)
{
    std::shared_ptr<DRMXMicrophoneInterface> cached;
    ASSERT_TRUE(manager->GetMicrophoneInterface(DRMXInputSelector(), &cached).Succeeded());
    ASSERT_EQ(cached, std::static_pointer_cast<DRMXMicrophoneInterface>(microphone));
    const int created = microphonesCreated.load();

    deviceObserver->SetNotification(kDeviceNotificationAppAudio);
    deviceObserver->NotifyChanges();
    EXPECT_EQ(microphonesCreated.load(), created) << "application audio doesn't concern the microphone";

    deviceObserver->SetNotification(kDeviceNotificationCoreAudio);
    deviceObserver->NotifyChanges();
    EXPECT_EQ(microphonesCreated.load(), created + 1);

    microphonePlugged = false;
    deviceObserver->NotifyChanges();
    std::shared_ptr<DRMXMicrophoneInterface> after;
    EXPECT_FALSE(manager->GetMicrophoneInterface(DRMXInputSelector(), &after).Succeeded());
    EXPECT_EQ(after, nullptr);
}

TEST_F(ManagerTest, SleepStopsMixingAndWakeRestartsIt)
{
    LayOut();
    ASSERT_TRUE(manager->StartMixing().Succeeded());

    powerObserver->SetPowerState(kPowerStateWillSleep);
    powerObserver->NotifyChanges();
    EXPECT_FALSE(manager->IsMixing());
    EXPECT_FALSE(manager->IsSystemAwake());
    EXPECT_TRUE(microphone->ledsOff.load());
    EXPECT_FALSE(manager->IsMicrophoneConnected()) << "nothing is connected while asleep";

    powerObserver->SetPowerState(kPowerStateAwake);
    powerObserver->NotifyChanges();
    EXPECT_TRUE(manager->IsMixing());
    EXPECT_TRUE(manager->IsSystemAwake());
    EXPECT_FALSE(microphone->ledsOff.load());
}

TEST_F(ManagerTest, SleepWithoutACachedMicrophoneChangesNothing)
{
    microphonePlugged = false;
    manager->UpdateMainMicrophoneCache();
    powerObserver->SetPowerState(kPowerStateWillSleep);
    powerObserver->NotifyChanges();
    EXPECT_TRUE(manager->IsSystemAwake());
}

TEST_F(ManagerTest, SettingsFacadeKeepsTheBufferSizes)
{
    DRMXMixerConfiguration stored;
    ASSERT_TRUE(manager->GetMixerConfigurationSettings(stored).Succeeded())
        << "the defaults come from the stand-in devices";
    DRMXMixerConfiguration changed = stored;
    changed.audioBufferSizeInputMSec = stored.audioBufferSizeInputMSec + 7;
    changed.audioBufferSizeOutputMSec = stored.audioBufferSizeOutputMSec + 9;
    ASSERT_TRUE(manager->SetMixerConfigurationSettings(changed).Succeeded());
    DRMXMixerConfiguration after;
    ASSERT_TRUE(manager->GetMixerConfigurationSettings(after).Succeeded());
    EXPECT_EQ(after.audioBufferSizeInputMSec, stored.audioBufferSizeInputMSec);
    EXPECT_EQ(after.audioBufferSizeOutputMSec, stored.audioBufferSizeOutputMSec);
}

TEST_F(ManagerTest, SampleRateIsFixed)
{
    std::vector<uint32_t> rates;
    uint32_t rate = 0;
    EXPECT_EQ(manager->GetSupportedSamplerates(rates), kDRAVResultErrNotImplemented);
    EXPECT_EQ(manager->GetCurrentSampleRate(rate), kDRAVResultErrNotImplemented);
    EXPECT_EQ(manager->SetSampleRate(44100), kDRAVResultErrNotImplemented);
    EXPECT_TRUE(rates.empty());
    EXPECT_EQ(rate, 0u);
}

TEST_F(ManagerTest, MonitorSelectionMutesOneOfTheTwoOutputsOnTheUsersDevice)
{
    LayOut();
    manager->SetMonitorMixerType(kMixerStream);
    EXPECT_TRUE(localMixer->GetOutput()->GetEngineMute());
    EXPECT_FALSE(streamMixer->GetMonitoringOutput()->GetEngineMute());
    EXPECT_FALSE(streamMixer->GetOutput()->GetEngineMute()) << "the audience's output is never touched";

    manager->SetMonitorMixerType(kMixerLocal);
    EXPECT_FALSE(localMixer->GetOutput()->GetEngineMute());
    EXPECT_TRUE(streamMixer->GetMonitoringOutput()->GetEngineMute());
}

TEST_F(ManagerTest, LockOrderHoldsUnderConcurrentStartStopAndDeviceChanges)
{
    LayOut();
    std::atomic<bool> stop{false};
    std::thread application(
        [&]
        {
            for (int i = 0; i < 50 && !stop.load(); ++i)
            {
                manager->StartMixing();
                manager->StopMixing();
            }
        });
    std::thread devices(
        [&]
        {
            for (int i = 0; i < 50 && !stop.load(); ++i)
            {
                deviceObserver->NotifyChanges();
            }
        });
    std::thread power(
        [&]
        {
            for (int i = 0; i < 20 && !stop.load(); ++i)
            {
                powerObserver->SetPowerState(i % 2 == 0 ? kPowerStateWillSleep : kPowerStateAwake);
                powerObserver->NotifyChanges();
            }
        });
    application.join();
    devices.join();
    power.join();
    manager->StopMixing();
    EXPECT_FALSE(manager->IsMixing());
}

TEST_F(ManagerTest, DeinitThatCannotSaveLogsAndStillReleasesTheObservers)
{
    // A folder where the file should be: nothing can replace it.
    const std::string path = manager->GetSettingsPath();
    ASSERT_FALSE(path.empty());
    std::filesystem::remove(path);
    std::filesystem::create_directories(path);

    LogCapture log;
    manager->Deinit();
    EXPECT_EQ(log.Count("Couldn't save mixer configuarion"), 1u);

    const int created = microphonesCreated.load();
    deviceObserver->NotifyChanges();
    EXPECT_EQ(microphonesCreated.load(), created) << "a released observer no longer reaches the manager";
    std::filesystem::remove_all(path);
}

TEST_F(ManagerTest, SettingsSurviveDeinitAndInit)
{
    DRMXApplicationSettings application;
    ASSERT_TRUE(manager->GetApplicationSettings(application).Succeeded());
    application.localizationLanguage = "de";
    application.updateSkipVersion = "1.2.3";
    ASSERT_TRUE(manager->SetApplicationSettings(application).Succeeded());
    manager->Deinit();
    EXPECT_TRUE(std::filesystem::exists(manager->GetSettingsPath()));

    ASSERT_TRUE(manager->Init("").Succeeded());
    DRMXApplicationSettings loaded;
    ASSERT_TRUE(manager->GetApplicationSettings(loaded).Succeeded());
    EXPECT_EQ(loaded.localizationLanguage, "de");
    EXPECT_EQ(loaded.updateSkipVersion, "1.2.3");
    EXPECT_FALSE(manager->GetNoSettingsFileAvailable());
    DRMXMixerConfiguration configuration;
    ASSERT_TRUE(manager->GetMixerConfigurationSettings(configuration).Succeeded());
    EXPECT_EQ(configuration.mixerInputsLocal.size(), 1u) << "a second load doesn't pile entries on the first";
}

TEST_F(ManagerTest, AnUnusableFileGivesDefaultsAndIsKeptBesideTheNewOne)
{
    manager->Deinit();
    const std::string path = manager->GetSettingsPath();
    const std::string damaged = R"({"Tidemix Settings Version": 7, "Tidemix Engine Settings": {)";
    {
        std::ofstream file(path, std::ios::trunc);
        file << damaged;
    }
    ASSERT_TRUE(manager->Init("").Succeeded());
    DRMXMixerConfiguration configuration;
    ASSERT_TRUE(manager->GetMixerConfigurationSettings(configuration).Succeeded()) << "the defaults stand in";
    EXPECT_EQ(configuration.mixerInputsLocal.size(), 1u);

    manager->Deinit();
    std::ifstream kept(path + ".unusable");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), damaged);
    std::ifstream written(path);
    EXPECT_FALSE(nlohmann::json::parse(written, nullptr, false).is_discarded()) << "a whole new file";
    std::filesystem::remove(path + ".unusable");
    ASSERT_TRUE(manager->Init("").Succeeded());
}
