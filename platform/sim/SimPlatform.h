#pragma once

#include <memory>

#include "platform/CountingProcessActivity.h"
#include "platform/Platform.h"
#include "platform/sim/SimApplications.h"
#include "platform/sim/SimAudioWorld.h"
#include "platform/sim/SimPowerEvents.h"
#include "platform/sim/SimUsbBus.h"

namespace tidemix::platform::sim
{

// The deterministic simulated world: the default backend of the demo and the tests.
class SimPlatform : public Platform
{
public:
    SimPlatform();
    ~SimPlatform() override;

    std::string Name() const override { return "sim"; }
    AudioSystem& Audio() override { return *audio_; }
    ProcessActivity& Activity() override { return activity_; }
    UsbBus& Usb() override { return *usb_; }
    PowerEvents& Power() override { return power_; }
    Applications& Apps() override { return *apps_; }

    SimAudioWorld& World() { return *audio_; }
    SimUsbBus& UsbDevices() { return *usb_; }
    CountingProcessActivity& Activities() { return activity_; }
    SimPowerEvents& PowerSource() { return power_; }
    // Start and quit simulated applications, install them, see where their
    // sound goes.
    SimApplications& SimApps() { return *apps_; }

private:
    std::unique_ptr<SimAudioWorld> audio_;
    std::unique_ptr<SimUsbBus> usb_;
    CountingProcessActivity activity_;
    SimPowerEvents power_;
    // Declared last: its applications play into the world, so it goes first.
    std::unique_ptr<SimApplications> apps_;
};

}  // namespace tidemix::platform::sim
