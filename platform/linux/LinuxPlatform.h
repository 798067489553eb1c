#pragma once

#include <memory>
#include <mutex>

#include "platform/CountingProcessActivity.h"
#include "platform/Platform.h"

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

private:
    std::unique_ptr<AudioSystem> audio_;
    std::once_flag usbOnce_;
    std::unique_ptr<UsbBus> usb_;
    CountingProcessActivity activity_;
};

}  // namespace tidemix::platform::linuxos
