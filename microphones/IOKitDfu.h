#pragma once

#include <cstdint>

#include "microphones/IOKitUsb.h"

// The requests of the USB Device Firmware Upgrade class (DFU 1.1), sent to
// the DFU interface on the default pipe with 5000 ms timeouts. Results are
// status values as in IOKitUsb.h; bad arguments give kStatusDFUBadArgument
// and send nothing.
namespace IOKit
{

constexpr int32_t kStatusDFUBadArgument = static_cast<int32_t>(0xE0000001);
constexpr int32_t kStatusCannotIterate = static_cast<int32_t>(0xE00002CA);
constexpr uint32_t kDFURequestTimeoutMs = 5000;

constexpr uint8_t kDFUInterfaceClass = 0xFE;
constexpr uint8_t kDFUInterfaceSubClass = 0x01;

// The DFU states this system looks at.
constexpr uint32_t kDFUStateIdle = 2;
constexpr uint32_t kDFUStateDownloadIdle = 5;
constexpr uint32_t kDFUStateError = 10;

// The answer of DFU_GETSTATUS.
struct DFUStatus
{
    uint32_t status = 0;
    uint32_t pollTimeout = 0;  // ms, 24 bits
    uint32_t state = 0;
    uint32_t iString = 0;
};

int32_t DFUDetach(tidemix::platform::UsbDeviceHandle* device, uint16_t interface, uint16_t timeout);

// Sends length bytes as block number `block`; length becomes the bytes moved.
// Length 0 with no data is the end of the image.
int32_t DFUDownload(tidemix::platform::UsbDeviceHandle* device, uint16_t interface, uint16_t block,
                    uint32_t& length, const uint8_t* data);

// Reads up to length bytes of block number `block`; length becomes the bytes read.
int32_t DFUUpload(tidemix::platform::UsbDeviceHandle* device, uint16_t interface, uint16_t block,
                  uint32_t& length, uint8_t* data);

// status reads errUNKNOWN (14) in dfuERROR (10) unless the device gives all
// six bytes of its answer: so a device that has gone reads as in error.
int32_t DFUGetStatus(tidemix::platform::UsbDeviceHandle* device, uint16_t interface, DFUStatus& status);

int32_t DFUClearStatus(tidemix::platform::UsbDeviceHandle* device, uint16_t interface);

// state is set only by a one-byte answer.
int32_t DFUGetState(tidemix::platform::UsbDeviceHandle* device, uint16_t interface, uint8_t& state);

int32_t DFUAbort(tidemix::platform::UsbDeviceHandle* device, uint16_t interface);

// The number of the device's DFU interface (class 0xFE, subclass 1; the last
// one if there are several) into interface, which stays as it was if there
// is none. kStatusCannotIterate for a device that is no longer there.
int32_t GetDFUInterface(tidemix::platform::UsbDeviceHandle* device, uint16_t& interface);

// The text of a DFU status code; "invalid" for 16 and above.
const char* GetStringForDFUStatusCode(uint32_t code);

}  // namespace IOKit
