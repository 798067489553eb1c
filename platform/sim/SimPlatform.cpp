#include "platform/sim/SimPlatform.h"

namespace tidemix::platform::sim
{
SimPlatform::SimPlatform()
    : audio_(std::make_unique<SimAudioWorld>()),
      usb_(std::make_unique<SimUsbBus>()),
      apps_(std::make_unique<SimApplications>(*audio_))
{
}

SimPlatform::~SimPlatform() = default;
}  // namespace tidemix::platform::sim
