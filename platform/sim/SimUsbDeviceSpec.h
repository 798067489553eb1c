#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/UsbDeviceInfo.h"
#include "platform/sim/SimDfuDevice.h"

namespace tidemix::platform::sim
{

// The 16-byte configuration block a simulated microphone keeps.
using SimUsbBlock = std::array<uint8_t, 16>;

// What a simulated USB device is: its identity and, for a microphone, the
// class requests that read and write its configuration block. A request
// that doesn't match exactly (type, request, value 0, index, length 16)
// stalls, as the hardware does.
struct SimUsbDeviceSpec
{
    uint16_t vendorId = 0;
    uint16_t productId = 0;
    uint16_t release = 0x0110;
    std::string productName;
    std::string serialNumber;
    std::vector<UsbInterfaceInfo> interfaces;
    // Configurations the device offers; a device with none can't be configured.
    uint8_t configurations = 1;

    bool hasConfigurationBlock = false;
    uint8_t readRequest = 0;   // bRequest of the device-to-host class request
    uint8_t writeRequest = 0;  // bRequest of the host-to-device class request
    uint16_t blockIndex = 0;   // wIndex of both
    SimUsbBlock block{};

    // A device with a DFU interface (class 0xFE, subclass 1) and a DFU id
    // runs the DFU state machine: in run-time mode under runtimeProductId,
    // in DFU mode under dfuProductId, switching at the same location.
    uint16_t runtimeProductId = 0;
    uint16_t dfuProductId = 0;
    std::vector<uint8_t> firmware;  // what an upload reads
    SimDfuFaults dfuFaults;
    SimDfuTiming dfuTiming;

    // The number of the DFU interface, -1 without one.
    int DfuInterface() const;
    bool InDfuMode() const { return dfuProductId != 0 && productId == dfuProductId; }
    // The same microphone as it comes back in the other mode: settings,
    // firmware and DFU behaviour go along.
    SimUsbDeviceSpec AsDfuMode() const;
    SimUsbDeviceSpec AsRuntimeMode() const;

    // A microphone of vendor 0x7E11 for one of its product ids 0x0B21 to
    // 0x0B26 (run-time and DFU ids of the three models).
    static SimUsbDeviceSpec Microphone(uint16_t productId, std::string serialNumber);
};

// Faults a simulated device shows from the next request on.
struct SimUsbFaults
{
    bool stall = false;    // every request stalls
    bool timeout = false;  // no request is answered in time
    // Device-to-host answers carry this many bytes instead of what was asked
    // (-1: as asked). More than asked is an overflow on the host.
    int replyBytes = -1;
    bool unplugOnNextRequest = false;  // the device goes away as the request arrives
};

}  // namespace tidemix::platform::sim
