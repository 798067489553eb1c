#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tidemix::platform
{

struct UsbInterfaceInfo
{
    uint8_t number = 0;
    uint8_t interfaceClass = 0;
    uint8_t interfaceSubClass = 0;
};

// The identity of one USB device as the bus lists it. The location is stable
// while the device stays on the same port, also across a re-enumeration.
struct UsbDeviceInfo
{
    uint32_t locationId = 0;
    uint16_t vendorId = 0;
    uint16_t productId = 0;
    uint16_t release = 0;  // bcdDevice
    std::string name;      // the product string, or a name the backend gives
    uint64_t registryEntryId = 0;
    uint8_t serialNumberIndex = 0;
    std::string serialNumber;  // empty when the device has none or won't tell
    std::vector<UsbInterfaceInfo> interfaces;
};

}  // namespace tidemix::platform
