#include "settings/DPLJSONUtils.h"

#include <cmath>
#include <limits>

namespace
{
const nlohmann::json* Find(const nlohmann::json& value, const std::string& key)
{
    if (!value.is_object())
    {
        return nullptr;
    }
    auto found = value.find(key);
    return found == value.end() ? nullptr : &*found;
}

// Float to integer without the undefined behaviour of an out-of-range cast.
template <typename Integer>
Integer SaturatingCast(double value)
{
    if (std::isnan(value))
    {
        return 0;
    }
    if (value <= static_cast<double>(std::numeric_limits<Integer>::min()))
    {
        return std::numeric_limits<Integer>::min();
    }
    if (value >= static_cast<double>(std::numeric_limits<Integer>::max()))
    {
        return std::numeric_limits<Integer>::max();
    }
    return static_cast<Integer>(value);
}

float ToFloat(double value)
{
    constexpr double kMax = std::numeric_limits<float>::max();
    if (value > kMax)
    {
        return std::numeric_limits<float>::max();
    }
    if (value < -kMax)
    {
        return -std::numeric_limits<float>::max();
    }
    return static_cast<float>(value);
}

const nlohmann::json& RequireNumber(const nlohmann::json& value, const std::string& key)
{
    const nlohmann::json& found = value.at(key);  // throws for a missing key or a non-object
    if (!found.is_number())
    {
        throw nlohmann::json::type_error::create(
            302, "type must be number, but is " + std::string(found.type_name()), &found);
    }
    return found;
}
}  // namespace

int32_t DPLJSONUtils::GetIntByName(const nlohmann::json& value, const std::string& key, int32_t defaultValue)
{
    const nlohmann::json* found = Find(value, key);
    if (found == nullptr || !found->is_number_integer())
    {
        return defaultValue;
    }
    // Wraps modulo 2^32, as a plain cast of the library's 64-bit value would.
    return found->is_number_unsigned() ? static_cast<int32_t>(found->get<uint64_t>())
                                       : static_cast<int32_t>(found->get<int64_t>());
}

uint32_t DPLJSONUtils::GetUnsignedIntByName(const nlohmann::json& value, const std::string& key,
                                            uint32_t defaultValue)
{
    const nlohmann::json* found = Find(value, key);
    if (found == nullptr || !found->is_number_unsigned())
    {
        return defaultValue;
    }
    return static_cast<uint32_t>(found->get<uint64_t>());
}

float DPLJSONUtils::GetFloatByName(const nlohmann::json& value, const std::string& key, float defaultValue)
{
    const nlohmann::json* found = Find(value, key);
    if (found == nullptr || !found->is_number())
    {
        return defaultValue;
    }
    if (found->is_number_float())
    {
        return ToFloat(found->get<double>());
    }
    return found->is_number_unsigned() ? static_cast<float>(found->get<uint64_t>())
                                       : static_cast<float>(found->get<int64_t>());
}

bool DPLJSONUtils::GetBoolByName(const nlohmann::json& value, const std::string& key, bool defaultValue)
{
    const nlohmann::json* found = Find(value, key);
    return found != nullptr && found->is_boolean() ? found->get<bool>() : defaultValue;
}

std::string DPLJSONUtils::GetStringByName(const nlohmann::json& value, const std::string& key,
                                          const std::string& defaultValue)
{
    const nlohmann::json* found = Find(value, key);
    return found != nullptr && found->is_string() ? found->get<std::string>() : defaultValue;
}

nlohmann::json DPLJSONUtils::GetObjectByName(const nlohmann::json& value, const std::string& key,
                                             const nlohmann::json& defaultValue)
{
    const nlohmann::json* found = Find(value, key);
    return found != nullptr && found->is_object() ? *found : defaultValue;
}

nlohmann::json DPLJSONUtils::GetArrayByName(const nlohmann::json& value, const std::string& key,
                                            const nlohmann::json& defaultValue)
{
    const nlohmann::json* found = Find(value, key);
    return found != nullptr && found->is_array() ? *found : defaultValue;
}

int32_t DPLJSONUtils::RequireInt(const nlohmann::json& value, const std::string& key)
{
    const nlohmann::json& found = RequireNumber(value, key);
    if (found.is_number_float())
    {
        return SaturatingCast<int32_t>(found.get<double>());
    }
    return found.is_number_unsigned() ? static_cast<int32_t>(found.get<uint64_t>())
                                      : static_cast<int32_t>(found.get<int64_t>());
}

double DPLJSONUtils::RequireDouble(const nlohmann::json& value, const std::string& key)
{
    const nlohmann::json& found = RequireNumber(value, key);
    if (found.is_number_float())
    {
        return found.get<double>();
    }
    return found.is_number_unsigned() ? static_cast<double>(found.get<uint64_t>())
                                      : static_cast<double>(found.get<int64_t>());
}

bool DPLJSONUtils::RequireBool(const nlohmann::json& value, const std::string& key)
{
    return value.at(key).get<bool>();  // type_error for anything but a boolean
}

int DPLJSONUtils::NestingDepth(const std::string& text, int limit)
{
    int depth = 0;
    int deepest = 0;
    bool inString = false;
    bool escaped = false;
    for (char c : text)
    {
        if (inString)
        {
            if (escaped)
            {
                escaped = false;
            }
            else if (c == '\\')
            {
                escaped = true;
            }
            else if (c == '"')
            {
                inString = false;
            }
            continue;
        }
        if (c == '"')
        {
            inString = true;
        }
        else if (c == '[' || c == '{')
        {
            if (++depth > deepest)
            {
                deepest = depth;
                if (deepest > limit)
                {
                    return deepest;
                }
            }
        }
        else if ((c == ']' || c == '}') && depth > 0)
        {
            --depth;
        }
    }
    return deepest;
}

DRAVResult DPLJSONUtils::Parse(const std::string& text, nlohmann::json& value)
{
    if (NestingDepth(text, kMaxNestingDepth) > kMaxNestingDepth)
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "JSON text nested deeper than %d levels",
                          kMaxNestingDepth);
    }
    nlohmann::json parsed = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
    if (parsed.is_discarded())
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "malformed JSON text");
    }
    value = std::move(parsed);
    return kDRAVResultOk;
}
