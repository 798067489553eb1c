// The DFU class requests on the wire, against a handle that records what it
// is asked and answers with canned bytes.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "microphones/IOKitDfu.h"

namespace
{
using tidemix::platform::UsbControlSetup;
using tidemix::platform::UsbDeviceInfo;
using tidemix::platform::UsbStatus;
using tidemix::platform::UsbTransferResult;

class RecordingHandle : public tidemix::platform::UsbDeviceHandle
{
public:
    struct Seen
    {
        UsbControlSetup setup;
        std::vector<uint8_t> dataOut;
        std::chrono::milliseconds timeout{};
    };

    const UsbDeviceInfo& Info() const override { return info; }
    bool IsAttached() const override { return attached; }

    UsbTransferResult ControlTransfer(const UsbControlSetup& setup, uint8_t* data, size_t capacity,
                                      std::chrono::milliseconds timeout) override
    {
        Seen entry{setup, {}, timeout};
        if (!setup.IsDeviceToHost() && setup.length > 0)
        {
            entry.dataOut.assign(data, data + setup.length);
        }
        seen.push_back(entry);
        if (status != UsbStatus::Ok)
        {
            return {status, 0};
        }
        if (!setup.IsDeviceToHost())
        {
            return {UsbStatus::Ok, setup.length};
        }
        const size_t count = std::min({reply.size(), capacity, size_t{setup.length}});
        std::copy(reply.begin(), reply.begin() + static_cast<std::ptrdiff_t>(count), data);
        return {UsbStatus::Ok, count};
    }

    UsbDeviceInfo info;
    bool attached = true;
    UsbStatus status = UsbStatus::Ok;
    std::vector<uint8_t> reply;
    std::vector<Seen> seen;
};

TEST(IOKitDfu, EachRequestCarriesItsFields)
{
    const std::vector<uint8_t> block = {1, 2, 3, 4, 5};
    struct Case
    {
        const char* name;
        std::function<int32_t(RecordingHandle&)> call;
        UsbControlSetup setup;
        std::vector<uint8_t> dataOut;
    };
    const Case cases[] = {
        {"detach", [](auto& h) { return IOKit::DFUDetach(&h, 2, 5000); }, {0x21, 0, 5000, 2, 0}, {}},
        {"download",
         [&](auto& h)
         {
             uint32_t length = static_cast<uint32_t>(block.size());
             const int32_t result = IOKit::DFUDownload(&h, 3, 0x1234, length, block.data());
             EXPECT_EQ(length, block.size());
             return result;
         },
         {0x21, 1, 0x1234, 3, 5},
         block},
        {"end of image",
         [](auto& h)
         {
             uint32_t length = 0;
             return IOKit::DFUDownload(&h, 0, 2, length, nullptr);
         },
         {0x21, 1, 2, 0, 0},
         {}},
        {"upload",
         [](auto& h)
         {
             uint8_t data[64];
             uint32_t length = sizeof(data);
             return IOKit::DFUUpload(&h, 1, 7, length, data);
         },
         {0xA1, 2, 7, 1, 64},
         {}},
        {"get status",
         [](auto& h)
         {
             IOKit::DFUStatus status;
             return IOKit::DFUGetStatus(&h, 4, status);
         },
         {0xA1, 3, 0, 4, 6},
         {}},
        {"clear status", [](auto& h) { return IOKit::DFUClearStatus(&h, 5); }, {0x21, 4, 0, 5, 0}, {}},
        {"get state",
         [](auto& h)
         {
             uint8_t state = 0;
             return IOKit::DFUGetState(&h, 6, state);
         },
         {0xA1, 5, 0, 6, 1},
         {}},
        {"abort", [](auto& h) { return IOKit::DFUAbort(&h, 7); }, {0x21, 6, 0, 7, 0}, {}},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        RecordingHandle handle;
        EXPECT_EQ(c.call(handle), IOKit::kStatusSuccess);
        ASSERT_EQ(handle.seen.size(), 1u);
        const auto& seen = handle.seen[0];
        auto fields = [](const UsbControlSetup& s)
        { return std::tuple(s.requestType, s.request, s.value, s.index, s.length); };
        EXPECT_EQ(fields(seen.setup), fields(c.setup));
        EXPECT_EQ(seen.dataOut, c.dataOut);
        EXPECT_EQ(seen.timeout, std::chrono::milliseconds(5000));
    }
}

TEST(IOKitDfu, BadArgumentsSendNothing)
{
    RecordingHandle handle;
    uint8_t data[4] = {};
    uint32_t length = 4;
    uint32_t tooLong = 0x10000;
    uint8_t state = 0;
    uint16_t interface = 0;
    IOKit::DFUStatus status;
    const int32_t results[] = {
        IOKit::DFUDetach(nullptr, 0, 5000),
        IOKit::DFUDownload(nullptr, 0, 0, length, data),
        IOKit::DFUDownload(&handle, 0, 0, length, nullptr),
        IOKit::DFUDownload(&handle, 0, 0, tooLong, data),
        IOKit::DFUUpload(nullptr, 0, 0, length, data),
        IOKit::DFUUpload(&handle, 0, 0, length, nullptr),
        IOKit::DFUGetStatus(nullptr, 0, status),
        IOKit::DFUClearStatus(nullptr, 0),
        IOKit::DFUGetState(nullptr, 0, state),
        IOKit::DFUAbort(nullptr, 0),
        IOKit::GetDFUInterface(nullptr, interface),
    };
    for (int32_t result : results)
    {
        EXPECT_EQ(result, static_cast<int32_t>(0xE0000001));
    }
    EXPECT_TRUE(handle.seen.empty());
    // Even without a device the status reads as an error.
    EXPECT_EQ(status.status, 14u);
    EXPECT_EQ(status.state, 10u);
}

TEST(IOKitDfu, StatusIsTakenOnlyFromACompleteAnswer)
{
    struct Case
    {
        const char* name;
        UsbStatus wire;
        std::vector<uint8_t> reply;
        IOKit::DFUStatus expected;
    };
    const Case cases[] = {
        {"complete", UsbStatus::Ok, {0x03, 0x10, 0x27, 0x01, 0x05, 0x07}, {3, 0x012710, 5, 7}},
        {"five bytes", UsbStatus::Ok, {0x00, 0x00, 0x00, 0x00, 0x05}, {14, 99, 10, 0}},
        {"gone", UsbStatus::NoDevice, {}, {14, 99, 10, 0}},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        RecordingHandle handle;
        handle.status = c.wire;
        handle.reply = c.reply;
        IOKit::DFUStatus status{0, 99, 0, 42};
        EXPECT_EQ(IOKit::DFUGetStatus(&handle, 0, status), IOKit::StatusOf(c.wire));
        auto fields = [](const IOKit::DFUStatus& s)
        { return std::tuple(s.status, s.pollTimeout, s.state, s.iString); };
        EXPECT_EQ(fields(status), fields(c.expected));
    }
}

TEST(IOKitDfu, InterfaceIsTheLastDfuOne)
{
    RecordingHandle handle;
    uint16_t interface = 77;
    handle.info.interfaces = {{0, 0x01, 0x01}, {1, 0xFE, 0x02}, {2, 0x03, 0x01}};
    EXPECT_EQ(IOKit::GetDFUInterface(&handle, interface), IOKit::kStatusSuccess);
    EXPECT_EQ(interface, 77) << "no DFU interface leaves it as it was";

    handle.info.interfaces = {{0, 0x01, 0x01}, {2, 0xFE, 0x01}, {3, 0x01, 0x02}, {4, 0xFE, 0x01}};
    EXPECT_EQ(IOKit::GetDFUInterface(&handle, interface), IOKit::kStatusSuccess);
    EXPECT_EQ(interface, 4);

    handle.attached = false;
    interface = 77;
    EXPECT_EQ(IOKit::GetDFUInterface(&handle, interface), static_cast<int32_t>(0xE00002CA));
    EXPECT_EQ(interface, 77);
    EXPECT_TRUE(handle.seen.empty());
}

}  // namespace
