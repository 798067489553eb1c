#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "portable-core/DRAVResult.h"

// Tolerant getters: a value that is no object, a missing key or a value of
// another JSON type gives the default. Never throws.
class DPLJSONUtils
{
public:
    // Signed or unsigned integer, cut to 32 bits; a float gives the default.
    static int32_t GetIntByName(const nlohmann::json& value, const std::string& key, int32_t defaultValue);
    // Unsigned integer only: a negative number or a float gives the default.
    static uint32_t GetUnsignedIntByName(const nlohmann::json& value, const std::string& key,
                                         uint32_t defaultValue);
    // Float or either integer. Values beyond the float range saturate.
    static float GetFloatByName(const nlohmann::json& value, const std::string& key, float defaultValue);
    static bool GetBoolByName(const nlohmann::json& value, const std::string& key, bool defaultValue);
    static std::string GetStringByName(const nlohmann::json& value, const std::string& key,
                                       const std::string& defaultValue);
    static nlohmann::json GetObjectByName(const nlohmann::json& value, const std::string& key,
                                          const nlohmann::json& defaultValue);
    static nlohmann::json GetArrayByName(const nlohmann::json& value, const std::string& key,
                                         const nlohmann::json& defaultValue);

    // Readers of required keys: a missing key or a value that is no number
    // throws the JSON library's own exceptions. Floats are truncated toward
    // zero and saturate at the type's limits; integers are cut to 32 bits.
    static int32_t RequireInt(const nlohmann::json& value, const std::string& key);
    static double RequireDouble(const nlohmann::json& value, const std::string& key);
    static bool RequireBool(const nlohmann::json& value, const std::string& key);

    // Nesting deeper than this is refused before parsing: deep documents
    // would cost recursion in copies, dumps and destruction.
    static constexpr int kMaxNestingDepth = 64;

    // Parses a text into a value; "ErrInvalidParameter" for a malformed text
    // or one nested deeper than kMaxNestingDepth. Never throws.
    static DRAVResult Parse(const std::string& text, nlohmann::json& value);
    // The nesting depth of a JSON text's arrays and objects, brackets inside
    // strings not counted; stops counting past limit.
    static int NestingDepth(const std::string& text, int limit);
};
