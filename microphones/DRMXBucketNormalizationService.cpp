#include "microphones/DRMXBucketNormalizationService.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "microphones/DRMXNormalizedValue.h"
#include "portable-core/BreakIntoDebugger.h"

namespace
{
// A normalized value this close to a point's place is on the point.
constexpr double kOnPointThreshold = 0.0001;

// The integer part, saturated, so a huge or NaN sample can't overflow the cast.
int64_t Truncated(double value)
{
    if (std::isnan(value))
    {
        return 0;
    }
    if (value >= 9.2e18)
    {
        return INT64_MAX;
    }
    if (value <= -9.2e18)
    {
        return INT64_MIN;
    }
    return static_cast<int64_t>(value);
}
}  // namespace

DRMXBucketNormalizationService::DRMXBucketNormalizationService(const std::list<double>& samples)
{
    if (CheckSampleList(samples))
    {
        samples_.assign(samples.begin(), samples.end());
    }
    else
    {
        BreakIntoDebugger();
        samples_ = {0.0, 1.0};
    }
}

bool DRMXBucketNormalizationService::CheckSampleList(const std::list<double>& samples)
{
    if (samples.size() < 2)
    {
        return false;
    }
    auto previous = samples.begin();
    for (auto it = std::next(previous); it != samples.end(); ++it, ++previous)
    {
        if (!(Truncated(*it) > Truncated(*previous)))
        {
            return false;
        }
    }
    return true;
}

double DRMXBucketNormalizationService::GetNormalized(double value) const
{
    if (std::isnan(value) || value <= samples_.front())
    {
        return 0.0;
    }
    const size_t buckets = samples_.size() - 1;
    for (size_t i = 0; i < buckets; ++i)
    {
        if (value <= samples_[i + 1])
        {
            const double inBucket = (value - samples_[i]) / (samples_[i + 1] - samples_[i]);
            return cutToNormalizedValue((static_cast<double>(i) + inBucket) / static_cast<double>(buckets));
        }
    }
    return 1.0;
}

double DRMXBucketNormalizationService::GetDeNormalized(double value) const
{
    if (std::isnan(value) || value <= 0.0)
    {
        return samples_.front();
    }
    if (value >= 1.0)
    {
        return samples_.back();
    }
    const size_t buckets = samples_.size() - 1;
    const double width = 1.0 / static_cast<double>(buckets);
    // A value within the threshold of a point's place gives the point
    // exactly, from either side: rounding must not move a stored level.
    const double position = value * static_cast<double>(buckets);
    const double nearest = std::round(position);
    if (std::fabs(value - nearest * width) < kOnPointThreshold)
    {
        return samples_[static_cast<size_t>(nearest)];
    }
    const auto i = std::min(static_cast<size_t>(position), buckets - 1);
    const double lower = static_cast<double>(i) * width;
    return samples_[i] + (samples_[i + 1] - samples_[i]) * (value - lower) / width;
}
