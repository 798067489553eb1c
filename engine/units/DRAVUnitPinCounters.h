#pragma once

#include <atomic>
#include <cstdint>

#include "engine/media/DRAVMediaBuffer.h"
#include "engine/units/DRAVUnitPinStatistics.h"

// What one pin has seen, counted as the frames pass: the live form of
// DRAVUnitPinStatistics. One thread at a time analyses frames (the pin's
// producer); any thread may take a snapshot or reset, and a snapshot taken
// while a frame passes may mix that frame's counts with the former ones.
class DRAVUnitPinCounters
{
public:
    // On a device thread or the mix's thread: relaxed atomics only, no lock,
    // no allocation. Same rules as DRAVUnitPinStatistics::AnalyzeFrame.
    void AnalyzeFrame(const DRAVMediaBuffer& frame);
    DRAVUnitPinStatistics Snapshot() const;
    void Reset();

private:
    std::atomic<int64_t> frames_{0};
    std::atomic<int64_t> bytes_{0};
    std::atomic<int64_t> discontinuities_{0};
    std::atomic<int64_t> discontinuitySum_{-1};
    std::atomic<bool> hasFrame_{false};
    std::atomic<int64_t> nextExpectedTimestamp_{-1};
    std::atomic<int64_t> lastTimestamp_{-1};
};
