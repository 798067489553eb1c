// The choice of backend, above the backends: the seam's Platform knows none
// of them, so that the seam links nothing above itself.
#include <cstdlib>
#include <mutex>
#include <string_view>

#include "platform/Platform.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/sim/SimPlatform.h"
#include "portable-core/DRAVLog.h"

namespace tidemix::platform
{
namespace
{
std::mutex gPlatformMutex;
std::shared_ptr<Platform> gPlatform;
}  // namespace

std::shared_ptr<Platform> Platform::Create(std::string_view name)
{
    if (name == "sim")
    {
        return std::make_shared<sim::SimPlatform>();
    }
    if (name == "linux")
    {
        return std::make_shared<linuxos::LinuxPlatform>();
    }
    return nullptr;
}

std::shared_ptr<Platform> Platform::Current()
{
    std::lock_guard lock(gPlatformMutex);
    if (!gPlatform)
    {
        // An application that chooses nothing gets the real devices; the
        // simulation is only ever chosen on purpose.
        const char* chosen = getenv("TIDEMIX_PLATFORM");
        const std::string_view name = chosen != nullptr && *chosen != '\0' ? chosen : "linux";
        gPlatform = Create(name);
        if (!gPlatform)
        {
            DRAVLogPrintf(kDbgPrintLevelWarning,
                          "Unknown platform \"%s\" in TIDEMIX_PLATFORM; using \"linux\"", chosen);
            gPlatform = Create("linux");
        }
    }
    return gPlatform;
}

void Platform::Use(std::shared_ptr<Platform> platform)
{
    std::lock_guard lock(gPlatformMutex);
    gPlatform = std::move(platform);
}

}  // namespace tidemix::platform
