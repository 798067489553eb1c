#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "settings/DRAVJSONSerializationInterface.h"

namespace DRMX_Settings
{

// What the user set on a microphone, kept so it can be written back to the
// device when it comes again.
class DRMXMicrophoneSettings : public DRAVJSONSerializationInterface
{
public:
    DRMXMicrophoneSettings() = default;

    std::string ToJSON() const override;
    DRAVResult FromJSON(const std::string& text) override;
    nlohmann::json ToJSONObject() const;
    DRAVResult FromJSONObject(const nlohmann::json& value);
    // Fills this record from a value; throws the JSON library's exceptions.
    void FillFromJSON(const nlohmann::json& value);

    double gain = 0.0;
    bool mute = false;
    double outputVolume = 0.0;
    bool outputMute = false;
    double directMonitorVolume = 0.0;
    bool clipGuard = false;
    bool lowCut = false;
    double polarization = 0.0;
    std::string customName;
    int32_t microphoneType = 0;  // a DRMXMicrophoneType
    bool gainLock = false;
    bool ledFlipped = false;
    int32_t dialFunction = 2;
};

}  // namespace DRMX_Settings
