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

}  // namespace tidemix::platform::sim
