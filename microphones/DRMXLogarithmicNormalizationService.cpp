#include "microphones/DRMXLogarithmicNormalizationService.h"

#include <algorithm>
#include <cmath>

#include "portable-core/BreakIntoDebugger.h"

DRMXLogarithmicNormalizationService::DRMXLogarithmicNormalizationService(double lower, double upper,
                                                                         int steps, int stepsBelow,
                                                                         int stepsAbove)
{
    // Written so that NaN bounds fail the test as well.
    if (!(lower > 0.0) || !(upper > lower) || std::isinf(upper))
    {
        BreakIntoDebugger();
        lower = 1.0;
        upper = 10.0;
    }
    if (steps < 2)
    {
        BreakIntoDebugger();
        steps = 2;
    }
    if (stepsBelow < 0 || stepsAbove < 0)
    {
        BreakIntoDebugger();
        stepsBelow = std::max(stepsBelow, 0);
        stepsAbove = std::max(stepsAbove, 0);
    }
    ComputeNormalizationBounds(lower, upper, steps, stepsBelow, stepsAbove);
}

void DRMXLogarithmicNormalizationService::ComputeNormalizationBounds(double lower, double upper, int steps,
                                                                     int stepsBelow, int stepsAbove)
{
    lowerLog_ = std::log(lower);
    upperLog_ = std::log(upper);
    if (stepsBelow > 0 || stepsAbove > 0)
    {
        const double delta = (upperLog_ - lowerLog_) / (steps - 1);
        lowerLog_ -= stepsBelow * delta;
        upperLog_ += stepsAbove * delta;
    }
}

double DRMXLogarithmicNormalizationService::GetNormalized(double value) const
{
    if (std::isnan(value) || value <= 0.0)
    {
        return 0.0;
    }
    const double clamped = std::min(std::max(std::log(value), lowerLog_), upperLog_);
    return (clamped - lowerLog_) / (upperLog_ - lowerLog_);
}

double DRMXLogarithmicNormalizationService::GetDeNormalized(double value) const
{
    const double y = std::isnan(value) ? 0.0 : std::clamp(value, 0.0, 1.0);
    return std::exp(lowerLog_ + (upperLog_ - lowerLog_) * y);
}
