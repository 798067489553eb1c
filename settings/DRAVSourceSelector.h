#pragma once

#include <cstdint>
#include <string>

#include "portable-core/json/TJSON.h"
#include "settings/DRAVJSONSerializationInterface.h"

// Names a capture source of the engine by kind, use and device path.
class DRAVSourceSelector : public DRAVJSONSerializationInterface
{
public:
    DRAVSourceSelector() = default;
    DRAVSourceSelector(int32_t deviceType, int32_t usageType, std::string devicePath);

    std::string ToJSON() const override;
    DRAVResult FromJSON(const std::string& text) override;
    TJSON ToDocument() const;
    // Keeps every field whose key is missing, null or holds a negative number.
    DRAVResult FromDocument(const TJSON& json);

    bool operator==(const DRAVSourceSelector& other) const;
    bool operator!=(const DRAVSourceSelector& other) const { return !(*this == other); }

    int32_t deviceType = 1;
    int32_t usageType = 1;
    std::string devicePath;
};
