#pragma once

#include <cstddef>
#include <cstdint>

namespace tidemix::platform
{

// The setup packet of a control transfer on the default pipe.
struct UsbControlSetup
{
    uint8_t requestType = 0;  // bmRequestType; bit 7 set means device to host
    uint8_t request = 0;      // bRequest
    uint16_t value = 0;       // wValue
    uint16_t index = 0;       // wIndex
    uint16_t length = 0;      // wLength

    bool IsDeviceToHost() const { return (requestType & 0x80) != 0; }
};

enum class UsbStatus
{
    Ok,
    Stall,         // the device refused the request
    Timeout,       // no answer in time
    NoDevice,      // the device is gone
    Overflow,      // the device sent more than was asked for
    InvalidParam,  // the request or its buffer doesn't fit
    Access,        // not allowed to open the device
    IoError,       // anything else
};

const char* UsbStatusName(UsbStatus status);

struct UsbTransferResult
{
    UsbStatus status = UsbStatus::IoError;
    size_t transferred = 0;  // bytes moved; 0 unless status is Ok

    bool Ok() const { return status == UsbStatus::Ok; }
};

}  // namespace tidemix::platform
