#include "platform/sim/SimUsbDeviceSpec.h"

namespace tidemix::platform::sim
{
namespace
{
constexpr uint8_t kAudioClass = 0x01;
constexpr uint8_t kApplicationSpecificClass = 0xFE;
constexpr uint8_t kDfuSubClass = 0x01;
}  // namespace

SimUsbDeviceSpec SimUsbDeviceSpec::Microphone(uint16_t productId, std::string serialNumber)
{
    SimUsbDeviceSpec spec;
    spec.vendorId = 0x7E11;
    spec.productId = productId;
    spec.serialNumber = std::move(serialNumber);
    const bool dfu = (productId % 2) == 0;
    spec.runtimeProductId = dfu ? productId - 1 : productId;
    spec.dfuProductId = spec.runtimeProductId + 1;
    const bool pro = productId == 0x0B25 || productId == 0x0B26;
    spec.productName = productId <= 0x0B22 ? "Reed 1" : pro ? "Reed Pro" : "Reed 3";
    if (dfu)
    {
        spec.productName += " DFU";
        spec.interfaces = {{0, kApplicationSpecificClass, kDfuSubClass}};
        return spec;
    }
    spec.interfaces = {
        {0, kAudioClass, 0x01}, {1, kAudioClass, 0x02}, {2, kApplicationSpecificClass, kDfuSubClass}};
    spec.hasConfigurationBlock = true;
    spec.readRequest = pro ? 0x03 : 0x85;
    spec.writeRequest = pro ? 0x03 : 0x05;
    spec.blockIndex = 0x3300;
    return spec;
}

int SimUsbDeviceSpec::DfuInterface() const
{
    for (const UsbInterfaceInfo& interface : interfaces)
    {
        if (interface.interfaceClass == kApplicationSpecificClass &&
            interface.interfaceSubClass == kDfuSubClass)
        {
            return interface.number;
        }
    }
    return -1;
}

namespace
{
SimUsbDeviceSpec CarryOver(const SimUsbDeviceSpec& from, uint16_t productId)
{
    SimUsbDeviceSpec to = SimUsbDeviceSpec::Microphone(productId, from.serialNumber);
    to.release = from.release;
    to.block = from.block;
    to.firmware = from.firmware;
    to.dfuFaults = from.dfuFaults;
    to.dfuTiming = from.dfuTiming;
    return to;
}
}  // namespace

SimUsbDeviceSpec SimUsbDeviceSpec::AsDfuMode() const
{
    return CarryOver(*this, dfuProductId);
}

SimUsbDeviceSpec SimUsbDeviceSpec::AsRuntimeMode() const
{
    return CarryOver(*this, runtimeProductId);
}

}  // namespace tidemix::platform::sim
