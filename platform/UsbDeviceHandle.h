#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

#include "platform/UsbControlTransfer.h"
#include "platform/UsbDeviceInfo.h"

namespace tidemix::platform
{

// An open USB device. Destroying the handle closes the device. The handle
// stays safe to use after its device is unplugged (or its bus destroyed):
// IsAttached() turns false and every transfer fails with NoDevice.
class UsbDeviceHandle
{
public:
    virtual ~UsbDeviceHandle() = default;

    virtual const UsbDeviceInfo& Info() const = 0;
    virtual bool IsAttached() const = 0;

    // A synchronous control transfer on the default pipe; blocks at most for
    // timeout. data holds capacity bytes; setup.length must not exceed it.
    // Device to host, at most setup.length bytes are written to data.
    virtual UsbTransferResult ControlTransfer(const UsbControlSetup& setup, uint8_t* data, size_t capacity,
                                              std::chrono::milliseconds timeout) = 0;
};

}  // namespace tidemix::platform
