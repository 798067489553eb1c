#pragma once

#include <cstdint>
#include <string>
#include <vector>

// What a unit is, in plain values that stay valid after the unit has gone.
struct DRAVUnitDescriptor
{
    static constexpr int32_t kUnitKindUnknown = -1;
    static constexpr int32_t kUnitKindPipeline = 0;
    static constexpr int32_t kUnitKindSource = 1;
    static constexpr int32_t kUnitKindSink = 2;
    static constexpr int32_t kUnitKindFilter = 3;

    std::string friendlyName;
    int32_t unitKind = kUnitKindUnknown;
    std::string objectId;
    bool hasOwner = false;
    std::string ownerName;
    std::string ownerId;

    // The registered units that this one owns, as the engine manager knows them.
    std::vector<DRAVUnitDescriptor> GetSiblings() const;

    bool operator==(const DRAVUnitDescriptor&) const = default;
};
