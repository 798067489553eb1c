// A firmware update's requests against the simulated microphone, as the
// update worker makes them: detach, the DFU device at the same location,
// blocks with status polls, the end mark, manifestation and the return.
#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

#include "microphones/IOKitDfu.h"
#include "support/SimUsbMicrophoneRig.h"

namespace
{
using tidemix::platform::UsbEvent;
using tidemix::platform::sim::SimDfuFaults;
using tidemix::platform::sim::SimDfuTiming;
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
        bool stillThere;
    };
    SimDfuFaults stall, error, unplug;
    stall.stallAtBlock = 1;
    error.errorAtBlock = 1;
    error.errorStatus = 0x06;  // errPROG
    unplug.unplugAtBlock = 1;
    const Case cases[] = {
        {"stall", stall, IOKit::kStatusPipeStalled, 10, 0x0F, true},
        {"error state", error, IOKit::kStatusSuccess, 10, 0x06, true},
        {"unplug", unplug, IOKit::kStatusNoDevice, 10, 14, false},
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
        EXPECT_EQ(ProductAt(rig.Sim(), location).has_value(), c.stillThere);
        const auto log = rig.Sim().Requests();
        const auto downloads = std::count_if(log.begin(), log.end(),
                                             [](const auto& request) { return request.setup.request == 1; });
        EXPECT_EQ(downloads, 2) << "block 0, then the faulty block 1, and nothing after it";
    }
}

TEST(DfuUpdateSim, DevicesThatStayAwayOrComeBackLate)
{
    SimUsbMicrophoneRig rig;
    SimUsbBus& bus = rig.Sim();

    // Never back after the detach.
    SimUsbDeviceSpec gone = SimUsbDeviceSpec::Microphone(0x0B21, "gone");
    gone.dfuFaults.staysAwayAfterDetach = true;
    const uint32_t goneAt = bus.Plug(gone);
    auto mic = OpenAt(0x0B21, goneAt);
    ASSERT_EQ(IOKit::DFUDetach(mic.get(), 2, 5000), IOKit::kStatusSuccess);
    bus.FlushNotifications();
    bus.FlushNotifications();
    EXPECT_FALSE(ProductAt(bus, goneAt).has_value());

    // Never back after the manifestation, though the image was taken whole.
    SimUsbDeviceSpec lost = SimUsbDeviceSpec::Microphone(0x0B22, "lost");
    lost.dfuFaults.staysAwayAfterManifest = true;
    lost.dfuTiming.manifestPolls = 0;
    const uint32_t lostAt = bus.Plug(lost);
    auto dfu = OpenAt(0x0B22, lostAt);
    const std::vector<uint8_t> image = Image();
    EXPECT_EQ(SendBlocks(dfu.get(), 0, image, 2).last.state, IOKit::kDFUStateDownloadIdle);
    uint32_t end = 0;
    EXPECT_EQ(IOKit::DFUDownload(dfu.get(), 0, 2, end, nullptr), IOKit::kStatusSuccess);
    IOKit::DFUStatus status;
    IOKit::DFUGetStatus(dfu.get(), 0, status);
    EXPECT_EQ(status.state, IOKit::kDFUStateIdle);
    bus.FlushNotifications();
    bus.FlushNotifications();
    EXPECT_FALSE(ProductAt(bus, lostAt).has_value());
    EXPECT_EQ(bus.ManifestedImages(lostAt), std::vector<std::vector<uint8_t>>{image});

    // Held until the test lets it come back.
    SimUsbDeviceSpec held = SimUsbDeviceSpec::Microphone(0x0B25, "held");
    held.dfuTiming.returnDelay = SimDfuTiming::kHeld;
    const uint32_t heldAt = bus.Plug(held);
    mic = OpenAt(0x0B25, heldAt);
    ASSERT_EQ(IOKit::DFUDetach(mic.get(), 2, 5000), IOKit::kStatusSuccess);
    bus.FlushNotifications();
    bus.FlushNotifications();
    EXPECT_FALSE(ProductAt(bus, heldAt).has_value());
    bus.ReturnHeldDevices();
    EXPECT_EQ(ProductAt(bus, heldAt), 0x0B26);

    // Back on the bus's timer after a delay.
    SimUsbDeviceSpec late = SimUsbDeviceSpec::Microphone(0x0B23, "late");
    late.dfuTiming.returnDelay = std::chrono::milliseconds(20);
    const uint32_t lateAt = bus.Plug(late);
    mic = OpenAt(0x0B23, lateAt);
    ASSERT_EQ(IOKit::DFUDetach(mic.get(), 2, 5000), IOKit::kStatusSuccess);
    for (int waits = 0; waits < 500 && !ProductAt(bus, lateAt); ++waits)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(ProductAt(bus, lateAt), 0x0B24);
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
