#include "engine/units/DRAVUnitPinCounters.h"

namespace
{
constexpr auto kRelaxed = std::memory_order_relaxed;
}  // namespace

void DRAVUnitPinCounters::AnalyzeFrame(const DRAVMediaBuffer& frame)
{
    frames_.fetch_add(1, kRelaxed);
    bytes_.fetch_add(frame.GetUsedBufferSize(), kRelaxed);
    const int64_t timestamp = frame.GetTimestamp().Get();
    const int64_t duration = frame.GetDuration().Get();
    if (duration > 0)
    {
        const int64_t expected = nextExpectedTimestamp_.load(kRelaxed);
        if (expected >= 0 && DRAVUnitPinStatistics::IsDiscontinuity(expected - timestamp))
        {
            // The sum reads -1 until there is a first gap.
            const int64_t gap = expected - timestamp;
            if (discontinuities_.fetch_add(1, kRelaxed) == 0)
            {
                discontinuitySum_.store(gap, kRelaxed);
            }
            else
            {
                discontinuitySum_.fetch_add(gap, kRelaxed);
            }
        }
        nextExpectedTimestamp_.store(timestamp + duration, kRelaxed);
    }
    lastTimestamp_.store(timestamp, kRelaxed);
    hasFrame_.store(true, kRelaxed);
}

DRAVUnitPinStatistics DRAVUnitPinCounters::Snapshot() const
{
    DRAVUnitPinStatistics statistics;
    statistics.frames = frames_.load(kRelaxed);
    statistics.bytes = bytes_.load(kRelaxed);
    statistics.discontinuities = discontinuities_.load(kRelaxed);
    statistics.discontinuitySum = DRAVDuration(discontinuitySum_.load(kRelaxed));
    statistics.hasFrame = hasFrame_.load(kRelaxed);
    statistics.nextExpectedTimestamp = DRAVTimestamp(nextExpectedTimestamp_.load(kRelaxed));
    statistics.lastTimestamp = DRAVTimestamp(lastTimestamp_.load(kRelaxed));
    return statistics;
}

void DRAVUnitPinCounters::Reset()
{
    frames_.store(0, kRelaxed);
    bytes_.store(0, kRelaxed);
    discontinuities_.store(0, kRelaxed);
    discontinuitySum_.store(-1, kRelaxed);
    hasFrame_.store(false, kRelaxed);
    nextExpectedTimestamp_.store(-1, kRelaxed);
    lastTimestamp_.store(-1, kRelaxed);
}
