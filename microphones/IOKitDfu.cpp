#include "microphones/IOKitDfu.h"

#include <iterator>
#include <limits>

namespace IOKit
{
using tidemix::platform::UsbControlSetup;
using tidemix::platform::UsbDeviceHandle;

namespace
{
constexpr uint8_t kToInterface = 0x21;    // class, interface, host to device
constexpr uint8_t kFromInterface = 0xA1;  // class, interface, device to host

enum DFURequest : uint8_t
{
    kDetach = 0,
    kDownload = 1,
    kUpload = 2,
    kGetStatus = 3,
    kClearStatus = 4,
    kGetState = 5,
    kAbort = 6,
};

constexpr uint32_t kStatusAnswerLength = 6;
constexpr uint32_t kErrUnknown = 14;

int32_t Request(UsbDeviceHandle* device, uint8_t type, uint8_t request, uint16_t value, uint16_t interface,
                uint8_t* data, uint32_t length, uint32_t* transferred)
{
    const UsbControlSetup setup{type, request, value, interface, static_cast<uint16_t>(length)};
    return DeviceRequestTO(device, setup, data, length, kDFURequestTimeoutMs, kDFURequestTimeoutMs,
                           transferred);
}

bool CarriesData(uint32_t length, const void* data)
{
    return length <= std::numeric_limits<uint16_t>::max() && (length == 0 || data != nullptr);
}
}  // namespace

int32_t DFUDetach(UsbDeviceHandle* device, uint16_t interface, uint16_t timeout)
{
    if (device == nullptr)
    {
        return kStatusDFUBadArgument;
    }
    return Request(device, kToInterface, kDetach, timeout, interface, nullptr, 0, nullptr);
}

int32_t DFUDownload(UsbDeviceHandle* device, uint16_t interface, uint16_t block, uint32_t& length,
                    const uint8_t* data)
{
    if (device == nullptr || !CarriesData(length, data))
    {
        return kStatusDFUBadArgument;
    }
    // The seam's transfer takes one buffer for both directions; a
    // host-to-device transfer only reads it.
    return Request(device, kToInterface, kDownload, block, interface, const_cast<uint8_t*>(data), length,
                   &length);
}

int32_t DFUUpload(UsbDeviceHandle* device, uint16_t interface, uint16_t block, uint32_t& length,
                  uint8_t* data)
{
    if (device == nullptr || !CarriesData(length, data))
    {
        return kStatusDFUBadArgument;
    }
    return Request(device, kFromInterface, kUpload, block, interface, data, length, &length);
}

int32_t DFUGetStatus(UsbDeviceHandle* device, uint16_t interface, DFUStatus& status)
{
    status.status = kErrUnknown;
    status.state = kDFUStateError;
    status.iString = 0;
    if (device == nullptr)
    {
        return kStatusDFUBadArgument;
    }
    uint8_t answer[kStatusAnswerLength] = {};
    uint32_t got = 0;
    const int32_t result =
        Request(device, kFromInterface, kGetStatus, 0, interface, answer, kStatusAnswerLength, &got);
    if (result == kStatusSuccess && got == kStatusAnswerLength)
    {
        status.status = answer[0];
        status.pollTimeout = answer[1] | (answer[2] << 8) | (answer[3] << 16);
        status.state = answer[4];
        status.iString = answer[5];
    }
    return result;
}

int32_t DFUClearStatus(UsbDeviceHandle* device, uint16_t interface)
{
    if (device == nullptr)
    {
        return kStatusDFUBadArgument;
    }
    return Request(device, kToInterface, kClearStatus, 0, interface, nullptr, 0, nullptr);
}

int32_t DFUGetState(UsbDeviceHandle* device, uint16_t interface, uint8_t& state)
{
    if (device == nullptr)
    {
        return kStatusDFUBadArgument;
    }
    uint8_t answer = 0;
    uint32_t got = 0;
    const int32_t result = Request(device, kFromInterface, kGetState, 0, interface, &answer, 1, &got);
    if (result == kStatusSuccess && got == 1)
    {
        state = answer;
    }
    return result;
}

int32_t DFUAbort(UsbDeviceHandle* device, uint16_t interface)
{
    if (device == nullptr)
    {
        return kStatusDFUBadArgument;
    }
    return Request(device, kToInterface, kAbort, 0, interface, nullptr, 0, nullptr);
}

int32_t GetDFUInterface(UsbDeviceHandle* device, uint16_t& interface)
{
    if (device == nullptr)
    {
        return kStatusDFUBadArgument;
    }
    // The listing is a copy taken at opening; a device that has left can't
    // be walked any more.
    if (!device->IsAttached())
    {
        return kStatusCannotIterate;
    }
    for (const auto& candidate : device->Info().interfaces)
    {
        if (candidate.interfaceClass == kDFUInterfaceClass &&
            candidate.interfaceSubClass == kDFUInterfaceSubClass)
        {
            interface = candidate.number;
        }
    }
    return kStatusSuccess;
}

const char* GetStringForDFUStatusCode(uint32_t code)
{
    static const char* const kTexts[] = {
        "No error condition is present",
        "File is not targeted for use by this device",
        "File is for this device but fails some vendor-specific test",
        "Device is unable to write memory",
        "Memory erase function failed",
        "Memory erase check failed",
        "Program memory function failed",
        "Programmed memory failed verification",
        "Cannot program memory due to received address that is out of range",
        "Received DFU_DNLOAD with wLength = 0, but device does not think that it has all data yet",
        "Device's firmware is corrupt. It cannot return to run-time (non-DFU) operations",
        "iString indicates a vendor specific error",
        "Device detected unexpected USB reset signalling",
        "Device detected unexpected power on reset",
        "Something went wrong, but the device does not know what it was",
        "Device stalled an unexpected request",
    };
    return code < std::size(kTexts) ? kTexts[code] : "invalid";
}

}  // namespace IOKit
