#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>

#include "settings/DRAVJSONSerializationInterface.h"
#include "settings/DRMXSettingsTypes.h"

namespace DRMX_Settings
{

// Names one input of a mixer: a device or an application, with what the user
// set for its node. Compared by inputId alone, which always equals the
// hardware id's input id.
class DRMXInputSelector : public DRAVJSONSerializationInterface
{
public:
    DRMXInputSelector() = default;

    DRMXInputType GetType() const { return type; }
    void SetType(DRMXInputType newType) { type = newType; }
    const std::string& GetName() const { return name; }
    // Also derives inputId from the current hardware id once more.
    void SetName(const std::string& newName);
    const std::string& GetDevicePath() const { return devicePath; }
    void SetDevicePath(const std::string& path) { devicePath = path; }
    const std::string& GetHardwareId() const { return hardwareId; }
    // Assigns hardwareId and inputId together.
    void SetHardwareId(const std::string& id);
    uint32_t GetVendorId() const { return vendorId; }
    void SetVendorId(uint32_t id) { vendorId = id; }
    uint32_t GetProductId() const { return productId; }
    void SetProductId(uint32_t id) { productId = id; }
    int32_t GetMixerNodeId() const { return mixerNodeId; }
    void SetMixerNodeID(int32_t id) { mixerNodeId = id; }
    int64_t GetFWVersion() const { return fwVersion; }
    void SetFWVersion(int64_t version) { fwVersion = version; }
    // The custom name if there is one, else the short name.
    std::string GetCustomName() const;
    void SetCustomName(const std::string& newName) { customName = newName; }
    bool GetLinked() const { return linked; }
    void SetLinked(bool value) { linked = value; }
    double GetLinkedDelta() const { return linkedDelta; }
    void SetLinkedDelta(double value) { linkedDelta = value; }
    bool GetIsDefault() const { return isDefault; }
    void SetIsDefault(bool value) { isDefault = value; }
    const std::string& GetInputID() const { return inputId; }

    // The name a virtual channel shows: "Tidemix Music (Left)" shows as
    // "Music". Other types keep their name.
    std::string GetNameShort() const;
    bool IsDrovaneMicrophone() const;
    // For application audio the answer of the installed-application check
    // (when one is set), otherwise the available field.
    bool GetIsAvailable() const;

    bool operator==(const DRMXInputSelector& other) const { return inputId == other.inputId; }
    bool operator!=(const DRMXInputSelector& other) const { return !(*this == other); }

    static std::string getInputIdFromHardwareId(const std::string& id) { return id; }
    // The same input, whatever mixer it stands in.
    static bool EqualsMixerTypeUnspecifically(const DRMXInputSelector& a, const DRMXInputSelector& b);

    // Who answers GetIsAvailable for application audio. The application
    // audio observer lives above this layer and sets it; null clears it.
    using AppAudioAvailabilityCheck = std::function<bool(const DRMXInputSelector&)>;
    static void SetAppAudioAvailabilityCheck(AppAudioAvailabilityCheck check);

    std::string ToJSON() const override;
    DRAVResult FromJSON(const std::string& text) override;
    nlohmann::json ToJSONObject() const;
    DRAVResult FromJSONObject(const nlohmann::json& value);
    // Fills this record from a value; throws the JSON library's exceptions.
    void FillFromJSON(const nlohmann::json& value);

    DRMXInputType type = kInputTypeAny;
    std::string devicePath;  // not persisted
    int64_t fwVersion = 0;
    uint32_t vendorId = 0;
    uint32_t productId = 0;
    int32_t mixerNodeId = -1;
    double gain = 0.0;
    bool mute = false;
    std::string customName;
    bool linked = false;
    bool available = true;
    double linkedDelta = 0.0;
    bool isDefault = false;

private:
    std::string name;
    std::string hardwareId;
    std::string inputId;
};

}  // namespace DRMX_Settings
