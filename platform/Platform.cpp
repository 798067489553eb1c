#include "platform/Platform.h"

namespace tidemix::platform
{
Platform::Platform() : mainQueue_(std::make_shared<DplDispatchQueue>("main", 1)) {}

Platform::~Platform() = default;

std::shared_ptr<DplDispatchQueue> Platform::MainQueue()
{
    return mainQueue_;
}

std::optional<AudioDeviceInfo> AudioSystem::Device(uint32_t id)
{
    for (AudioDeviceInfo& device : Devices())
    {
        if (device.id == id)
        {
            return std::move(device);
        }
    }
    return std::nullopt;
}

}  // namespace tidemix::platform
