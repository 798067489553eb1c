#include "settings/DRMXMixerNodeSelector.h"

#include "settings/DPLJSONUtils.h"
#include "settings/DRMXRecordJSON.h"

namespace DRMX_Settings
{

nlohmann::json DRMXMixerNodeSelector::ToJSONObject() const
{
    nlohmann::json value = nlohmann::json::object();
    value["nodeInputType"] = type;
    value["nodeID"] = nodeId;
    value["nodeGain"] = gain;
    value["nodeMute"] = mute;
    return value;
}

void DRMXMixerNodeSelector::FillFromJSON(const nlohmann::json& value)
{
    type = DPLJSONUtils::RequireInt(value, "nodeInputType");
    nodeId = DPLJSONUtils::RequireInt(value, "nodeID");
    gain = DPLJSONUtils::RequireDouble(value, "nodeGain");
    mute = DPLJSONUtils::GetBoolByName(value, "nodeMute", false);
}

std::string DRMXMixerNodeSelector::ToJSON() const
{
    return DumpRecord(ToJSONObject());
}

DRAVResult DRMXMixerNodeSelector::FromJSON(const std::string& text)
{
    return RecordFromJSONText(text, *this);
}

DRAVResult DRMXMixerNodeSelector::FromJSONObject(const nlohmann::json& value)
{
    return RecordFromJSONObject(value, *this);
}

}  // namespace DRMX_Settings
