#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace DRMX_Settings
{

// Thrown for settings that parse but make no sense. It derives from the JSON
// library's exception base, so one handler catches it with the library's own
// parse and type errors.
class InvalidSettingsException : public nlohmann::detail::exception
{
public:
    explicit InvalidSettingsException(const std::string& message)
        : nlohmann::detail::exception(0, message.c_str())
    {
    }
};

}  // namespace DRMX_Settings
