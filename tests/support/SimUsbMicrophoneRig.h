#pragma once

#include <memory>

#include "platform/sim/SimPlatform.h"
#include "support/UsbMicrophoneTable.h"

namespace tidemix::test
{

// The shared table's rig over the simulated bus of a fresh SimPlatform,
// installed as the current platform while the rig lives.
class SimUsbMicrophoneRig : public UsbMicrophoneRig
{
public:
    SimUsbMicrophoneRig();
    ~SimUsbMicrophoneRig() override;

    platform::UsbBus& Bus() override { return Sim(); }
    uint32_t Plug(uint16_t productId, const std::string& serial, const Block& block) override;
    void Unplug(uint32_t location) override;
    Block DeviceBlock(uint32_t location) override;
    void SetFault(uint32_t location, Fault fault) override;
    std::vector<Request> BlockRequests(uint32_t location) override;

    platform::sim::SimUsbBus& Sim() { return platform_->UsbDevices(); }

private:
    std::shared_ptr<platform::sim::SimPlatform> platform_;
};

}  // namespace tidemix::test
