// Applications on a real PipeWire daemon: a client that plays a tone is
// listed and announced, its capture device carries the tone that the default
// output no longer plays, and everything goes back when the device goes.

#include <gtest/gtest.h>

#include <chrono>
#include <mutex>

#include "control/DRMXInput.h"
#include "microphones/DRMXNotificationCenter.h"
#include "observers/appaudio/DRMXDeviceObserverAppAudio.h"
#include "platform/Platform.h"
#include "platform/pipewire/PipeWireAudioSystem.h"
#include "support/ObserverTestSupport.h"
#include "support/PipeWireTestSupport.h"
#include "support/ThreadsTestSupport.h"

namespace
{
using namespace DRMX_Settings;
using tidemix::platform::Platform;
using tidemix::test::SampleCollector;
using Events = std::vector<std::string>;

constexpr uint32_t kRate = 48000;
constexpr auto kWait = std::chrono::seconds(20);
const std::string kAppId = "org.tidemix.TestPlayer";
const std::string kAppName = "Tidemix Test Player";

bool WaitFor(const std::function<bool()>& condition)
{
    return threads_test::WaitUntil(condition, kWait, std::chrono::milliseconds(20));
}

// A second of what the collector gets from now on, measured once it is there.
tidemix::test::ToneMeasurement NextSecond(const SampleCollector& collector)
{
    const size_t from = collector.Frames();
    WaitFor([&] { return collector.Frames() >= from + kRate; });
    const std::vector<float> samples = collector.Copy(from);
    return tidemix::test::MeasureTonePieces(samples.data(), std::min<size_t>(samples.size(), kRate), kRate,
                                            kRate / 10);
}

TEST(PipeWireApplications, AnApplicationsToneMovesToItsDeviceAndBack)
{
    std::shared_ptr<Platform> platform = Platform::Create("linux");
    auto peer = tidemix::test::PipeWireTestPeer::Connect();
    if (!peer || platform->Audio().Devices().empty())
    {
        ASSERT_EQ(getenv("TIDEMIX_PIPEWIRE_PRIVATE"), nullptr) << "scripts/with-pipewire.sh started PipeWire";
        GTEST_SKIP() << "no PipeWire daemon reachable; run the suite under scripts/with-pipewire.sh";
    }
    Platform::Use(platform);
    DRMXDeviceObserverAppAudio observer;
    ASSERT_TRUE(observer.Init().Succeeded());
    observer.SetNotification(kDeviceNotificationAppAudio);
    tidemix::test::ObserverRecorder recorder;
    observer.AttachObserver(recorder.Property());
    std::mutex mutex;
    Events posts;
    auto center = DRMXNotificationCenter::defaultNotificationCenter();
    std::vector<std::pair<std::string, DRMXNotificationCenter::ObserverHandle>> handles;
    for (const std::string& name : {DRMXDeviceObserverAppAudio::OtherAppLaunchedNotification,
                                    DRMXDeviceObserverAppAudio::OtherAppTerminatedNotification})
    {
        handles.emplace_back(
            name, center->addObserver(name,
                                      [&, name](DRMXNotificationParameters parameters)
                                      {
                                          std::lock_guard lock(mutex);
                                          posts.push_back(name + " " +
                                                          *static_cast<std::string*>(parameters.at(
                                                              DRMXDeviceObserverAppAudio::AppBundleIDKey)));
                                      }));
    }
    auto posted = [&](const std::string& post)
    {
        std::lock_guard lock(mutex);
        return std::find(posts.begin(), posts.end(), post) != posts.end();
    };

    const auto speakers = platform->Audio().Device(platform->Audio().DefaultOutput().value_or(0));
    ASSERT_TRUE(speakers.has_value());
    auto onSpeakers = std::make_shared<SampleCollector>(kRate * 120);
    auto speakerRecording = peer->RecordMonitor(speakers->uid, onSpeakers);
    ASSERT_TRUE(speakerRecording);

    // Launch: listed, announced, value 4.
    auto application = peer->RunApplication(kAppId, kAppName, 660.0, 0.5f);
    ASSERT_TRUE(application);
    EXPECT_TRUE(WaitFor([&] { return posted("OtherAppLaunchedNotification " + kAppId); }));
    const Events heard = recorder.Events();
    EXPECT_NE(std::find(heard.begin(), heard.end(), "value 4"), heard.end());
    const auto inputs = DRMXDeviceObserverAppAudio::EnumInputs();
    const auto listed = std::find_if(inputs.begin(), inputs.end(),
                                     [](const auto& input) { return input.GetHardwareId() == kAppId; });
    ASSERT_NE(listed, inputs.end());
    EXPECT_EQ(listed->GetName(), kAppName);
    EXPECT_EQ(listed->GetType(), kInputTypeAppAudio);
    EXPECT_NEAR(NextSecond(*onSpeakers).frequency, 660.0, 5.0);

    // Activation: a device in the list that alone carries the tone.
    auto input = std::make_unique<DRMXInput>(*listed);
    const std::string path = DRMXInput::GetDevicePathForSelector(*listed);
    ASSERT_FALSE(path.empty());
    const uint32_t deviceId = static_cast<uint32_t>(std::stoul(path));
    const auto device = platform->Audio().Device(deviceId);
    ASSERT_TRUE(device.has_value());
    EXPECT_EQ(device->name, kAppName);
    EXPECT_GT(device->inputStreams, 0u);
    auto captured = std::make_shared<SampleCollector>(kRate * 60);
    auto capture = platform->Audio().OpenCapture(
        deviceId, [captured](const tidemix::platform::CapturePacket& packet)
        { captured->Append(static_cast<const float*>(packet.buffers[0]), packet.frames); });
    ASSERT_TRUE(capture);
    ASSERT_TRUE(capture->Start().Succeeded());
    ASSERT_TRUE(WaitFor([&] { return captured->FirstAbove(0.1f) < captured->Frames(); }));
    const auto onDevice = NextSecond(*captured);
    EXPECT_NEAR(onDevice.frequency, 660.0, 5.0);
    EXPECT_GT(onDevice.rms, 0.2);
    EXPECT_LT(NextSecond(*onSpeakers).rms, 0.01);

    // Deactivation: the device goes and the tone is back on the speakers.
    capture->Stop();
    capture.reset();
    input.reset();
    EXPECT_FALSE(platform->Audio().Device(deviceId).has_value());
    EXPECT_TRUE(WaitFor([&] { return NextSecond(*onSpeakers).rms > 0.2; }));
    EXPECT_NEAR(NextSecond(*onSpeakers).frequency, 660.0, 5.0);

    // Quitting is announced.
    application.reset();
    EXPECT_TRUE(WaitFor([&] { return posted("OtherAppTerminatedNotification " + kAppId); }));

    for (const auto& [name, handle] : handles)
    {
        center->removeObserver(name, handle);
    }
    observer.DetachObserver(recorder.Property());
    observer.Deinit();
    speakerRecording.reset();
    Platform::Use(nullptr);
}
}  // namespace
