#include "microphones/IOKitUsb.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "platform/Platform.h"
#include "platform/UsbStringDescriptor.h"

namespace IOKit
{
using tidemix::platform::Platform;
using tidemix::platform::UsbBus;
using tidemix::platform::UsbControlSetup;
using tidemix::platform::UsbDeviceHandle;
using tidemix::platform::UsbStatus;

namespace
{
constexpr uint16_t kLanguageUsEnglish = 0x0409;
constexpr uint16_t kStringDescriptorLength = 256;

UsbBus& CurrentBus()
{
    // The platform outlives every call: Current() keeps it until Use() replaces it.
    return Platform::Current()->Usb();
}
}  // namespace

int32_t StatusOf(UsbStatus status)
{
    switch (status)
    {
        case UsbStatus::Ok:
            return kStatusSuccess;
        case UsbStatus::Stall:
            return kStatusPipeStalled;
        case UsbStatus::Timeout:
            return kStatusTimeout;
        case UsbStatus::NoDevice:
            return kStatusNoDevice;
        case UsbStatus::Overflow:
            return kStatusOverrun;
        case UsbStatus::InvalidParam:
            return kStatusBadArgument;
        case UsbStatus::Access:
            return kStatusNotPermitted;
        case UsbStatus::IoError:
            return kStatusError;
    }
    return kStatusError;
}

MatchingDictionary GetMatchingDictionary(uint16_t vendor, uint16_t product)
{
    return MatchingDictionary{"IOUSBDevice", vendor, product};
}

std::optional<DeviceRef> GetDeviceRefAtLocation(uint16_t vendor, uint16_t product, uint32_t location)
{
    return GetDeviceRefAtLocation(CurrentBus(), vendor, product, location);
}

std::optional<DeviceRef> GetDeviceRefAtLocation(UsbBus& bus, uint16_t vendor, uint16_t product,
                                                uint32_t location)
{
    const MatchingDictionary match = GetMatchingDictionary(vendor, product);
    for (DeviceRef& device : bus.Devices(match.idVendor))
    {
        if (device.productId == match.idProduct && (location == 0 || device.locationId == location))
        {
            return std::move(device);
        }
    }
    return std::nullopt;
}

DeviceInterface GetDeviceInterfaceRefForDeviceRefAndOpenDevice(const DeviceRef& ref, bool open)
{
    return GetDeviceInterfaceRefForDeviceRefAndOpenDevice(CurrentBus(), ref, open);
}

DeviceInterface GetDeviceInterfaceRefForDeviceRefAndOpenDevice(UsbBus& bus, const DeviceRef& ref, bool open)
{
    DeviceInterface device = bus.Open(ref.locationId, open, nullptr);
    // Another device may have taken the location since the listing.
    if (device && (device->Info().vendorId != ref.vendorId || device->Info().productId != ref.productId))
    {
        device.reset();
    }
    return device;
}

void CloseDevice(DeviceInterface& device)
{
    device.reset();
}

int32_t DeviceRequestTO(UsbDeviceHandle* device, const UsbControlSetup& setup, uint8_t* data, size_t capacity,
                        uint32_t noDataTimeoutMs, uint32_t completionTimeoutMs, uint32_t* transferred)
{
    if (transferred)
    {
        *transferred = 0;
    }
    if (device == nullptr)
    {
        return kStatusBadArgument;
    }
    const auto timeout = std::chrono::milliseconds(std::max(noDataTimeoutMs, completionTimeoutMs));
    const auto result = device->ControlTransfer(setup, data, capacity, timeout);
    if (transferred && result.Ok())
    {
        *transferred = static_cast<uint32_t>(result.transferred);
    }
    return StatusOf(result.status);
}

int32_t GetUSBStringDescriptor(UsbDeviceHandle* device, uint8_t index, std::string& out)
{
    out.clear();
    uint8_t buffer[kStringDescriptorLength] = {};
    const UsbControlSetup setup{0x80, 6, static_cast<uint16_t>(0x0300 + index), kLanguageUsEnglish,
                                kStringDescriptorLength};
    uint32_t got = 0;
    const int32_t status = DeviceRequestTO(device, setup, buffer, sizeof(buffer), 500, 500, &got);
    if (status != kStatusSuccess)
    {
        return status;
    }
    if (tidemix::platform::DecodeUsbStringDescriptor(buffer, got, out) !=
        tidemix::platform::UsbStringDecodeStatus::Ok)
    {
        return kStatusError;
    }
    return kStatusSuccess;
}

int32_t EnumerateDevices(const std::function<bool(const Device&)>& callback)
{
    return EnumerateDevices(0, callback);
}

int32_t EnumerateDevices(uint16_t vendor, const std::function<bool(const Device&)>& callback)
{
    return EnumerateDevices(CurrentBus(), vendor, callback);
}

int32_t EnumerateDevices(UsbBus& bus, uint16_t vendor, const std::function<bool(const Device&)>& callback)
{
    // The bus has read each serial number while listing (with the string
    // request above on an unopened device); it stays empty if that failed.
    for (const DeviceRef& ref : bus.Devices(vendor))
    {
        if (vendor != 0 && ref.vendorId != vendor)
        {
            continue;
        }
        Device device;
        device.locationId = ref.locationId;
        device.vendorId = ref.vendorId;
        device.productId = ref.productId;
        device.release = ref.release;
        const size_t nameBytes = std::min(ref.name.size(), sizeof(device.name) - 1);
        std::memcpy(device.name, ref.name.data(), nameBytes);
        device.registryEntryId = ref.registryEntryId;
        device.serialNumber = ref.serialNumber;
        if (callback && callback(device))
        {
            break;
        }
    }
    return kStatusSuccess;
}

}  // namespace IOKit
