#pragma once

#include <string>

#include "portable-core/json/TJSON.h"
#include "settings/DRAVJSONSerializationInterface.h"

// Per-device settings of a video capture source. This system decides nothing
// by them; the entry is kept whole, so that it is written back unchanged.
class DRAVEngineSourceSettings : public DRAVJSONSerializationInterface
{
public:
    static constexpr const char* kDeviceIdKey = "sourceDeviceId";

    DRAVEngineSourceSettings() = default;
    DRAVEngineSourceSettings(const DRAVEngineSourceSettings& other);
    DRAVEngineSourceSettings& operator=(const DRAVEngineSourceSettings& other);

    std::string ToJSON() const override;
    DRAVResult FromJSON(const std::string& text) override;
    TJSON ToDocument() const { return entries_.Copy(); }
    DRAVResult FromDocument(const TJSON& json);

    std::string GetId() const;
    void SetId(const std::string& id);

    bool operator==(const DRAVEngineSourceSettings& other) const { return entries_ == other.entries_; }
    bool operator!=(const DRAVEngineSourceSettings& other) const { return !(*this == other); }

private:
    TJSON entries_;  // an object, never shared with another record
};
