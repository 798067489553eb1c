#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "settings/DRAVJSONSerializationInterface.h"
#include "settings/DRMXSettingsTypes.h"

namespace DRMX_Settings
{

// Names the output device of a mixer and what the user set for it. Compared
// by outputId alone.
class DRMXOutputSelector : public DRAVJSONSerializationInterface
{
public:
    DRMXOutputSelector() = default;

    DRMXOutputType GetType() const { return type; }
    void SetType(DRMXOutputType newType) { type = newType; }
    DRMXOutputTerminalType GetTerminalType() const { return terminalType; }
    void SetTerminalType(DRMXOutputTerminalType terminal) { terminalType = terminal; }
    const std::string& GetName() const { return name; }
    void SetName(const std::string& newName) { name = newName; }
    const std::string& GetDevicePath() const { return devicePath; }
    void SetDevicePath(const std::string& path) { devicePath = path; }
    const std::string& GetHardwareId() const { return hardwareId; }
    // Assigns hardwareId and outputId together.
    void SetHardwareId(const std::string& id)
    {
        hardwareId = id;
        outputId = id;
    }
    uint32_t GetVendorId() const { return vendorId; }
    void SetVendorId(uint32_t id) { vendorId = id; }
    uint32_t GetProductId() const { return productId; }
    void SetProductId(uint32_t id) { productId = id; }
    int32_t GetMixerNodeId() const { return mixerNodeId; }
    void SetMixerNodeID(int32_t id) { mixerNodeId = id; }
    const std::string& GetOutputId() const { return outputId; }
    bool IsDrovaneMicrophone() const { return IsDrovaneRuntimeProduct(vendorId, productId); }

    bool operator==(const DRMXOutputSelector& other) const { return outputId == other.outputId; }
    bool operator!=(const DRMXOutputSelector& other) const { return !(*this == other); }

    std::string ToJSON() const override;
    DRAVResult FromJSON(const std::string& text) override;
    nlohmann::json ToJSONObject() const;
    DRAVResult FromJSONObject(const nlohmann::json& value);
    // Fills this record from a value; throws the JSON library's exceptions.
    void FillFromJSON(const nlohmann::json& value);

    DRMXOutputType type = kOutputTypeAny;
    std::string name;        // not persisted
    std::string devicePath;  // not persisted
    uint32_t productId = 0;
    uint32_t vendorId = 0;
    int32_t mixerNodeId = 0;  // not persisted
    DRMXOutputTerminalType terminalType = kTerminalUnknown;
    double level = 0.0;
    bool mute = false;
    bool isDefaultOutput = false;  // set on enumeration; not persisted

private:
    std::string hardwareId;
    std::string outputId;
};

}  // namespace DRMX_Settings
