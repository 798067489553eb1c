#include "settings/DRMXApplicationBundle.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace
{
std::string ExistingFile(const std::filesystem::path& path)
{
    std::error_code error;
    return std::filesystem::is_regular_file(path, error) ? path.string() : std::string();
}
}  // namespace

std::string DRMXApplicationBundle::PathForBundleResource(const std::string& name)
{
    if (name.empty() || name.find('/') != std::string::npos)
    {
        return {};  // a resource is a plain file name, never a path out of the folder
    }
    if (const char* folder = getenv("TIDEMIX_RESOURCE_DIR"); folder != nullptr && *folder != '\0')
    {
        if (std::string found = ExistingFile(std::filesystem::path(folder) / name); !found.empty())
        {
            return found;
        }
    }
    std::error_code error;
    const std::filesystem::path executable = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error)
    {
        return ExistingFile(executable.parent_path().parent_path() / "share" / "tidemix" / name);
    }
    return {};
}

std::string DRMXApplicationBundle::PathForBundleResource(const std::string& name, const std::string& type)
{
    if (type.empty())
    {
        return PathForBundleResource(name);
    }
    return PathForBundleResource(name + "." + type);
}
