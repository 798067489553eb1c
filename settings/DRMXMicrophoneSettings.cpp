#include "settings/DRMXMicrophoneSettings.h"

#include "settings/DPLJSONUtils.h"
#include "settings/DRMXRecordJSON.h"

namespace DRMX_Settings
{

nlohmann::json DRMXMicrophoneSettings::ToJSONObject() const
{
    nlohmann::json value = nlohmann::json::object();
    value["Microphone Gain"] = gain;
    value["Microphone Mute"] = mute;
    value["Microphone Output Volume"] = outputVolume;
    value["Microphone Output Mute"] = outputMute;
    value["Microphone DirectMonitor Volume"] = directMonitorVolume;
    value["Microphone ClipGuard"] = clipGuard;
    value["Microphone LowCut"] = lowCut;
    value["Microphone Polarization"] = polarization;
    value["Microphone Custom Name"] = customName;
    value["Microphone Type"] = microphoneType;
    value["Microphone GainLock"] = gainLock;
    value["Microphone Led Flipped"] = ledFlipped;
    value["Microphone Dial Function"] = dialFunction;
    return value;
}

void DRMXMicrophoneSettings::FillFromJSON(const nlohmann::json& value)
{
    gain = DPLJSONUtils::RequireDouble(value, "Microphone Gain");
    mute = DPLJSONUtils::GetBoolByName(value, "Microphone Mute", false);
    outputVolume = DPLJSONUtils::RequireDouble(value, "Microphone Output Volume");
    outputMute = DPLJSONUtils::GetBoolByName(value, "Microphone Output Mute", false);
    directMonitorVolume = DPLJSONUtils::RequireDouble(value, "Microphone DirectMonitor Volume");
    clipGuard = DPLJSONUtils::RequireBool(value, "Microphone ClipGuard");
    lowCut = DPLJSONUtils::RequireBool(value, "Microphone LowCut");
    polarization = DPLJSONUtils::RequireDouble(value, "Microphone Polarization");
    customName = DPLJSONUtils::GetStringByName(value, "Microphone Custom Name", "");
    microphoneType = DPLJSONUtils::RequireInt(value, "Microphone Type");
    gainLock = DPLJSONUtils::GetBoolByName(value, "Microphone GainLock", false);
    ledFlipped = DPLJSONUtils::GetBoolByName(value, "Microphone Led Flipped", false);
    dialFunction = DPLJSONUtils::GetIntByName(value, "Microphone Dial Function", 2);
}

std::string DRMXMicrophoneSettings::ToJSON() const
{
    return DumpRecord(ToJSONObject());
}

DRAVResult DRMXMicrophoneSettings::FromJSON(const std::string& text)
{
    return RecordFromJSONText(text, *this);
}

DRAVResult DRMXMicrophoneSettings::FromJSONObject(const nlohmann::json& value)
{
    return RecordFromJSONObject(value, *this);
}

}  // namespace DRMX_Settings
