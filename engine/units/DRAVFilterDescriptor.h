#pragma once

#include <cstdint>

#include "engine/units/DRAVUnitDescriptor.h"

// A filter as the engine manager lists it.
struct DRAVFilterDescriptor : DRAVUnitDescriptor
{
    int32_t type = 0;

    bool operator==(const DRAVFilterDescriptor&) const = default;
};
