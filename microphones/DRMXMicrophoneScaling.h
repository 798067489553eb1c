#pragma once

#include <cstdint>
#include <list>

#include "microphones/DRMXBucketNormalizationService.h"

// Raw block values to the 0.0..1.0 values of the rest of the system and
// back. The device's firmware computes in 32-bit float, so these do too.
// Writes saturate at the raw field's range and take NaN as 0.0, so that
// any double gives a defined raw value.
namespace DRMXMicrophoneScaling
{
// The output volume's sample points, for both models.
const std::list<double>& OutputVolumeSamples();

double GainFromRaw(short raw);
short GainToRaw(double value);
double DirectMonitorFromRaw(short raw);
short DirectMonitorToRaw(double value);
double PolarizationFromRaw(unsigned char raw);
unsigned char PolarizationToRaw(double value);
// Reed 1 and Reed 3 read through the bucket table; the Reed Pro reads on a
// straight line from -15360 to 0. Both write through the table.
double OutputVolumeFromRawBuckets(const DRMXBucketNormalizationService& buckets, short raw);
double OutputVolumeFromRawLinear(short raw);
short OutputVolumeToRaw(const DRMXBucketNormalizationService& buckets, double value);

// The integer part of value, held within the range of the raw field; NaN gives 0.
short SaturatedInt16(float value);
unsigned char SaturatedUInt8(float value);
}  // namespace DRMXMicrophoneScaling
