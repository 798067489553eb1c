// The main microphone's controls over a simulated microphone: what reaches
// the device, what is gated by firmware and model, and how an unplugged
// microphone fails softly.

#include <gtest/gtest.h>

#include "control/DRMXMicrophone.h"
#include "observers/DRMXDeviceObserverUSB.h"
#include "platform/Platform.h"
#include "platform/sim/SimPlatform.h"
#include "support/ObserverTestSupport.h"

namespace
{
using namespace DRMX_Settings;
using tidemix::platform::Platform;
using tidemix::platform::sim::SimPlatform;
using tidemix::platform::sim::SimUsbBlock;

class MicrophoneUnit : public ::testing::Test
{
protected:
    void SetUp() override
    {
        platform_ = std::make_shared<SimPlatform>();
        Platform::Use(platform_);
        DRMXDeviceObserverUSB::MakeShared();
        DRMXDeviceObserverUSB::Shared()->Init();
    }
    void TearDown() override { Platform::Use(nullptr); }

    // A microphone object for a plugged device of the product, with firmware.
    std::shared_ptr<DRMXMicrophone> Plug(uint16_t productId, int64_t firmware)
    {
        const auto device =
            tidemix::test::PlugSimMicrophone(*platform_, productId, "SER" + std::to_string(productId));
        tidemix::test::SettleObservers(*platform_);
        location_ = device.location;
        DRMXInputSelector selector;
        selector.SetName("Reed");
        selector.SetHardwareId("usb-Drovane_Reed_SER" + std::to_string(productId) + "-00");
        selector.SetFWVersion(firmware);
        auto microphone = std::make_shared<DRMXMicrophone>("Reed", GetTypeById(productId));
        microphone->SetSelector(selector);
        microphone->SetHardwareId(selector.GetHardwareId());
        return microphone;
    }

    std::vector<SimUsbBlock> WrittenBlocks()
    {
        std::vector<SimUsbBlock> blocks;
        for (const auto& request : platform_->UsbDevices().Requests())
        {
            if (request.locationId == location_ && request.dataOut.size() == 16)
            {
                SimUsbBlock block;
                std::copy(request.dataOut.begin(), request.dataOut.end(), block.begin());
                blocks.push_back(block);
            }
        }
        return blocks;
    }

    std::shared_ptr<SimPlatform> platform_;
    uint32_t location_ = 0;
};

TEST_F(MicrophoneUnit, AnUnpluggedMicrophoneFailsSoftlyAndANewOneWorksAtOnce)
{
    auto microphone = Plug(0x0B23, 0x110);
    ASSERT_TRUE(microphone->IsMicrophoneConnected());
    platform_->UsbDevices().Unplug(location_);
    tidemix::test::SettleObservers(*platform_);
    platform_->UsbDevices().ClearRequests();

    EXPECT_FALSE(microphone->IsMicrophoneConnected());
    EXPECT_EQ(microphone->GetMicrophoneGain(), 0.0);
    EXPECT_TRUE(microphone->SetMicrophoneGain(0.5).Succeeded());
    EXPECT_FALSE(microphone->HasMicrophoneVolumeSelect());
    int bytes = 0;
    EXPECT_EQ(microphone->ReadMicrophoneConfiguration(bytes).GetCode(), kDRAVResultErrNotInitialized);
    EXPECT_EQ(microphone->UpdateConfigurationBySettings(DRMXMicrophoneSettings(), true).GetCode(),
              kDRAVResultErrNotInitialized);
    EXPECT_EQ(microphone->GetMicrophoneDefaultName(), "Reed");
    EXPECT_TRUE(platform_->UsbDevices().Requests().empty());

    // Plugged in again (at another place): the same object works, nothing rebuilt.
    tidemix::test::PlugSimMicrophone(*platform_, 0x0B23, "SER" + std::to_string(0x0B23));
    tidemix::test::SettleObservers(*platform_);
    EXPECT_TRUE(microphone->IsMicrophoneConnected());
    EXPECT_TRUE(microphone->ReadMicrophoneConfiguration(bytes).Succeeded());
    EXPECT_EQ(bytes, 16);
}

// The gain lock needs firmware 1.1.0; the LED flip also needs a Reed 3; a
// Reed Pro has neither.
TEST_F(MicrophoneUnit, LocksDependOnFirmwareAndModel)
{
    struct Case
    {
        uint16_t productId;
        int64_t firmware;
        bool gainLock;
        bool ledFlip;
    };
    for (const Case& c : {Case{0x0B23, 0x10F, false, false}, Case{0x0B23, 0x110, true, true},
                          Case{0x0B21, 0x110, true, false}, Case{0x0B25, 0x120, false, false}})
    {
        SCOPED_TRACE(testing::Message() << std::hex << c.productId << " " << c.firmware);
        auto microphone = Plug(c.productId, c.firmware);
        EXPECT_EQ(microphone->HasMicrophoneGainLock(), c.gainLock);
        EXPECT_EQ(microphone->HasMicrophoneLEDFlip(), c.ledFlip);
        platform_->UsbDevices().Unplug(location_);
        tidemix::test::SettleObservers(*platform_);
    }
}

TEST_F(MicrophoneUnit, SettingsReachTheDeviceInOneWriteAndLevelsOnlyWhenAsked)
{
    auto microphone = Plug(0x0B23, 0x110);
    const double gainBefore = microphone->GetMicrophoneGain();
    const double volumeBefore = microphone->GetMicrophoneOutputVolume();
    DRMXMicrophoneSettings settings;
    settings.microphoneType = kMicrophoneTypeReed3;
    settings.gain = gainBefore > 0.5 ? 0.2 : 0.8;
    settings.outputVolume = volumeBefore > 0.5 ? 0.1 : 0.9;
    settings.clipGuard = true;
    settings.lowCut = true;

    for (const bool applyLevels : {false, true})
    {
        SCOPED_TRACE(applyLevels);
        platform_->UsbDevices().ClearRequests();
        ASSERT_TRUE(microphone->UpdateConfigurationBySettings(settings, applyLevels).Succeeded());
        EXPECT_EQ(WrittenBlocks().size(), 1u) << "one write carries every field";
        EXPECT_TRUE(microphone->GetMicrophoneClipGuard());
        EXPECT_TRUE(microphone->GetMicrophoneLowCut());
        EXPECT_EQ(microphone->GetMicrophoneGain() == gainBefore, !applyLevels);
        EXPECT_EQ(microphone->GetMicrophoneOutputVolume() == volumeBefore, !applyLevels);
    }

    // A name of the user's own never reaches the device.
    platform_->UsbDevices().ClearRequests();
    microphone->SetMicrophoneCustomName("Studio");
    EXPECT_EQ(microphone->GetMicrophoneCustomName(), "Studio");
    EXPECT_TRUE(platform_->UsbDevices().Requests().empty());

    // Two gains in a row, no read between: two blocks that differ in the gain only.
    microphone->SetMicrophoneGain(0.25);
    microphone->SetMicrophoneGain(0.75);
    const auto blocks = WrittenBlocks();
    ASSERT_EQ(blocks.size(), 2u);
    int differing = 0;
    for (size_t i = 0; i < blocks[0].size(); ++i)
    {
        differing += blocks[0][i] != blocks[1][i] ? 1 : 0;
    }
    EXPECT_EQ(differing, 1);
    EXPECT_NEAR(microphone->GetMicrophoneGain(), 0.75, 0.01);
    EXPECT_EQ(platform_->UsbDevices().Block(location_).value(), blocks[1]);
}

}  // namespace
