#pragma once

#include <memory>

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

private:
    std::unique_ptr<AudioSystem> audio_;
    CountingProcessActivity activity_;
};

}  // namespace tidemix::platform::linuxos
