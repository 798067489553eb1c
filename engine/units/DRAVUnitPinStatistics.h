#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "engine/media/DRAVMediaBuffer.h"
#include "portable-core/DRAVTime.h"

// What one pin has seen: frames, bytes and gaps between time stamps.
struct DRAVUnitPinStatistics
{
    int64_t frames = 0;
    int64_t bytes = 0;
    int64_t discontinuities = 0;
    DRAVDuration discontinuitySum{-1};
    bool hasFrame = false;
    DRAVTimestamp nextExpectedTimestamp{-1};
    DRAVTimestamp lastTimestamp{-1};

    // Counts the frame; a time stamp that misses the previous frame's end by
    // more than one microsecond counts as a discontinuity. A null frame is
    // ignored.
    void AnalyzeFrame(const std::shared_ptr<DRAVMediaBuffer>& frame);
    // Rounding of durations to whole microseconds may leave one either way.
    static bool IsDiscontinuity(int64_t gapUsec) { return gapUsec < -1 || gapUsec > 1; }
    void Reset();
    std::string ToString() const;
};
