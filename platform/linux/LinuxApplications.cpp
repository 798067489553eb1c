#include "platform/linux/LinuxApplications.h"

#include "platform/desktop/DesktopEntries.h"

namespace tidemix::platform::linuxos
{
LinuxApplications::LinuxApplications(std::unique_ptr<Applications> running)
    : running_(running ? std::move(running) : std::make_unique<EmptyApplications>())
{
}

LinuxApplications::~LinuxApplications() = default;

std::optional<InstalledApplication> LinuxApplications::FindInstalled(const std::string& identifier)
{
    return desktop::DesktopEntries::FindInstalled(identifier);
}

std::optional<InstalledApplication> LinuxApplications::ApplicationForUrl(const std::string& url)
{
    return desktop::DesktopEntries::ApplicationForUrl(url);
}

std::shared_ptr<ApplicationIcon> LinuxApplications::LoadIcon(const std::string& path, std::string* whyNot)
{
    return desktop::DesktopEntries::LoadIcon(path, whyNot);
}

bool LinuxApplications::Launch(const std::string& identifier)
{
    return desktop::DesktopEntries::Launch(identifier);
}
}  // namespace tidemix::platform::linuxos
