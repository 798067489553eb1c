#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/UsbBus.h"

namespace tidemix::test
{

// A USB bus with microphones that the shared table drives: the simulated bus,
// or libusb over a umockdev test bed. While a rig lives, the current
// platform's Usb() is its bus.
class UsbMicrophoneRig
{
public:
    using Block = std::array<uint8_t, 16>;

    enum class Fault
    {
        None,
        Stall,
        Timeout,
        ShortReply,       // 12 bytes of the 16 asked for
        OverlongReply,    // more than asked for
        UnplugOnRequest,  // the device goes away as the next request arrives
    };

    struct Request
    {
        uint8_t requestType;
        uint8_t request;
        uint16_t value;
        uint16_t index;
        uint16_t length;
        std::vector<uint8_t> dataOut;
    };

    virtual ~UsbMicrophoneRig() = default;
    virtual platform::UsbBus& Bus() = 0;
    // Plugs a microphone and returns its location, once the bus lists it.
    virtual uint32_t Plug(uint16_t productId, const std::string& serial, const Block& block) = 0;
    virtual void Unplug(uint32_t location) = 0;
    virtual Block DeviceBlock(uint32_t location) = 0;
    virtual void SetFault(uint32_t location, Fault fault) = 0;
    // The class requests to the configuration block the device has seen.
    virtual std::vector<Request> BlockRequests(uint32_t location) = 0;
};

// The table of cases every bus must pass; each expects a fresh rig.
namespace UsbMicrophoneTable
{
void SetAndReadBackOnEachModel(UsbMicrophoneRig& rig);
void RequestsCarryTheExactFields(UsbMicrophoneRig& rig);
void StallAndTimeoutMoveNothing(UsbMicrophoneRig& rig);
void ShortAndOverlongReplies(UsbMicrophoneRig& rig);
void UnpluggedDeviceIsNotInitialized(UsbMicrophoneRig& rig);
void EnumerationAndSerialNumber(UsbMicrophoneRig& rig);
}  // namespace UsbMicrophoneTable

}  // namespace tidemix::test
