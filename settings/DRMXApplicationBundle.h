#pragma once

#include <string>

// Resources that ship with the application (firmware files, default inputs).
// On Linux they are looked up in $TIDEMIX_RESOURCE_DIR, then in
// <prefix>/share/tidemix beside the running executable.
class DRMXApplicationBundle
{
public:
    // The path of a resource, or an empty string if there is no such file.
    static std::string PathForBundleResource(const std::string& name);
    // With an empty type the extension of name is used as the type.
    static std::string PathForBundleResource(const std::string& name, const std::string& type);
};
