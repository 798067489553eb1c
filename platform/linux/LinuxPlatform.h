#pragma once

#include <memory>
#include <mutex>

#include "platform/Platform.h"
#include "platform/linux/LogindPowerEvents.h"
#include "platform/linux/LogindProcessActivity.h"

namespace tidemix::platform::linuxos
{

// The real Linux services. A component that is missing (no PipeWire daemon,
// no system bus) comes up empty and the log says so; nothing is simulated.
class LinuxPlatform : public Platform
{
public:
    LinuxPlatform();
    ~LinuxPlatform() override;

    std::string Name() const override { return "linux"; }
    AudioSystem& Audio() override { return *audio_; }
    ProcessActivity& Activity() override { return activity_; }
    // libusb starts on first use, so a host that never asks for USB never
    // touches the machine's devices.
    UsbBus& Usb() override;
    // Sleep and wake from logind; the bus is reached on the first listener.
    PowerEvents& Power() override { return power_; }
    // Running applications from PipeWire, installed ones from the desktop.
    Applications& Apps() override { return *apps_; }
    // RealtimeKit, else SCHED_FIFO, else the thread stays as it is (logged
    // once per process).
    RealtimeGrant RequestRealtimeForCurrentThread() override;

private:
    std::unique_ptr<AudioSystem> audio_;
    std::unique_ptr<Applications> apps_;
    std::once_flag usbOnce_;
    std::unique_ptr<UsbBus> usb_;
    LogindProcessActivity activity_;
    LogindPowerEvents power_;
};

}  // namespace tidemix::platform::linuxos
