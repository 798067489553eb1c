#include "microphones/DRMXMicrophoneScaling.h"

#include <cmath>

namespace DRMXMicrophoneScaling
{
namespace
{
constexpr float kGainScale = 10240.0f;
constexpr float kDirectMonitorZero = 25600.0f;
constexpr float kPolarizationScale = 100.0f;
constexpr float kLinearOutputVolumeSpan = 15360.0f;

// A NaN value counts as 0.0, never as whatever raw value NaN would give.
float ValueOf(double value)
{
    return std::isnan(value) ? 0.0f : static_cast<float>(value);
}
}  // namespace

const std::list<double>& OutputVolumeSamples()
{
    static const std::list<double> samples{-32768, -13824, -8704, -6528, -5248, -4224, -3328,
                                           -2688,  -2048,  -1536, -1152, -768,  -384,  0};
    return samples;
}

short SaturatedInt16(float value)
{
    if (std::isnan(value))
    {
        return 0;
    }
    if (value <= -32768.0f)
    {
        return -32768;
    }
    if (value >= 32767.0f)
    {
        return 32767;
    }
    return static_cast<short>(value);
}

unsigned char SaturatedUInt8(float value)
{
    if (std::isnan(value) || value <= 0.0f)
    {
        return 0;
    }
    if (value >= 255.0f)
    {
        return 255;
    }
    return static_cast<unsigned char>(value);
}

double GainFromRaw(short raw)
{
    return static_cast<float>(raw) / kGainScale;
}

short GainToRaw(double value)
{
    return SaturatedInt16(ValueOf(value) * kGainScale);
}

double DirectMonitorFromRaw(short raw)
{
    return (static_cast<float>(raw) - kDirectMonitorZero) / -kDirectMonitorZero;
}

short DirectMonitorToRaw(double value)
{
    // Truncated before the offset is added, as the device expects.
    const float scaled = std::trunc(ValueOf(value) * -kDirectMonitorZero);
    return SaturatedInt16(scaled + kDirectMonitorZero);
}

double PolarizationFromRaw(unsigned char raw)
{
    return static_cast<float>(raw) / kPolarizationScale;
}

unsigned char PolarizationToRaw(double value)
{
    return SaturatedUInt8(ValueOf(value) * kPolarizationScale);
}

double OutputVolumeFromRawBuckets(const DRMXBucketNormalizationService& buckets, short raw)
{
    return buckets.GetNormalized(raw);
}

double OutputVolumeFromRawLinear(short raw)
{
    return (static_cast<float>(raw) + kLinearOutputVolumeSpan) / kLinearOutputVolumeSpan;
}

short OutputVolumeToRaw(const DRMXBucketNormalizationService& buckets, double value)
{
    return SaturatedInt16(static_cast<float>(buckets.GetDeNormalized(value)));
}

}  // namespace DRMXMicrophoneScaling
