#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/UsbBus.h"

// The USB operations the microphone control and the firmware update need,
// over the platform's USB bus (Platform::Current()->Usb() unless a bus is
// given). Results are status values: 0 for success, else one of the
// kStatus... values below.
namespace IOKit
{

constexpr int32_t kStatusSuccess = 0;
constexpr int32_t kStatusError = static_cast<int32_t>(0xE00002BC);     // general failure
constexpr int32_t kStatusNoDevice = static_cast<int32_t>(0xE00002C0);  // device gone
constexpr int32_t kStatusBadArgument = static_cast<int32_t>(0xE00002C2);
constexpr int32_t kStatusNotPermitted = static_cast<int32_t>(0xE00002E2);
constexpr int32_t kStatusOverrun = static_cast<int32_t>(0xE00002E8);
constexpr int32_t kStatusTimeout = static_cast<int32_t>(0xE00002D6);
constexpr int32_t kStatusPipeStalled = static_cast<int32_t>(0xE000404F);

int32_t StatusOf(tidemix::platform::UsbStatus status);

// One listed device.
struct Device
{
    uint32_t locationId = 0;
    uint16_t vendorId = 0;
    uint16_t productId = 0;
    uint16_t release = 0;
    char name[128] = {};
    uint64_t registryEntryId = 0;
    std::string serialNumber;
};

// What to look for: devices of one vendor and product.
struct MatchingDictionary
{
    std::string className;
    uint16_t idVendor = 0;
    uint16_t idProduct = 0;
};

using DeviceRef = tidemix::platform::UsbDeviceInfo;
using DeviceInterface = std::unique_ptr<tidemix::platform::UsbDeviceHandle>;

MatchingDictionary GetMatchingDictionary(uint16_t vendor, uint16_t product);

// The device of that vendor and product at location; with location 0 the first one.
std::optional<DeviceRef> GetDeviceRefAtLocation(uint16_t vendor, uint16_t product, uint32_t location);
std::optional<DeviceRef> GetDeviceRefAtLocation(tidemix::platform::UsbBus& bus, uint16_t vendor,
                                                uint16_t product, uint32_t location);

// An interface of the device, null on any failure. With open, the device's
// first configuration is made active, and a device without one fails.
DeviceInterface GetDeviceInterfaceRefForDeviceRefAndOpenDevice(const DeviceRef& ref, bool open);
DeviceInterface GetDeviceInterfaceRefForDeviceRefAndOpenDevice(tidemix::platform::UsbBus& bus,
                                                               const DeviceRef& ref, bool open);

// Closes and releases the interface; null afterwards.
void CloseDevice(DeviceInterface& device);

// A control request. *transferred gets the bytes moved (0 on failure). The
// bus takes one timeout: the later of the two.
int32_t DeviceRequestTO(tidemix::platform::UsbDeviceHandle* device,
                        const tidemix::platform::UsbControlSetup& setup, uint8_t* data, size_t capacity,
                        uint32_t noDataTimeoutMs, uint32_t completionTimeoutMs, uint32_t* transferred);

// The string descriptor at index, in US English, as UTF-8. A descriptor
// whose first byte is below 2, or whose text isn't valid UTF-16, gives
// kStatusError and an empty out.
int32_t GetUSBStringDescriptor(tidemix::platform::UsbDeviceHandle* device, uint8_t index, std::string& out);

// Walks the devices (of one vendor, unless vendor is 0), each as a Device,
// until the callback returns true. Returns the status of the listing.
int32_t EnumerateDevices(const std::function<bool(const Device&)>& callback);
int32_t EnumerateDevices(uint16_t vendor, const std::function<bool(const Device&)>& callback);
int32_t EnumerateDevices(tidemix::platform::UsbBus& bus, uint16_t vendor,
                         const std::function<bool(const Device&)>& callback);

}  // namespace IOKit
