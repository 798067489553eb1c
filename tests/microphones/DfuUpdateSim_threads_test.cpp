// A firmware update's requests against the simulated microphone, as the
// update worker makes them: detach, the DFU device at the same location,
// blocks with status polls, the end mark, manifestation and the return.
#include <gtest/gtest.h>

#include <vector>

#include "microphones/IOKitDfu.h"
#include "support/SimUsbMicrophoneRig.h"

namespace
{
using tidemix::platform::sim::SimDfuFaults;
using tidemix::platform::sim::SimUsbBus;
using tidemix::platform::sim::SimUsbDeviceSpec;
using tidemix::test::SimUsbMicrophoneRig;

constexpr uint16_t kVendor = 0x7E11;

// 65 bytes, version 1.3.5 in bytes 6, 8 and 10.
std::vector<uint8_t> Image()
{
    std::vector<uint8_t> image(65);
    for (size_t i = 0; i < image.size(); ++i)
    {
        image[i] = static_cast<uint8_t>(i * 7 + 1);
    }
    image[6] = 0x21;
    image[8] = 0x13;
    image[10] = 0x05;
    return image;
}

IOKit::DeviceInterface OpenAt(uint16_t product, uint32_t location)
{
    auto ref = IOKit::GetDeviceRefAtLocation(kVendor, product, location);
    return ref ? IOKit::GetDeviceInterfaceRefForDeviceRefAndOpenDevice(*ref, true) : nullptr;
}

std::optional<uint16_t> ProductAt(SimUsbBus& bus, uint32_t location)
{
    for (const auto& device : bus.Devices(kVendor))
    {
        if (device.locationId == location)
        {
            return device.productId;
        }
    }
    return std::nullopt;
}

// What the worker sees of one block: the download's status, then the
// states of the polls up to dfuDNLOAD-IDLE or dfuERROR.
struct BlockOutcome
{
    int32_t download = 0;
    std::vector<uint32_t> states;
    IOKit::DFUStatus last;
};

BlockOutcome SendBlock(tidemix::platform::UsbDeviceHandle* device, uint16_t interface, uint16_t block,
                       const uint8_t* data, uint32_t length)
{
    BlockOutcome outcome;
    uint32_t moved = length;
    outcome.download = IOKit::DFUDownload(device, interface, block, moved, data);
    if (outcome.download != IOKit::kStatusSuccess)
    {
        IOKit::DFUGetStatus(device, interface, outcome.last);
        return outcome;
    }
    EXPECT_EQ(moved, length);
    for (int polls = 0; polls < 20; ++polls)
    {
        IOKit::DFUGetStatus(device, interface, outcome.last);
        outcome.states.push_back(outcome.last.state);
        if (outcome.last.state == IOKit::kDFUStateDownloadIdle || outcome.last.state == IOKit::kDFUStateError)
        {
            break;
        }
    }
    return outcome;
}

// Up to `count` blocks of the image, in 64-byte pieces; the outcome of the last one sent.
BlockOutcome SendBlocks(tidemix::platform::UsbDeviceHandle* device, uint16_t interface,
                        const std::vector<uint8_t>& image, int count)
{
    BlockOutcome outcome;
    for (int block = 0; block < count && static_cast<size_t>(block) * 64 < image.size(); ++block)
    {
        const size_t offset = static_cast<size_t>(block) * 64;
        const uint32_t length = static_cast<uint32_t>(std::min<size_t>(64, image.size() - offset));
        outcome = SendBlock(device, interface, static_cast<uint16_t>(block), image.data() + offset, length);
        if (outcome.download != IOKit::kStatusSuccess || outcome.last.state != IOKit::kDFUStateDownloadIdle)
        {
            break;
        }
    }
    return outcome;
}

TEST(DfuUpdateSim, FaultsDuringTheDownloadAsTheWorkerSeesThem)
{
    struct Case
    {
        const char* name;
        SimDfuFaults faults;
        int32_t download;  // of the faulty block
        uint32_t state;    // the status read after it
        uint32_t status;
    };
    // An unplug during the download, a device that stays away after the
    // detach or returns late are the firmware update's own cases
    // (DRMXFirmwareUpdate_threads_test); stalls and error states are not.
    SimDfuFaults stall, error;
    stall.stallAtBlock = 1;
    error.errorAtBlock = 1;
    error.errorStatus = 0x06;  // errPROG
    const Case cases[] = {
        {"stall", stall, IOKit::kStatusPipeStalled, 10, 0x0F},
        {"error state", error, IOKit::kStatusSuccess, 10, 0x06},
    };
    std::vector<uint8_t> image(200, 0xA5);
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        SimUsbMicrophoneRig rig;
        SimUsbDeviceSpec spec = SimUsbDeviceSpec::Microphone(0x0B26, "P");
        spec.dfuFaults = c.faults;
        const uint32_t location = rig.Sim().Plug(spec);
        auto dfu = OpenAt(0x0B26, location);
        ASSERT_NE(dfu, nullptr);

        const BlockOutcome outcome = SendBlocks(dfu.get(), 0, image, 4);
        EXPECT_EQ(outcome.download, c.download);
        EXPECT_EQ(outcome.last.state, c.state);
        EXPECT_EQ(outcome.last.status, c.status);
        rig.Sim().FlushNotifications();
        EXPECT_TRUE(ProductAt(rig.Sim(), location).has_value());
        const auto log = rig.Sim().Requests();
        const auto downloads = std::count_if(log.begin(), log.end(),
                                             [](const auto& request) { return request.setup.request == 1; });
        EXPECT_EQ(downloads, 2) << "block 0, then the faulty block 1, and nothing after it";
    }
}

TEST(DfuUpdateSim, OutOfOrderBlockClearStatusAbortAndUpload)
{
    SimUsbMicrophoneRig rig;
    SimUsbDeviceSpec spec = SimUsbDeviceSpec::Microphone(0x0B22, "U");
    spec.firmware = Image();
    const uint32_t location = rig.Sim().Plug(spec);
    auto dfu = OpenAt(0x0B22, location);
    ASSERT_NE(dfu, nullptr);

    // Block 1 before block 0: refused, and the device says why.
    const uint8_t data[8] = {};
    uint32_t length = sizeof(data);
    EXPECT_EQ(IOKit::DFUDownload(dfu.get(), 0, 1, length, data), IOKit::kStatusPipeStalled);
    IOKit::DFUStatus status;
    IOKit::DFUGetStatus(dfu.get(), 0, status);
    EXPECT_EQ(status.state, IOKit::kDFUStateError);
    EXPECT_EQ(status.status, 0x08u);  // errADDRESS
    EXPECT_EQ(IOKit::DFUClearStatus(dfu.get(), 0), IOKit::kStatusSuccess);
    uint8_t state = 0;
    EXPECT_EQ(IOKit::DFUGetState(dfu.get(), 0, state), IOKit::kStatusSuccess);
    EXPECT_EQ(state, IOKit::kDFUStateIdle);

    // A block taken, then abandoned.
    EXPECT_EQ(SendBlock(dfu.get(), 0, 0, data, sizeof(data)).last.state, IOKit::kDFUStateDownloadIdle);
    EXPECT_EQ(IOKit::DFUAbort(dfu.get(), 0), IOKit::kStatusSuccess);
    EXPECT_EQ(IOKit::DFUGetState(dfu.get(), 0, state), IOKit::kStatusSuccess);
    EXPECT_EQ(state, IOKit::kDFUStateIdle);

    // The upload reads the device's firmware; a short block ends it.
    std::vector<uint8_t> read;
    for (uint16_t block = 0; block < 4; ++block)
    {
        uint8_t piece[64];
        uint32_t got = sizeof(piece);
        ASSERT_EQ(IOKit::DFUUpload(dfu.get(), 0, block, got, piece), IOKit::kStatusSuccess);
        read.insert(read.end(), piece, piece + got);
        if (got < sizeof(piece))
        {
            break;
        }
    }
    EXPECT_EQ(read, spec.firmware);
    EXPECT_EQ(IOKit::DFUGetState(dfu.get(), 0, state), IOKit::kStatusSuccess);
    EXPECT_EQ(state, IOKit::kDFUStateIdle);
}

}  // namespace
