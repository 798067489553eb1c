#include "settings/DRMXOutputSelector.h"

#include "settings/DPLJSONUtils.h"
#include "settings/DRMXRecordJSON.h"

namespace DRMX_Settings
{

nlohmann::json DRMXOutputSelector::ToJSONObject() const
{
    nlohmann::json value = nlohmann::json::object();
    value["outputType"] = static_cast<int32_t>(type);
    value["outputHardwareId"] = hardwareId;
    value["outputTerminalType"] = static_cast<int32_t>(terminalType);
    value["outputLevel"] = level;
    value["outputMute"] = mute;
    value["outputVendorId"] = vendorId;
    value["outputProductId"] = productId;
    return value;
}

void DRMXOutputSelector::FillFromJSON(const nlohmann::json& value)
{
    type = static_cast<DRMXOutputType>(DPLJSONUtils::RequireInt(value, "outputType"));
    SetHardwareId(DPLJSONUtils::GetStringByName(value, "outputHardwareId", ""));
    terminalType = static_cast<DRMXOutputTerminalType>(DPLJSONUtils::RequireInt(value, "outputTerminalType"));
    level = DPLJSONUtils::GetFloatByName(value, "outputLevel", 0.0f);
    mute = DPLJSONUtils::GetBoolByName(value, "outputMute", false);
    vendorId = static_cast<uint32_t>(DPLJSONUtils::GetIntByName(value, "outputVendorId", 0));
    productId = static_cast<uint32_t>(DPLJSONUtils::GetIntByName(value, "outputProductId", 0));
}

std::string DRMXOutputSelector::ToJSON() const
{
    return DumpRecord(ToJSONObject());
}

DRAVResult DRMXOutputSelector::FromJSON(const std::string& text)
{
    return RecordFromJSONText(text, *this);
}

DRAVResult DRMXOutputSelector::FromJSONObject(const nlohmann::json& value)
{
    return RecordFromJSONObject(value, *this);
}

}  // namespace DRMX_Settings
