#pragma once

#include <cstdint>

#include "platform/UsbDeviceHandle.h"

// The two class requests that move a microphone's configuration block, sent
// to the interface on the default pipe with a 500 ms timeout.
namespace DRMXMicrophoneConfigurationRequest
{
constexpr uint8_t kRetrieveRequestType = 0xA1;  // class, interface, device to host
constexpr uint8_t kTransferRequestType = 0x21;  // class, interface, host to device
constexpr uint8_t kRetrieveRequest = 0x85;
constexpr uint8_t kTransferRequest = 0x05;
constexpr uint8_t kCommonRequest = 0x03;  // both directions on the Reed Pro
constexpr uint16_t kConfigurationIndex = 0x3300;
constexpr uint32_t kTimeoutMs = 500;

tidemix::platform::UsbControlSetup RetrieveSetup(uint16_t length, uint8_t selector, bool useCommonRequest);
tidemix::platform::UsbControlSetup TransferSetup(uint16_t length, uint8_t selector, bool useCommonRequest);

// Bytes moved; 0 without a device, for a size a request can't carry, or
// when the request fails.
unsigned int Retrieve(tidemix::platform::UsbDeviceHandle* device, unsigned char* data, unsigned int size,
                      unsigned char selector, bool useCommonRequest);
unsigned int Transfer(tidemix::platform::UsbDeviceHandle* device, unsigned char* data, unsigned int size,
                      unsigned char selector, bool useCommonRequest);

// The DFU-mode product ids of the three models.
bool IsDFUProductId(uint16_t productId);
}  // namespace DRMXMicrophoneConfigurationRequest
