#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "portable-core/DRAVResult.h"
#include "settings/DPLJSONUtils.h"

namespace DRMX_Settings
{

// The shared FromJSON of the records: parse, fill a new record, and only on
// success assign it. The JSON library's errors (and InvalidSettingsException)
// become "ErrInvalidParameter"; other exceptions pass through.
// Indent of 4, keys in byte order. Text that isn't valid UTF-8 (a device name
// can be anything) is written with replacement characters instead of throwing.
inline std::string DumpRecord(const nlohmann::json& value)
{
    return value.dump(4, ' ', false, nlohmann::json::error_handler_t::replace);
}

template <typename Record>
DRAVResult RecordFromJSONObject(const nlohmann::json& value, Record& target)
{
    try
    {
        Record fresh;
        fresh.FillFromJSON(value);
        target = std::move(fresh);
        return kDRAVResultOk;
    }
    catch (const nlohmann::detail::exception& error)
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "%s", error.what());
    }
}

template <typename Record>
DRAVResult RecordFromJSONText(const std::string& text, Record& target)
{
    nlohmann::json value;
    DRAVResult parsed = DPLJSONUtils::Parse(text, value);
    if (!parsed.Succeeded())
    {
        return parsed;
    }
    return RecordFromJSONObject(value, target);
}

}  // namespace DRMX_Settings
