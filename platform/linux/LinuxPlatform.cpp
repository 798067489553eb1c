#include "platform/linux/LinuxPlatform.h"

#include "platform/EmptyAudioSystem.h"
#include "portable-core/DRAVLog.h"

namespace tidemix::platform
{
namespace linuxos
{
LinuxPlatform::LinuxPlatform()
{
    DRAVLogLine(kDbgPrintLevelWarning, "linux platform: no audio backend in this build; audio devices are empty");
    audio_ = std::make_unique<EmptyAudioSystem>();
}

LinuxPlatform::~LinuxPlatform() = default;
}  // namespace linuxos

std::shared_ptr<Platform> CreateLinuxPlatform()
{
    return std::make_shared<linuxos::LinuxPlatform>();
}

}  // namespace tidemix::platform
