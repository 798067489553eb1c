#pragma once

#include <memory>

#include "engine/units/DRAVFilter.h"

// The engine's own filters by type: 9 DRAVFilterDelay, 10 DRAVAudioLevelmeter.
// The other known types (1 processor, 6 audio converter, 8 PCM mixer) have no
// class here yet and, like unknown types, give null. The filter is neither
// initialised nor registered anywhere.
std::shared_ptr<DRAVFilter> DRAVCreateEngineFilter(const DRAVFilterConfig& config);
