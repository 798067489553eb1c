#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "settings/DRAVJSONSerializationInterface.h"
#include "settings/DRMXSettingsTypes.h"

namespace DRMX_Settings
{

// Names one node of a mixer with its gain and mute.
class DRMXMixerNodeSelector : public DRAVJSONSerializationInterface
{
public:
    DRMXMixerNodeSelector() = default;

    std::string ToJSON() const override;
    DRAVResult FromJSON(const std::string& text) override;
    nlohmann::json ToJSONObject() const;
    DRAVResult FromJSONObject(const nlohmann::json& value);
    // Fills this record from a value; throws the JSON library's exceptions.
    void FillFromJSON(const nlohmann::json& value);

    int32_t type = kInputTypeAny;  // a DRMXInputType
    double gain = 0.0;
    bool mute = false;
    int32_t nodeId = 0;
};

}  // namespace DRMX_Settings
