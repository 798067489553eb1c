// The manager's sleep and wake with logind's power events (python3-dbusmock's
// logind on the private bus of scripts/with-logind-mock.sh) while it mixes
// on the simulated audio devices and microphone.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <string>

#include "control/DRMXInput.h"
#include "control/DRMXManager.h"
#include "control/DRMXMicrophone.h"
#include "control/DRMXOutput.h"
#include "engine/DRAVManager.h"
#include "observers/DRMXDeviceObserverCoreAudio.h"
#include "platform/Platform.h"
#include "platform/linux/LogindPowerEvents.h"
#include "platform/sim/SimPlatform.h"
#include "support/MixObjectsTestSupport.h"
#include "support/ObserverTestSupport.h"
#include "support/ThreadsTestSupport.h"

namespace
{
using namespace DRMX_Settings;
using tidemix::platform::Platform;
using tidemix::platform::PowerEvent;

// The simulated world, but sleep and wake come from logind.
class SimWithLogindPower : public tidemix::platform::sim::SimPlatform
{
public:
    tidemix::platform::PowerEvents& Power() override { return logind_; }

private:
    tidemix::platform::linuxos::LogindPowerEvents logind_;
};

// Runs a few lines of Python with dbus against the mock (the python3-dbus
// that python3-dbusmock brings) and gives what they print.
std::string Python(const std::string& code)
{
    const std::string command =
        "/usr/bin/python3 -c \"import dbus; b = dbus.SystemBus(); "
        "o = b.get_object('org.freedesktop.login1', '/org/freedesktop/login1'); " +
        code + "\" 2>&1";
    std::string output;
    if (FILE* pipe = popen(command.c_str(), "r"))
    {
        char buffer[256];
        while (fgets(buffer, sizeof(buffer), pipe) != nullptr)
        {
            output += buffer;
        }
        pclose(pipe);
    }
    return output;
}

void EmitPrepareForSleep(bool start)
{
    Python(std::string("o.EmitSignal('org.freedesktop.login1.Manager', 'PrepareForSleep', 'b', "
                       "[dbus.Boolean(") +
           (start ? "True" : "False") + ")], dbus_interface='org.freedesktop.DBus.Mock')");
}

int DelayLocks()
{
    const std::string count = Python(
        "print(sum(1 for i in o.ListInhibitors(dbus_interface='org.freedesktop.login1.Manager') "
        "if i[0] == 'sleep' and i[3] == 'delay'))");
    return std::atoi(count.c_str());
}

TEST(ManagerOnLogind, SleepStopsMixingBeforeTheDelayLockGoesAndWakeBringsTheLayoutBack)
{
    auto platform = std::make_shared<SimWithLogindPower>();
    Platform::Use(platform);
    DRMXDeviceObserverCoreAudio::ResetMainMicrophoneID();
    tidemix::test::AddSimMicrophone(platform->World(), "tone", {}, 480, {});
    tidemix::test::AddSimSpeaker(platform->World(), "phones");
    tidemix::test::AddSimSpeaker(platform->World(), "stream");
    tidemix::test::PlugSimMicrophone(*platform, 0x0B23, "SLEEP1");
    DRMXManager* manager = DRMXManager::GetDRMXManager();
    ASSERT_TRUE(manager->Init("").Succeeded());
    manager->UpdateMainMicrophoneCache();
    ASSERT_TRUE(tidemix::test::LayOutToneMixes(*manager));
    ASSERT_TRUE(manager->StartMixing().Succeeded());
    ASSERT_TRUE(threads_test::WaitUntil([] { return DelayLocks() == 1; })) << "no delay lock while listening";

    // Told after the manager's observer: what the machine would find as the
    // lock goes.
    std::shared_ptr<DRMXMicrophoneInterface> microphone;
    ASSERT_TRUE(manager->GetMicrophoneInterface(DRMXInputSelector(), &microphone).Succeeded());
    std::atomic<int> heardSleep{0};
    std::atomic<bool> mixingThen{true};
    std::atomic<bool> ledsOffThen{false};
    std::atomic<int> locksThen{-1};
    const uint64_t probe = platform->Power().AddListener(
        [&](PowerEvent event)
        {
            if (event == PowerEvent::WillSleep)
            {
                mixingThen.store(manager->IsMixing());
                ledsOffThen.store(microphone->GetMicrophoneAllLEDOff());
                locksThen.store(DelayLocks());
                heardSleep.fetch_add(1);
            }
        });
    EmitPrepareForSleep(true);
    ASSERT_TRUE(threads_test::WaitUntil([&] { return heardSleep.load() == 1; }));
    EXPECT_FALSE(mixingThen.load());
    EXPECT_TRUE(ledsOffThen.load());
    EXPECT_EQ(locksThen.load(), 1) << "the sleep was allowed before mixing had stopped";
    EXPECT_TRUE(threads_test::WaitUntil([] { return DelayLocks() == 0; })) << "the sleep was never allowed";

    EmitPrepareForSleep(false);
    // The wake starts mixing first and then lights the microphone.
    EXPECT_TRUE(threads_test::WaitUntil(
        [&] { return manager->IsMixing() && !microphone->GetMicrophoneAllLEDOff(); }));
    EXPECT_TRUE(threads_test::WaitUntil([] { return DelayLocks() == 1; }));
    for (const auto type : {kMixerLocal, kMixerStream})
    {
        const auto inputs = manager->GetMixerForType(type)->GetInputs();
        ASSERT_EQ(inputs.size(), 1u);
        EXPECT_EQ(inputs[0]->GetSelector().GetHardwareId(), "tone");
    }

    platform->Power().RemoveListener(probe);
    tidemix::test::EmptyMixes(*manager);
    manager->Deinit();
    DRAVManager::GetDRAVManager()->Deinit();
    Platform::Use(nullptr);
}

}  // namespace
