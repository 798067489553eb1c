#include "support/SimUsbMicrophoneRig.h"

namespace tidemix::test
{
using platform::sim::SimUsbDeviceSpec;
using platform::sim::SimUsbFaults;

SimUsbMicrophoneRig::SimUsbMicrophoneRig() : platform_(std::make_shared<platform::sim::SimPlatform>())
{
    platform::Platform::Use(platform_);
}

SimUsbMicrophoneRig::~SimUsbMicrophoneRig()
{
    platform::Platform::Use(nullptr);
}

uint32_t SimUsbMicrophoneRig::Plug(uint16_t productId, const std::string& serial, const Block& block)
{
    SimUsbDeviceSpec spec = SimUsbDeviceSpec::Microphone(productId, serial);
    spec.block = block;
    return Sim().Plug(spec);
}

void SimUsbMicrophoneRig::Unplug(uint32_t location)
{
    Sim().Unplug(location);
}

UsbMicrophoneRig::Block SimUsbMicrophoneRig::DeviceBlock(uint32_t location)
{
    return Sim().Block(location).value_or(Block{});
}

void SimUsbMicrophoneRig::SetFault(uint32_t location, Fault fault)
{
    SimUsbFaults faults;
    faults.stall = fault == Fault::Stall;
    faults.timeout = fault == Fault::Timeout;
    faults.replyBytes = fault == Fault::ShortReply ? 12 : fault == Fault::OverlongReply ? 20 : -1;
    faults.unplugOnNextRequest = fault == Fault::UnplugOnRequest;
    Sim().SetFaults(location, faults);
}

std::vector<UsbMicrophoneRig::Request> SimUsbMicrophoneRig::BlockRequests(uint32_t location)
{
    std::vector<Request> requests;
    for (const auto& seen : Sim().Requests())
    {
        // Class requests to an interface; the string requests are not the block's.
        if (seen.locationId == location && (seen.setup.requestType & 0x60) == 0x20)
        {
            requests.push_back(Request{seen.setup.requestType, seen.setup.request, seen.setup.value,
                                       seen.setup.index, seen.setup.length, seen.dataOut});
        }
    }
    return requests;
}

}  // namespace tidemix::test
