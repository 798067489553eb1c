// The shared USB table through libusb, on microphones that a umockdev test
// bed describes in sysfs and answers in an ioctl handler (usbdevfs URBs).
// Runs under umockdev's preload (ctest starts it through umockdev-wrapper).
#include <gtest/gtest.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <umockdev.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

#include "microphones/IOKitDfu.h"
#include "platform/CountingProcessActivity.h"
#include "platform/EmptyAudioSystem.h"
#include "platform/Platform.h"
#include "platform/UsbStringDescriptor.h"
#include "platform/linux/LibUsbBus.h"
#include "support/ThreadsTestSupport.h"
#include "support/UsbMicrophoneTable.h"

namespace
{
using tidemix::test::UsbMicrophoneRig;

// A platform with nothing but the bus under test.
class UsbOnlyPlatform : public tidemix::platform::Platform
{
public:
    explicit UsbOnlyPlatform(std::unique_ptr<tidemix::platform::UsbBus> bus) : bus_(std::move(bus)) {}
    std::string Name() const override { return "usb-test"; }
    tidemix::platform::AudioSystem& Audio() override { return audio_; }
    tidemix::platform::ProcessActivity& Activity() override { return activity_; }
    tidemix::platform::UsbBus& Usb() override { return *bus_; }

private:
    std::unique_ptr<tidemix::platform::UsbBus> bus_;
    tidemix::platform::EmptyAudioSystem audio_;
    tidemix::platform::CountingProcessActivity activity_;
};

// One simulated microphone behind a usbdevfs node.
struct MockMicrophone
{
    uint16_t productId = 0;
    std::string serial;
    UsbMicrophoneRig::Block block{};
    UsbMicrophoneRig::Fault fault = UsbMicrophoneRig::Fault::None;
    bool unplugged = false;
    uint8_t dfuState = 0;  // appIDLE in run-time mode, dfuIDLE in DFU mode
    uint32_t location = 0;
    std::string syspath;
    std::vector<UsbMicrophoneRig::Request> requests;
};

// The URBs of one open file of a device node, waiting to be reaped.
struct OpenFile
{
    std::deque<UMockdevIoctlData*> reapable;  // completed
    std::vector<UMockdevIoctlData*> stuck;    // never completing (a timeout) until discarded
};

std::vector<uint8_t> Descriptors(uint16_t productId, const std::string& serial)
{
    const bool dfu = productId % 2 == 0;
    const auto lo = static_cast<uint8_t>(productId & 0xFF), hi = static_cast<uint8_t>(productId >> 8);
    const auto serialIndex = static_cast<uint8_t>(serial.empty() ? 0 : 3);
    // clang-format off
    std::vector<uint8_t> d = {18, 1, 0x00, 0x02, 0, 0, 0, 64, 0x11, 0x7E, lo, hi, 0x10, 0x01, 1, 2, serialIndex, 1};
    // clang-format on
    const uint8_t interfaces = dfu ? 1 : 3;
    const uint16_t total = 9 + 9 * interfaces;
    const std::vector<uint8_t> config = {
        9,    2, static_cast<uint8_t>(total & 0xFF), static_cast<uint8_t>(total >> 8), interfaces, 1, 0,
        0x80, 50};
    d.insert(d.end(), config.begin(), config.end());
    const uint8_t classes[3][2] = {{0x01, 0x01}, {0x01, 0x02}, {0xFE, 0x01}};
    for (uint8_t i = 0; i < interfaces; ++i)
    {
        const auto* kind = dfu ? classes[2] : classes[i];
        const std::vector<uint8_t> interface = {9, 4, i, 0, 0, kind[0], kind[1], 0, 0};
        d.insert(d.end(), interface.begin(), interface.end());
    }
    return d;
}

class UmockdevUsbMicrophoneRig : public UsbMicrophoneRig
{
public:
    UmockdevUsbMicrophoneRig() : testbed_(umockdev_testbed_new()), handler_(umockdev_ioctl_base_new())
    {
        g_signal_connect(handler_, "handle-ioctl", G_CALLBACK(&UmockdevUsbMicrophoneRig::OnIoctl), this);
        std::string whyNot;
        auto bus = tidemix::platform::linuxos::LibUsbBus::Create(&whyNot);
        EXPECT_TRUE(bus) << whyNot;
        bus_ = bus.get();
        platform_ = std::make_shared<UsbOnlyPlatform>(std::move(bus));
        tidemix::platform::Platform::Use(platform_);
    }

    ~UmockdevUsbMicrophoneRig() override
    {
        tidemix::platform::Platform::Use(nullptr);
        platform_.reset();
        std::lock_guard lock(mutex_);
        for (auto& [client, file] : files_)
        {
            for (auto* urb : file.reapable)
            {
                g_object_unref(urb);
            }
            for (auto* urb : file.stuck)
            {
                g_object_unref(urb);
            }
        }
        g_object_unref(handler_);
        g_object_unref(testbed_);
    }

    tidemix::platform::UsbBus& Bus() override { return *bus_; }

    uint32_t Plug(uint16_t productId, const std::string& serial, const Block& block) override
    {
        const int number = ++devices_;
        char devname[64];
        snprintf(devname, sizeof(devname), "/dev/bus/usb/001/%03d", number + 1);
        const std::string syspath = "/sys/devices/pci0000:00/usb1/1-" + std::to_string(number);
        // A device as udev describes it: the node, its properties, its sysfs
        // attributes and the binary descriptors libusb reads.
        std::string description =
            "P: " + syspath.substr(4) + "\nN: " + std::string(devname + 5) +
            "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: DEVNAME=" + devname +
            "\nE: BUSNUM=001\nE: DEVNUM=" + std::string(devname + 17) +
            "\nA: busnum=1\nA: devnum=" + std::to_string(number + 1) +
            "\nA: speed=480\nA: bConfigurationValue=1\nA: dev=189:" + std::to_string(number + 1) +
            "\nH: descriptors=";
        for (uint8_t byte : Descriptors(productId, serial))
        {
            char hex[3];
            snprintf(hex, sizeof(hex), "%02X", byte);
            description += hex;
        }
        description += "\n";
        GError* error = nullptr;
        if (!umockdev_testbed_add_from_string(testbed_, description.c_str(), &error))
        {
            ADD_FAILURE() << "add_from_string: " << (error ? error->message : "?");
            g_clear_error(&error);
            return 0;
        }
        const uint32_t location = (1u << 24) | (static_cast<uint32_t>(number) << 20);
        {
            std::lock_guard lock(mutex_);
            MockMicrophone& mic = microphones_[devname];
            mic.productId = productId;
            mic.serial = serial;
            mic.block = block;
            mic.location = location;
            mic.syspath = syspath;
            mic.dfuState = productId % 2 == 0 ? 2 : 0;
        }
        if (!umockdev_testbed_attach_ioctl(testbed_, devname, handler_, &error))
        {
            ADD_FAILURE() << "attach_ioctl: " << (error ? error->message : "?");
            g_clear_error(&error);
        }
        // libusb learns of the device from its hot-plug monitor.
        const bool listed = threads_test::WaitUntil(
            [&]
            {
                for (const auto& info : bus_->Devices(0x7E11))
                {
                    if (info.locationId == location)
                    {
                        return true;
                    }
                }
                return false;
            });
        EXPECT_TRUE(listed) << "libusb does not list " << syspath;
        return listed ? location : 0;
    }

    void Unplug(uint32_t location) override
    {
        std::string syspath;
        {
            std::lock_guard lock(mutex_);
            if (MockMicrophone* mic = At(location))
            {
                mic->unplugged = true;
                syspath = mic->syspath;
            }
        }
        if (!syspath.empty())
        {
            umockdev_testbed_uevent(testbed_, syspath.c_str(), "remove");
        }
    }

    Block DeviceBlock(uint32_t location) override
    {
        std::lock_guard lock(mutex_);
        return At(location) ? At(location)->block : Block{};
    }

    void SetFault(uint32_t location, Fault fault) override
    {
        std::lock_guard lock(mutex_);
        if (MockMicrophone* mic = At(location))
        {
            mic->fault = fault;
        }
    }

    std::vector<Request> BlockRequests(uint32_t location) override
    {
        std::lock_guard lock(mutex_);
        return At(location) ? At(location)->requests : std::vector<Request>{};
    }

private:
    // Called with the lock held.
    MockMicrophone* At(uint32_t location)
    {
        for (auto& [node, mic] : microphones_)
        {
            if (mic.location == location)
            {
                return &mic;
            }
        }
        return nullptr;
    }

    // The device's answer to one control URB: the URB's status and length.
    void Answer(MockMicrophone& mic, const Request& request, uint8_t* data, int& status, int& length)
    {
        const bool pro = mic.productId == 0x0B25;
        const bool dfu = mic.productId % 2 == 0;
        std::string reply;
        status = -EPIPE;
        length = 0;
        if (request.requestType == 0x80 && request.request == 6 && (request.value >> 8) == 3)
        {
            const uint8_t index = request.value & 0xFF;
            if (index == 0)
            {
                reply = std::string("\x04\x03\x09\x04", 4);
            }
            else if (index == 1 || index == 2 || (index == 3 && !mic.serial.empty()))
            {
                reply = tidemix::platform::EncodeUsbStringDescriptor(index == 1   ? "Drovane"
                                                                     : index == 2 ? "Reed"
                                                                                  : mic.serial);
            }
            else
            {
                return;
            }
        }
        else if (!dfu && request.value == 0 && request.index == 0x3300 && request.length == 16)
        {
            if (request.requestType == 0xA1 && request.request == (pro ? 0x03 : 0x85))
            {
                reply.assign(mic.block.begin(), mic.block.end());
            }
            else if (request.requestType == 0x21 && request.request == (pro ? 0x03 : 0x05))
            {
                std::copy(data, data + 16, mic.block.begin());
                status = 0;
                length = 16;
                return;
            }
            else
            {
                return;
            }
        }
        else if ((request.requestType & 0x7F) == 0x21 && request.index == (dfu ? 0 : 2))
        {
            // The DFU requests, only as far as the wire needs them: a device
            // can't leave and come back as another one here.
            if (request.requestType == 0x21 &&
                ((request.request == 0 && !dfu) || (request.request == 1 && dfu)))
            {
                mic.dfuState = request.request == 0 ? 1 : request.length > 0 ? 5 : 7;
                status = 0;
                length = request.length;
                return;
            }
            if (request.requestType != 0xA1 || request.request != 3)
            {
                return;
            }
            reply = std::string({0, 0x10, 0, 0, static_cast<char>(mic.dfuState), 0});
        }
        else
        {
            return;
        }
        size_t bytes = std::min<size_t>(reply.size(), request.length);
        if (mic.fault == Fault::OverlongReply)
        {
            status = -EOVERFLOW;
            return;
        }
        if (mic.fault == Fault::ShortReply)
        {
            bytes = std::min<size_t>(bytes, 12);
        }
        std::memcpy(data, reply.data(), bytes);
        status = 0;
        length = static_cast<int>(bytes);
    }

    // The argument is the URB's address; the URB holds the buffer's.
    void SubmitUrb(MockMicrophone& mic, OpenFile& file, UMockdevIoctlClient* client, UMockdevIoctlData* arg)
    {
        GError* error = nullptr;
        UMockdevIoctlData* urbData = umockdev_ioctl_data_resolve(arg, 0, sizeof(usbdevfs_urb), &error);
        if (urbData == nullptr)
        {
            g_clear_error(&error);
            umockdev_ioctl_client_complete(client, -1, EFAULT);
            return;
        }
        auto* urb = reinterpret_cast<usbdevfs_urb*>(urbData->data);
        UMockdevIoctlData* buffer = urb->type == USBDEVFS_URB_TYPE_CONTROL && urb->buffer_length >= 8
                                        ? umockdev_ioctl_data_resolve(urbData, offsetof(usbdevfs_urb, buffer),
                                                                      urb->buffer_length, &error)
                                        : nullptr;
        if (buffer == nullptr)
        {
            g_clear_error(&error);
            g_object_unref(urbData);
            umockdev_ioctl_client_complete(client, -1, EINVAL);
            return;
        }
        uint8_t* setup = buffer->data;
        Request request{setup[0],
                        setup[1],
                        static_cast<uint16_t>(setup[2] | (setup[3] << 8)),
                        static_cast<uint16_t>(setup[4] | (setup[5] << 8)),
                        static_cast<uint16_t>(setup[6] | (setup[7] << 8)),
                        {}};
        if ((request.requestType & 0x80) == 0)
        {
            request.dataOut.assign(setup + 8,
                                   setup + 8 + std::min<int>(request.length, urb->buffer_length - 8));
        }
        if (mic.fault == Fault::UnplugOnRequest)
        {
            mic.unplugged = true;
            g_object_unref(buffer);
            g_object_unref(urbData);
            umockdev_ioctl_client_complete(client, -1, ENODEV);
            return;
        }
        int status = 0;
        int length = 0;
        if (mic.fault == Fault::Stall)
        {
            status = -EPIPE;
        }
        else if (mic.fault != Fault::Timeout)
        {
            Answer(mic, request, setup + 8, status, length);
        }
        if ((request.requestType & 0x60) == 0x20)
        {
            mic.requests.push_back(request);
        }
        urb->status = status;
        urb->actual_length = length;
        // Kept (with its address) until it is reaped.
        (mic.fault == Fault::Timeout ? file.stuck.push_back(urbData) : file.reapable.push_back(urbData));
        umockdev_ioctl_client_complete(client, 0, 0);
        g_object_unref(buffer);
    }

    gboolean Handle(UMockdevIoctlClient* client)
    {
        const std::string node = umockdev_ioctl_client_get_devnode(client);
        const gulong request = umockdev_ioctl_client_get_request(client);
        UMockdevIoctlData* arg = umockdev_ioctl_client_get_arg(client);
        std::lock_guard lock(mutex_);
        auto it = microphones_.find(node);
        if (it == microphones_.end() || it->second.unplugged)
        {
            umockdev_ioctl_client_complete(client, -1, ENODEV);
            return TRUE;
        }
        MockMicrophone& mic = it->second;
        OpenFile& file = files_[client];
        if (request == USBDEVFS_GET_CAPABILITIES)
        {
            GError* error = nullptr;
            UMockdevIoctlData* caps = umockdev_ioctl_data_resolve(arg, 0, sizeof(uint32_t), &error);
            g_clear_error(&error);
            if (caps != nullptr)
            {
                const uint32_t value = USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_BULK_CONTINUATION;
                std::memcpy(caps->data, &value, sizeof(value));
            }
            // Completing writes resolved memory back: release it only afterwards.
            umockdev_ioctl_client_complete(client, caps != nullptr ? 0 : -1, caps != nullptr ? 0 : EFAULT);
            if (caps != nullptr)
            {
                g_object_unref(caps);
            }
        }
        else if (request == USBDEVFS_SUBMITURB)
        {
            SubmitUrb(mic, file, client, arg);
        }
        else if (request == USBDEVFS_REAPURBNDELAY || request == USBDEVFS_REAPURB)
        {
            if (file.reapable.empty())
            {
                umockdev_ioctl_client_complete(client, -1, EAGAIN);
                return TRUE;
            }
            // The argument is where the reaped URB's address goes.
            GError* error = nullptr;
            UMockdevIoctlData* slot = umockdev_ioctl_data_resolve(arg, 0, sizeof(void*), &error);
            g_clear_error(&error);
            if (slot == nullptr)
            {
                umockdev_ioctl_client_complete(client, -1, EFAULT);
                return TRUE;
            }
            UMockdevIoctlData* urb = file.reapable.front();
            file.reapable.pop_front();
            umockdev_ioctl_data_set_ptr(slot, 0, urb);
            umockdev_ioctl_client_complete(client, 0, 0);
            g_object_unref(urb);
            g_object_unref(slot);
        }
        else if (request == USBDEVFS_DISCARDURB)
        {
            // A cancelled URB comes back through the reap with -ENOENT.
            if (!file.stuck.empty())
            {
                UMockdevIoctlData* urb = file.stuck.front();
                file.stuck.erase(file.stuck.begin());
                reinterpret_cast<usbdevfs_urb*>(urb->data)->status = -ENOENT;
                reinterpret_cast<usbdevfs_urb*>(urb->data)->actual_length = 0;
                file.reapable.push_back(urb);
                umockdev_ioctl_client_complete(client, 0, 0);
            }
            else
            {
                umockdev_ioctl_client_complete(client, -1, EINVAL);
            }
        }
        else
        {
            // Claims, resets and the like: granted.
            umockdev_ioctl_client_complete(client, 0, 0);
        }
        return TRUE;
    }

    static gboolean OnIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self)
    {
        return static_cast<UmockdevUsbMicrophoneRig*>(self)->Handle(client);
    }

    UMockdevTestbed* testbed_;
    UMockdevIoctlBase* handler_;
    std::shared_ptr<UsbOnlyPlatform> platform_;
    tidemix::platform::UsbBus* bus_ = nullptr;
    std::mutex mutex_;
    std::map<std::string, MockMicrophone> microphones_;
    std::map<UMockdevIoctlClient*, OpenFile> files_;
    int devices_ = 0;
};

namespace Table = tidemix::test::UsbMicrophoneTable;

class UsbMicrophoneLibUsb : public testing::Test
{
protected:
    void SetUp() override
    {
        const char* preload = getenv("LD_PRELOAD");
        if (preload == nullptr || strstr(preload, "libumockdev-preload") == nullptr)
        {
            // ctest runs this through umockdev-wrapper; by hand, do the same.
            GTEST_FAIL() << "umockdev's preload is missing: run as umockdev-wrapper "
                         << "<this test>";
        }
    }
};

// The shared table's cases, each on a test bed of its own.
TEST_F(UsbMicrophoneLibUsb, SharedTable)
{
    const std::pair<const char*, void (*)(UsbMicrophoneRig&)> cases[] = {
        {"SetAndReadBackOnEachModel", Table::SetAndReadBackOnEachModel},
        {"RequestsCarryTheExactFields", Table::RequestsCarryTheExactFields},
        {"StallAndTimeoutMoveNothing", Table::StallAndTimeoutMoveNothing},
        {"ShortAndOverlongReplies", Table::ShortAndOverlongReplies},
        {"UnpluggedDeviceIsNotInitialized", Table::UnpluggedDeviceIsNotInitialized},
        {"EnumerationAndSerialNumber", Table::EnumerationAndSerialNumber},
    };
    for (const auto& [name, run] : cases)
    {
        SCOPED_TRACE(name);
        UmockdevUsbMicrophoneRig rig;
        run(rig);
    }
}

// Arrival and departure through libusb's hot-plug callbacks on the bus's thread.
TEST_F(UsbMicrophoneLibUsb, HotplugArrivalAndDeparture)
{
    UmockdevUsbMicrophoneRig rig;
    using tidemix::platform::UsbEvent;
    std::mutex mutex;
    std::vector<std::pair<UsbEvent, uint32_t>> events;
    const uint64_t id = rig.Bus().AddListener(
        [&](UsbEvent event, const tidemix::platform::UsbDeviceInfo& info)
        {
            std::lock_guard lock(mutex);
            events.emplace_back(event, info.locationId);
        });
    const uint32_t location = rig.Plug(0x0B23, "HOT", {});
    ASSERT_NE(location, 0u);
    rig.Unplug(location);
    auto departed = [&]
    {
        std::lock_guard lock(mutex);
        return events.size() >= 2;
    };
    EXPECT_TRUE(threads_test::WaitUntil(departed));
    rig.Bus().RemoveListener(id);
    std::lock_guard lock(mutex);
    EXPECT_EQ(events, (std::vector<std::pair<UsbEvent, uint32_t>>{{UsbEvent::Arrived, location},
                                                                  {UsbEvent::Departed, location}}));
}

// The DFU requests through libusb: the fields on the wire, the interface
// numbers libusb lists, and the status as the device answers it.
TEST_F(UsbMicrophoneLibUsb, DfuRequestsOnTheWire)
{
    UmockdevUsbMicrophoneRig rig;
    using Wire = std::tuple<uint8_t, uint8_t, uint16_t, uint16_t, uint16_t, std::vector<uint8_t>>;
    auto wire = [&](uint32_t location)
    {
        std::vector<Wire> seen;
        for (const auto& r : rig.BlockRequests(location))
        {
            seen.emplace_back(r.requestType, r.request, r.value, r.index, r.length, r.dataOut);
        }
        return seen;
    };
    const uint32_t mic = rig.Plug(0x0B21, "RUN", {});
    const uint32_t dfu = rig.Plug(0x0B22, "DFU", {});
    ASSERT_NE(mic, 0u);
    ASSERT_NE(dfu, 0u);

    auto open = [](uint16_t product, uint32_t location)
    {
        auto ref = IOKit::GetDeviceRefAtLocation(0x7E11, product, location);
        return ref ? IOKit::GetDeviceInterfaceRefForDeviceRefAndOpenDevice(*ref, true) : nullptr;
    };
    auto runtime = open(0x0B21, mic);
    ASSERT_NE(runtime, nullptr);
    uint16_t interface = 0xFF;
    ASSERT_EQ(IOKit::GetDFUInterface(runtime.get(), interface), IOKit::kStatusSuccess);
    EXPECT_EQ(interface, 2);
    EXPECT_EQ(IOKit::DFUDetach(runtime.get(), interface, 5000), IOKit::kStatusSuccess);
    EXPECT_EQ(wire(mic), (std::vector<Wire>{{0x21, 0, 5000, 2, 0, {}}}));

    auto device = open(0x0B22, dfu);
    ASSERT_NE(device, nullptr);
    ASSERT_EQ(IOKit::GetDFUInterface(device.get(), interface), IOKit::kStatusSuccess);
    EXPECT_EQ(interface, 0);
    std::vector<uint8_t> block(64);
    for (size_t i = 0; i < block.size(); ++i)
    {
        block[i] = static_cast<uint8_t>(0xC0 + i);
    }
    uint32_t length = static_cast<uint32_t>(block.size());
    EXPECT_EQ(IOKit::DFUDownload(device.get(), interface, 0, length, block.data()), IOKit::kStatusSuccess);
    EXPECT_EQ(length, 64u);
    IOKit::DFUStatus status;
    EXPECT_EQ(IOKit::DFUGetStatus(device.get(), interface, status), IOKit::kStatusSuccess);
    EXPECT_EQ(status.status, 0u);
    EXPECT_EQ(status.pollTimeout, 0x10u);
    EXPECT_EQ(status.state, IOKit::kDFUStateDownloadIdle);
    uint32_t end = 0;
    EXPECT_EQ(IOKit::DFUDownload(device.get(), interface, 1, end, nullptr), IOKit::kStatusSuccess);
    EXPECT_EQ(wire(dfu), (std::vector<Wire>{
                             {0x21, 1, 0, 0, 64, block}, {0xA1, 3, 0, 0, 6, {}}, {0x21, 1, 1, 0, 0, {}}}));

    // A device gone from under its handle reads as in error.
    rig.Unplug(dfu);
    EXPECT_NE(IOKit::DFUGetStatus(device.get(), interface, status), IOKit::kStatusSuccess);
    EXPECT_EQ(status.state, IOKit::kDFUStateError);
    EXPECT_EQ(status.status, 14u);
}
}  // namespace
