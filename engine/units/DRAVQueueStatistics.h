#pragma once

#include <cstdint>
#include <string>

#include "engine/units/DRAVPinType.h"
#include "portable-core/DRAVTime.h"

// What a queue tells about itself for diagnostics.
struct DRAVQueueStatistics
{
    DRAVPinType pinType = kDRAVPinTypeNone;
    bool isInput = false;
    int32_t pinNumber = 0;
    double framesPerSecond = 0.0;
    int64_t buffers = 0;
    int64_t bytes = 0;
    int64_t maxBuffers = 0;
    int64_t maxBytes = 0;
    // Read by the processor's drift check only.
    int64_t streamPositionUsec = 0;
    DRAVTimestamp firstTimestamp{-1};
    DRAVTimestamp lastTimestamp{-1};
    int64_t reserved = 0;

    // Two lines: counts, then the time span held.
    std::string GetContentString(const std::string& prefix) const;
};
