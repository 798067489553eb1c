#include "support/UsbMicrophoneTable.h"

#include <gtest/gtest.h>

#include <memory>

#include "microphones/DRMXMicrophoneHelper.h"
#include "microphones/DRMXMicrophoneReed.h"
#include "microphones/DRMXMicrophoneReedPro.h"
#include "microphones/IOKitUsb.h"

namespace tidemix::test::UsbMicrophoneTable
{
namespace
{
using Block = UsbMicrophoneRig::Block;
using Fault = UsbMicrophoneRig::Fault;

constexpr uint16_t kVendor = 0x7E11;
constexpr uint16_t kRunTimeIds[] = {0x0B21, 0x0B23, 0x0B25};

std::unique_ptr<DRMXMicrophoneInterface> MakeHelper(uint32_t location, uint16_t productId,
                                                    const std::string& serial)
{
    if (productId >= 0x0B25)
    {
        return std::make_unique<DRMXMicrophoneHelper<DRMXMicrophoneReedPro>>(location, kVendor, productId,
                                                                             serial);
    }
    return std::make_unique<DRMXMicrophoneHelper<DRMXMicrophoneReed>>(location, kVendor, productId, serial);
}

short Int16At(const Block& block, size_t offset)
{
    return static_cast<short>(block[offset] | (block[offset + 1] << 8));
}

// A block every byte of which differs from the zero block.
Block Patterned()
{
    Block block{};
    for (size_t i = 0; i < block.size(); ++i)
    {
        block[i] = static_cast<uint8_t>(0x31 + 7 * i);
    }
    return block;
}
}  // namespace

void SetAndReadBackOnEachModel(UsbMicrophoneRig& rig)
{
    for (uint16_t productId : kRunTimeIds)
    {
        SCOPED_TRACE(productId);
        Block initial{};
        initial[13] = 0xA5;  // carried, never written, on a Reed Pro
        initial[14] = 0x5A;
        initial[15] = 0x77;
        const uint32_t location = rig.Plug(productId, "SN" + std::to_string(productId), initial);
        ASSERT_NE(location, 0u);
        auto helper = MakeHelper(location, productId, "SN");
        ASSERT_TRUE(helper->IsMicrophoneConnected());
        int bytes = -1;
        ASSERT_TRUE(helper->ReadMicrophoneConfiguration(bytes).Succeeded());
        EXPECT_EQ(bytes, 16);

        helper->SetMicrophoneGain(0.5);
        helper->SetMicrophoneMute(true);
        helper->SetMicrophoneDirectMonitorVolume(0.0);
        helper->SetMicrophoneOutputVolume(1.0);
        helper->SetMicrophoneAllLEDOff(true);
        helper->SetMicrophoneLEDFlip(true);
        helper->SetMicrophoneGainLock(true);
        EXPECT_TRUE(helper->WriteMicrophoneConfiguration().Succeeded());

        const Block device = rig.DeviceBlock(location);
        EXPECT_EQ(Int16At(device, 0), 5120);
        EXPECT_EQ(device[4], 1);
        EXPECT_EQ(Int16At(device, 7), 0);
        EXPECT_EQ(Int16At(device, 10), 25600);
        const bool pro = productId == 0x0B25;
        EXPECT_EQ(device[13], pro ? 0xA5 : 1);
        EXPECT_EQ(device[14], pro ? 0x5A : 1);
        EXPECT_EQ(device[15], pro ? 0x77 : 1);

        // A second control object reads the same from the device.
        auto reader = MakeHelper(location, productId, "SN");
        ASSERT_TRUE(reader->ReadMicrophoneConfiguration(bytes).Succeeded());
        EXPECT_EQ(reader->GetMicrophoneGain(), 0.5);
        EXPECT_TRUE(reader->GetMicrophoneMute());
        EXPECT_EQ(reader->GetMicrophoneDirectMonitorVolume(), 0.0);
        EXPECT_EQ(reader->GetMicrophoneOutputVolume(), 1.0);
        EXPECT_EQ(reader->GetMicrophoneAllLEDOff(), !pro);
        EXPECT_EQ(reader->GetMicrophoneLEDFlip(), !pro);
    }
}

void RequestsCarryTheExactFields(UsbMicrophoneRig& rig)
{
    for (uint16_t productId : kRunTimeIds)
    {
        SCOPED_TRACE(productId);
        const uint32_t location = rig.Plug(productId, "REQ", Patterned());
        ASSERT_NE(location, 0u);
        auto helper = MakeHelper(location, productId, "REQ");
        int bytes = 0;
        ASSERT_TRUE(helper->ReadMicrophoneConfiguration(bytes).Succeeded());
        helper->SetMicrophoneMute(false);
        ASSERT_TRUE(helper->WriteMicrophoneConfiguration().Succeeded());

        const bool pro = productId == 0x0B25;
        const auto requests = rig.BlockRequests(location);
        ASSERT_EQ(requests.size(), 2u);
        const auto& read = requests[0];
        const auto& write = requests[1];
        EXPECT_EQ(read.requestType, 0xA1);
        EXPECT_EQ(read.request, pro ? 0x03 : 0x85);
        EXPECT_EQ(write.requestType, 0x21);
        EXPECT_EQ(write.request, pro ? 0x03 : 0x05);
        for (const auto* request : {&read, &write})
        {
            EXPECT_EQ(request->value, 0);
            EXPECT_EQ(request->index, 0x3300);
            EXPECT_EQ(request->length, 16);
        }
        // The whole block goes back, with only the mute changed.
        Block expected = Patterned();
        expected[4] = 0;
        EXPECT_EQ(write.dataOut, std::vector<uint8_t>(expected.begin(), expected.end()));
    }
}

void StallAndTimeoutMoveNothing(UsbMicrophoneRig& rig)
{
    for (Fault fault : {Fault::Stall, Fault::Timeout})
    {
        SCOPED_TRACE(static_cast<int>(fault));
        const uint32_t location = rig.Plug(0x0B23, "STALL", Patterned());
        ASSERT_NE(location, 0u);
        auto helper = MakeHelper(location, 0x0B23, "STALL");
        rig.SetFault(location, fault);
        int bytes = -1;
        EXPECT_EQ(helper->ReadMicrophoneConfiguration(bytes), kDRAVResultOk);
        EXPECT_EQ(bytes, 0);
        EXPECT_EQ(helper->GetMicrophoneGain(), 0.0);  // the block stayed as it was: all zero
        helper->SetMicrophoneGain(1.0);
        EXPECT_EQ(helper->WriteMicrophoneConfiguration(), kDRAVResultOk);
        rig.SetFault(location, Fault::None);
        EXPECT_EQ(rig.DeviceBlock(location), Patterned());
        rig.Unplug(location);
    }
}

void ShortAndOverlongReplies(UsbMicrophoneRig& rig)
{
    const uint32_t location = rig.Plug(0x0B21, "SHORT", Patterned());
    ASSERT_NE(location, 0u);
    auto helper = MakeHelper(location, 0x0B21, "SHORT");
    helper->SetMicrophoneGainLock(true);  // byte 15, beyond a 12-byte reply
    int bytes = -1;
    rig.SetFault(location, Fault::ShortReply);
    EXPECT_EQ(helper->ReadMicrophoneConfiguration(bytes), kDRAVResultOk);
    EXPECT_EQ(bytes, 12);
    EXPECT_EQ(helper->GetMicrophoneGain(), Int16At(Patterned(), 0) / 10240.0f);
    EXPECT_TRUE(helper->GetMicrophoneGainLock());
    EXPECT_FALSE(helper->GetMicrophoneLEDFlip());  // the tail keeps its former content

    rig.SetFault(location, Fault::OverlongReply);
    helper->SetMicrophoneGain(0.25);
    EXPECT_EQ(helper->ReadMicrophoneConfiguration(bytes), kDRAVResultOk);
    EXPECT_EQ(bytes, 0);
    EXPECT_EQ(helper->GetMicrophoneGain(), 0.25);
}

void UnpluggedDeviceIsNotInitialized(UsbMicrophoneRig& rig)
{
    // Unplugged between two operations, and during a request.
    for (bool duringRequest : {false, true})
    {
        SCOPED_TRACE(duringRequest);
        const uint32_t location = rig.Plug(0x0B25, "GONE", Patterned());
        ASSERT_NE(location, 0u);
        auto helper = MakeHelper(location, 0x0B25, "GONE");
        ASSERT_TRUE(helper->IsMicrophoneConnected());
        if (duringRequest)
        {
            rig.SetFault(location, Fault::UnplugOnRequest);
        }
        else
        {
            rig.Unplug(location);
        }
        int bytes = -1;
        EXPECT_EQ(helper->ReadMicrophoneConfiguration(bytes), kDRAVResultErrNotInitialized);
        EXPECT_EQ(bytes, 0);
        EXPECT_EQ(helper->WriteMicrophoneConfiguration(), kDRAVResultErrNotInitialized);
        EXPECT_FALSE(helper->IsMicrophoneConnected());
        helper.reset();  // closes a handle whose device is gone
    }
    // Never found at all: no device to open.
    auto never = MakeHelper(0x7F000000, 0x0B21, "");
    int bytes = -1;
    EXPECT_EQ(never->ReadMicrophoneConfiguration(bytes), kDRAVResultErrNotInitialized);
    EXPECT_FALSE(never->IsMicrophoneConnected());
}

void EnumerationAndSerialNumber(UsbMicrophoneRig& rig)
{
    const uint32_t reed = rig.Plug(0x0B23, "RE3-0042", Block{});
    const uint32_t dfu = rig.Plug(0x0B26, "", Block{});
    ASSERT_NE(reed, 0u);
    ASSERT_NE(dfu, 0u);
    std::vector<IOKit::Device> seen;
    EXPECT_EQ(IOKit::EnumerateDevices(rig.Bus(), kVendor,
                                      [&](const IOKit::Device& device)
                                      {
                                          seen.push_back(device);
                                          return false;
                                      }),
              IOKit::kStatusSuccess);
    ASSERT_EQ(seen.size(), 2u);
    for (const IOKit::Device& device : seen)
    {
        EXPECT_EQ(device.vendorId, kVendor);
        if (device.locationId == reed)
        {
            EXPECT_EQ(device.productId, 0x0B23);
            EXPECT_EQ(device.serialNumber, "RE3-0042");
        }
        else
        {
            EXPECT_EQ(device.locationId, dfu);
            EXPECT_EQ(device.productId, 0x0B26);
            EXPECT_EQ(device.serialNumber, "");
        }
    }
    // A true result ends the walk.
    int calls = 0;
    IOKit::EnumerateDevices(rig.Bus(), kVendor, [&](const IOKit::Device&) { return ++calls == 1; });
    EXPECT_EQ(calls, 1);

    // A DFU-mode microphone is found but not configured here.
    DRMXMicrophoneHelper<DRMXMicrophoneReedPro> dfuHelper(dfu, kVendor, 0x0B26, "");
    EXPECT_TRUE(dfuHelper.IsDFUInterface());
    EXPECT_TRUE(dfuHelper.IsMicrophoneConnected());

    DRMXMicrophoneHelper<DRMXMicrophoneReed> helper(reed, kVendor, 0x0B23, "RE3-0042");
    std::string serial;
    ASSERT_NE(helper.GetUSBDeviceInterface(), nullptr);
    const uint8_t serialIndex = helper.GetUSBDeviceInterface()->Info().serialNumberIndex;
    ASSERT_NE(serialIndex, 0);
    EXPECT_EQ(IOKit::GetUSBStringDescriptor(helper.GetUSBDeviceInterface(), serialIndex, serial),
              IOKit::kStatusSuccess);
    EXPECT_EQ(serial, "RE3-0042");
    EXPECT_NE(IOKit::GetUSBStringDescriptor(helper.GetUSBDeviceInterface(), 9, serial),
              IOKit::kStatusSuccess);
    EXPECT_EQ(serial, "");
}

}  // namespace tidemix::test::UsbMicrophoneTable
