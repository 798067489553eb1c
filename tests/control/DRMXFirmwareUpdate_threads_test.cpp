// Firmware updates through the manager on the simulated bus: the states and
// progress the application polls, mixing around the update, the faults of a
// device that goes away, and files refused before anything stops.

#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <thread>

#include "control/DRMXFirmwareUpdate.h"
#include "control/DRMXInput.h"
#include "control/DRMXManager.h"
#include "control/DRMXOutput.h"
#include "engine/DRAVManager.h"
#include "observers/DRMXDeviceObserverCoreAudio.h"
#include "platform/Platform.h"
#include "platform/sim/SimPlatform.h"
#include "support/DfuFileTestSupport.h"
#include "support/MixObjectsTestSupport.h"
#include "support/ObserverTestSupport.h"
#include "support/ThreadsTestSupport.h"

namespace
{
using namespace DRMX_Settings;
using tidemix::platform::Platform;
using tidemix::platform::sim::SimPlatform;
using tidemix::platform::sim::SimUsbDeviceSpec;
using tidemix::test::MakeDfuFile;

// The update's waits run a hundred times faster, and at each one the clock
// notes what the application would see if it polled then.
class ProbingClock : public DRMXFirmwareUpdateClock
{
public:
    void SleepFor(std::chrono::milliseconds duration) override
    {
        Probe();
        std::this_thread::sleep_for(duration / 100);
    }
    void Watch(DRMXFirmwareUpdateInterface* update)
    {
        std::lock_guard lock(mutex_);
        update_ = update;
    }
    void Probe()
    {
        std::lock_guard lock(mutex_);
        if (update_ == nullptr)
        {
            return;
        }
        const int32_t state = update_->GetDfuState();
        if (states_.empty() || states_.back() != state)
        {
            states_.push_back(state);
        }
        progress_.push_back(update_->GetFirmwareUpdateProgress());
        mixingSeen_ = mixingSeen_ || DRMXManager::GetDRMXManager()->IsMixing();
    }
    std::vector<int32_t> States()
    {
        std::lock_guard lock(mutex_);
        return states_;
    }
    std::vector<int32_t> Progress()
    {
        std::lock_guard lock(mutex_);
        return progress_;
    }
    bool MixingSeen()
    {
        std::lock_guard lock(mutex_);
        return mixingSeen_;
    }

private:
    std::mutex mutex_;
    DRMXFirmwareUpdateInterface* update_ = nullptr;
    std::vector<int32_t> states_{kDfuStateStarted};
    std::vector<int32_t> progress_;
    bool mixingSeen_ = false;
};

class FirmwareUpdate : public ::testing::TestWithParam<uint16_t>
{
protected:
    void SetUp() override
    {
        platform_ = std::make_shared<SimPlatform>();
        Platform::Use(platform_);
        DRMXDeviceObserverCoreAudio::ResetMainMicrophoneID();
        DRMXFirmwareUpdate::SetDefaultClock(clock_);
        tidemix::test::AddSimMicrophone(platform_->World(), "tone", {}, 480, {});
        tidemix::test::AddSimSpeaker(platform_->World(), "phones");
        tidemix::test::AddSimSpeaker(platform_->World(), "stream");
        microphone_ = tidemix::test::PlugSimMicrophone(*platform_, Model(), "FW1");
        manager_ = DRMXManager::GetDRMXManager();
        ASSERT_TRUE(manager_->Init("").Succeeded());
        manager_->UpdateMainMicrophoneCache();
        ASSERT_TRUE(tidemix::test::LayOutToneMixes(*manager_));
        ASSERT_TRUE(manager_->StartMixing().Succeeded());
    }

    void TearDown() override
    {
        update_.reset();
        tidemix::test::EmptyMixes(*manager_);
        manager_->Deinit();
        DRMXFirmwareUpdate::SetDefaultClock(nullptr);
        DRAVManager::GetDRAVManager()->Deinit();
        Platform::Use(nullptr);
    }

    virtual uint16_t Model() const { return GetParam(); }

    // Starts an update of the main microphone from the file.
    DRAVResult Start(const std::string& path)
    {
        update_ = manager_->GetFirmwareUpdater("");
        clock_->Watch(update_.get());
        update_->SetDeviceSelector(manager_->GetMainMicrophoneInput());
        return update_->DoFirmwareUpdate(path);
    }

    // Waits for 5 or 6; false if the update hangs.
    bool WaitForEnd()
    {
        return threads_test::WaitUntil(
            [this]
            {
                const int32_t state = update_->GetDfuState();
                return state == kDfuStateDone || state == kDfuStateFailed;
            });
    }

    // The microphone's USB device replaced by one of this spec, at its place.
    void Replug(const SimUsbDeviceSpec& spec)
    {
        platform_->UsbDevices().Unplug(microphone_.location);
        platform_->UsbDevices().Plug(spec, microphone_.location);
        tidemix::test::SettleObservers(*platform_);
    }

    std::vector<tidemix::platform::sim::SimUsbRequest> Downloads()
    {
        std::vector<tidemix::platform::sim::SimUsbRequest> downloads;
        for (const auto& request : platform_->UsbDevices().Requests())
        {
            if (request.setup.requestType == 0x21 && request.setup.request == 1)
            {
                downloads.push_back(request);
            }
        }
        return downloads;
    }

    std::shared_ptr<SimPlatform> platform_;
    std::shared_ptr<ProbingClock> clock_ = std::make_shared<ProbingClock>();
    tidemix::test::SimMicrophone microphone_;
    DRMXManager* manager_ = nullptr;
    std::shared_ptr<DRMXFirmwareUpdateInterface> update_;
    PortableCoreTestFolder folder_;
};

TEST_P(FirmwareUpdate, EveryModelRunsThroughAllStatesAndComesBackWithTheFilesVersion)
{
    // The device takes a moment to come back, so the update is seen detaching.
    auto spec = SimUsbDeviceSpec::Microphone(Model(), "FW1");
    spec.dfuTiming.returnDelay = std::chrono::milliseconds(30);
    Replug(spec);
    const std::string path = MakeDfuFile(folder_, "update.dfu", 300, 0x7E11, Model(), 0x234);
    ASSERT_TRUE(Start(path).Succeeded());
    ASSERT_TRUE(WaitForEnd());
    clock_->Probe();
    EXPECT_EQ(clock_->States(), (std::vector<int32_t>{1, 2, 3, 4, 5}));
    const auto progress = clock_->Progress();
    EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()));
    EXPECT_GT(progress.back(), 0);
    EXPECT_LT(progress.back(), 100);
    EXPECT_FALSE(clock_->MixingSeen()) << "mixing ran while the microphone was being updated";
    EXPECT_TRUE(threads_test::WaitUntil([this] { return manager_->IsMixing(); })) << "mixing did not resume";

    const auto image = tidemix::test::ReadAll(path);
    const auto manifested = platform_->UsbDevices().ManifestedImages(microphone_.location);
    ASSERT_EQ(manifested.size(), 1u);
    EXPECT_EQ(manifested[0], std::vector<uint8_t>(image.begin(), image.end() - 16));
    const auto device = platform_->UsbDevices().Devices(0x7E11);
    ASSERT_EQ(device.size(), 1u);
    EXPECT_EQ(device[0].productId, Model());
    EXPECT_EQ(device[0].release, 0x234);
}

INSTANTIATE_TEST_SUITE_P(Models, FirmwareUpdate, ::testing::Values(0x0B21, 0x0B23, 0x0B25));

class FirmwareUpdateOfAReed3 : public FirmwareUpdate
{
protected:
    uint16_t Model() const override { return 0x0B23; }
};

// 65 image bytes: blocks of 64 and 1, then the empty block 2; progress 0
// after the first, 98 after the second, never 100. A suffix alone sends only
// the empty block, which the device refuses (it has no image yet).
TEST_F(FirmwareUpdateOfAReed3, BlocksAndProgressFollowTheImageSize)
{
    struct Case
    {
        size_t imageBytes;
        std::vector<size_t> blockLengths;
        int32_t finalProgress;
        int32_t finalState;
    };
    for (const Case& c : {Case{65, {64, 1, 0}, 98, kDfuStateDone}, Case{0, {0}, 0, kDfuStateFailed}})
    {
        SCOPED_TRACE(c.imageBytes);
        platform_->UsbDevices().ClearRequests();
        ASSERT_TRUE(Start(MakeDfuFile(folder_, "small.dfu", c.imageBytes, 0x7E11, 0x0B23)).Succeeded());
        ASSERT_TRUE(WaitForEnd());
        EXPECT_EQ(update_->GetDfuState(), c.finalState);
        EXPECT_EQ(update_->GetFirmwareUpdateProgress(), c.finalProgress);
        const auto downloads = Downloads();
        ASSERT_EQ(downloads.size(), c.blockLengths.size());
        for (size_t i = 0; i < downloads.size(); ++i)
        {
            EXPECT_EQ(downloads[i].setup.value, i);
            EXPECT_EQ(downloads[i].dataOut.size(), c.blockLengths[i]);
        }
        ASSERT_TRUE(
            threads_test::WaitUntil([this] { return platform_->UsbDevices().Devices(0x7E11).size() == 1; }));
        // The second case starts from the microphone back in run-time mode.
        tidemix::test::SettleObservers(*platform_);
        update_->FinishFirmwareUpdate();
    }
}

// A device that leaves at any block, or never comes back, ends the update in
// state 6 without a hang; FinishFirmwareUpdate brings mixing back once the
// microphone is there again.
TEST_F(FirmwareUpdateOfAReed3, ADeviceThatGoesAwayFailsTheUpdateAndMixingCanResume)
{
    const std::string path = MakeDfuFile(folder_, "three-blocks.dfu", 150, 0x7E11, 0x0B23);
    struct Case
    {
        int unplugAtBlock;
        bool staysAwayAfterDetach;
    };
    for (const Case& c : {Case{0, false}, Case{1, false}, Case{2, false}, Case{-1, true}})
    {
        SCOPED_TRACE(testing::Message()
                     << "unplug at " << c.unplugAtBlock << ", away " << c.staysAwayAfterDetach);
        auto spec = SimUsbDeviceSpec::Microphone(0x0B23, "FW1");
        spec.dfuFaults.unplugAtBlock = c.unplugAtBlock;
        spec.dfuFaults.staysAwayAfterDetach = c.staysAwayAfterDetach;
        Replug(spec);
        ASSERT_TRUE(Start(path).Succeeded());
        ASSERT_TRUE(WaitForEnd()) << "the update hung";
        EXPECT_EQ(update_->GetDfuState(), kDfuStateFailed);
        EXPECT_FALSE(manager_->IsMixing());

        platform_->UsbDevices().Plug(SimUsbDeviceSpec::Microphone(0x0B23, "FW1"), microphone_.location);
        tidemix::test::SettleObservers(*platform_);
        update_->FinishFirmwareUpdate();
        EXPECT_TRUE(manager_->IsMixing());
    }
}

// A file that doesn't fit the microphone is refused with mixing untouched,
// no request sent and the state at 6; so is a device already in DFU mode
// updated without a detach.
TEST_F(FirmwareUpdateOfAReed3, BadFilesAreRefusedBeforeAnythingStops)
{
    const auto valid = tidemix::test::ReadAll(MakeDfuFile(folder_, "valid.dfu", 100, 0x7E11, 0x0B23));
    auto damaged = valid;
    damaged[20] ^= 0x40;
    tidemix::test::WriteAll(folder_.Child("damaged.dfu"), damaged);
    struct Case
    {
        std::string path;
        int code;
    };
    for (const Case& c :
         {Case{MakeDfuFile(folder_, "vendor.dfu", 100, 0x1234, 0x0B23), kDRAVResultErrInvalidFormat},
          Case{MakeDfuFile(folder_, "model.dfu", 100, 0x7E11, 0x0B25), kDRAVResultErrInvalidFormat},
          Case{folder_.Child("damaged.dfu"), kDRAVResultErrInvalidFormat},
          Case{folder_.Child("missing.dfu"), kDRAVResultErrCouldNotOpenFile}})
    {
        SCOPED_TRACE(c.path);
        platform_->UsbDevices().ClearRequests();
        EXPECT_EQ(Start(c.path).GetCode(), c.code);
        EXPECT_EQ(update_->GetDfuState(), kDfuStateFailed);
        EXPECT_TRUE(manager_->IsMixing());
        EXPECT_TRUE(platform_->UsbDevices().Requests().empty());
    }
}

TEST_F(FirmwareUpdateOfAReed3, AMicrophoneInDfuModeSkipsTheDetach)
{
    manager_->StopMixing();
    Replug(SimUsbDeviceSpec::Microphone(0x0B24, "FW1"));
    ASSERT_NE(manager_->GetFirstDFUMicrophone().lock(), nullptr);
    platform_->UsbDevices().ClearRequests();

    ASSERT_TRUE(Start(MakeDfuFile(folder_, "update.dfu", 100, 0x7E11, 0x0B24, 0x121)).Succeeded());
    ASSERT_TRUE(WaitForEnd());
    clock_->Probe();
    EXPECT_EQ(clock_->States(), (std::vector<int32_t>{1, 3, 4, 5}));
    for (const auto& request : platform_->UsbDevices().Requests())
    {
        EXPECT_FALSE(request.setup.requestType == 0x21 && request.setup.request == 0) << "a detach was sent";
    }
    const auto device = platform_->UsbDevices().Devices(0x7E11);
    ASSERT_EQ(device.size(), 1u);
    EXPECT_EQ(device[0].release, 0x121);
}

}  // namespace
