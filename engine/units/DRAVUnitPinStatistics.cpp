#include "engine/units/DRAVUnitPinStatistics.h"

#include <cstdio>

void DRAVUnitPinStatistics::AnalyzeFrame(const std::shared_ptr<DRAVMediaBuffer>& frame)
{
    if (!frame)
    {
        return;
    }
    ++frames;
    bytes += frame->GetUsedBufferSize();
    const DRAVTimestamp timestamp = frame->GetTimestamp();
    const DRAVDuration duration = frame->GetDuration();
    if (duration.Get() > 0)
    {
        if (nextExpectedTimestamp.Get() >= 0)
        {
            const int64_t gap = (nextExpectedTimestamp - timestamp).Get();
            if (IsDiscontinuity(gap))
            {
                ++discontinuities;
                // The sum reads -1 until there is a first gap.
                discontinuitySum =
                    discontinuities == 1 ? DRAVDuration(gap) : discontinuitySum + DRAVDuration(gap);
            }
        }
        nextExpectedTimestamp = timestamp + duration;
    }
    lastTimestamp = timestamp;
    hasFrame = true;
}

void DRAVUnitPinStatistics::Reset()
{
    frames = 0;
    bytes = 0;
    discontinuities = 0;
    discontinuitySum = DRAVDuration(-1);
    hasFrame = false;
    nextExpectedTimestamp = DRAVTimestamp(-1);
    lastTimestamp = DRAVTimestamp(-1);
}

std::string DRAVUnitPinStatistics::ToString() const
{
    char text[256];
    std::snprintf(text, sizeof(text),
                  "frames %lld, bytes %lld, discontinuities %lld (sum %lld us), last %lld",
                  static_cast<long long>(frames), static_cast<long long>(bytes),
                  static_cast<long long>(discontinuities), static_cast<long long>(discontinuitySum.Get()),
                  static_cast<long long>(lastTimestamp.Get()));
    return text;
}
