#pragma once

#include <cstdint>

#include "engine/units/DRAVUnitDescriptor.h"

// A sink as the engine manager lists it.
struct DRAVSinkDescriptor : DRAVUnitDescriptor
{
    int32_t type = 0;
    bool useDefaultRouting = false;

    bool operator==(const DRAVSinkDescriptor&) const = default;
};
