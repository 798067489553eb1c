#include "platform/Platform.h"

#include <cstdlib>
#include <mutex>

#include "portable-core/DRAVLog.h"

namespace tidemix::platform
{
namespace
{
std::mutex gPlatformMutex;
std::shared_ptr<Platform> gPlatform;
}  // namespace

Platform::Platform() : mainQueue_(std::make_shared<DplDispatchQueue>("main", 1)) {}

Platform::~Platform() = default;

std::shared_ptr<DplDispatchQueue> Platform::MainQueue()
{
    return mainQueue_;
}

std::shared_ptr<Platform> Platform::Create(std::string_view name)
{
    if (name == "sim")
    {
        return CreateSimPlatform();
    }
    if (name == "linux")
    {
        return CreateLinuxPlatform();
    }
    return nullptr;
}

std::shared_ptr<Platform> Platform::Current()
{
    std::lock_guard lock(gPlatformMutex);
    if (!gPlatform)
    {
        const char* chosen = getenv("TIDEMIX_PLATFORM");
        std::string_view name = chosen != nullptr ? chosen : "sim";
        gPlatform = Create(name);
        if (!gPlatform)
        {
            DRAVLogPrintf(kDbgPrintLevelWarning, "Unknown platform \"%s\" in TIDEMIX_PLATFORM; using \"sim\"",
                          chosen);
            gPlatform = CreateSimPlatform();
        }
    }
    return gPlatform;
}

void Platform::Use(std::shared_ptr<Platform> platform)
{
    std::lock_guard lock(gPlatformMutex);
    gPlatform = std::move(platform);
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
