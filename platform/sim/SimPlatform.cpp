#include "platform/sim/SimPlatform.h"

namespace tidemix::platform::sim
{
SimPlatform::SimPlatform() : audio_(std::make_unique<SimAudioWorld>()), usb_(std::make_unique<SimUsbBus>()) {}

SimPlatform::~SimPlatform() = default;
}  // namespace tidemix::platform::sim
