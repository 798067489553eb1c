#pragma once

#include <vector>

#include "engine/units/DRAVSourceDescriptor.h"

// The two entries of the composite test source (type 1, usage 4), which
// belong to every list of sources: "A/V Test Generator" at "AVTESTGEN_1" and
// "A/V Test Generator (2)" at "AVTESTGEN_2".
std::vector<DRAVSourceDescriptor> DRAVTestSourceDescriptors();
