#include "settings/DRMXDefaultAppAudioInputs.h"

#include <nlohmann/json.hpp>

DRAVResult DRMXDefaultAppAudioInputs::Parse(const std::string& text, std::vector<Entry>& entries)
{
    entries.clear();
    const nlohmann::json document = nlohmann::json::parse(text, nullptr, false);
    if (document.is_discarded() || !document.is_object())
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "not a JSON object");
    }
    const auto inputs = document.find("inputs");
    if (inputs == document.end() || !inputs->is_array())
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "\"inputs\" is no array");
    }
    for (const nlohmann::json& item : *inputs)
    {
        if (!item.is_object())
        {
            continue;
        }
        Entry entry;
        if (const auto url = item.find("urlToOpenDefaultApp"); url != item.end() && url->is_string())
        {
            entry.urlToOpenDefaultApp = url->get<std::string>();
        }
        if (const auto ids = item.find("bundleIDs"); ids != item.end() && ids->is_array())
        {
            for (const nlohmann::json& id : *ids)
            {
                if (id.is_string() && !id.get_ref<const std::string&>().empty())
                {
                    entry.bundleIDs.push_back(id.get<std::string>());
                }
            }
        }
        entries.push_back(std::move(entry));
    }
    return DRAVResult(kDRAVResultOk);
}
