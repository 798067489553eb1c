#include "platform/sim/SimPlatform.h"

namespace tidemix::platform
{
namespace sim
{
SimPlatform::SimPlatform() : audio_(std::make_unique<SimAudioWorld>()) {}

SimPlatform::~SimPlatform() = default;
}  // namespace sim

std::shared_ptr<Platform> CreateSimPlatform()
{
    return std::make_shared<sim::SimPlatform>();
}

}  // namespace tidemix::platform
