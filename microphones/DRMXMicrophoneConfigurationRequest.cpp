#include "microphones/DRMXMicrophoneConfigurationRequest.h"

#include <algorithm>
#include <vector>

#include "microphones/IOKitUsb.h"

namespace DRMXMicrophoneConfigurationRequest
{
using tidemix::platform::UsbControlSetup;
using tidemix::platform::UsbDeviceHandle;

namespace
{
unsigned int Send(UsbDeviceHandle* device, const UsbControlSetup& setup, unsigned char* data,
                  unsigned int size)
{
    if (device == nullptr || data == nullptr || size == 0 || size > 0xFFFF)
    {
        return 0;
    }
    // A reply lands in a buffer of its own first: a failed request may have
    // moved some bytes, and the caller's data must then stay as it was.
    std::vector<unsigned char> buffer(data, data + size);
    uint32_t moved = 0;
    if (IOKit::DeviceRequestTO(device, setup, buffer.data(), size, kTimeoutMs, kTimeoutMs, &moved) !=
            IOKit::kStatusSuccess ||
        moved > size)
    {
        return 0;
    }
    if (setup.IsDeviceToHost())
    {
        std::copy(buffer.begin(), buffer.begin() + moved, data);
    }
    return moved;
}
}  // namespace

UsbControlSetup RetrieveSetup(uint16_t length, uint8_t selector, bool useCommonRequest)
{
    return UsbControlSetup{kRetrieveRequestType, useCommonRequest ? kCommonRequest : kRetrieveRequest,
                           selector, kConfigurationIndex, length};
}

UsbControlSetup TransferSetup(uint16_t length, uint8_t selector, bool useCommonRequest)
{
    return UsbControlSetup{kTransferRequestType, useCommonRequest ? kCommonRequest : kTransferRequest,
                           selector, kConfigurationIndex, length};
}

unsigned int Retrieve(UsbDeviceHandle* device, unsigned char* data, unsigned int size, unsigned char selector,
                      bool useCommonRequest)
{
    return Send(device, RetrieveSetup(static_cast<uint16_t>(size), selector, useCommonRequest), data, size);
}

unsigned int Transfer(UsbDeviceHandle* device, unsigned char* data, unsigned int size, unsigned char selector,
                      bool useCommonRequest)
{
    return Send(device, TransferSetup(static_cast<uint16_t>(size), selector, useCommonRequest), data, size);
}

bool IsDFUProductId(uint16_t productId)
{
    return productId == 0x0B22 || productId == 0x0B24 || productId == 0x0B26;
}
}  // namespace DRMXMicrophoneConfigurationRequest
