#include "platform/sim/SimPlatform.h"

namespace tidemix::platform::sim
{
SimPlatform::SimPlatform() : audio_(std::make_unique<SimAudioWorld>()) {}

SimPlatform::~SimPlatform() = default;
}  // namespace tidemix::platform::sim
