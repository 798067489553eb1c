#pragma once

#include <cstdint>

// Vector forms of the two conversions on the road to and from 16-bit devices.
// Each gives bit for bit what the per-sample code gives (the quantizer's
// QuantizeSample, the converter family's 16-bit → float); the tests compare
// them over every 16-bit value and the edges of the float range. Buffers may
// be unaligned. No allocation, no lock: audio thread safe.
namespace SampleFastPaths
{
// True when this processor runs the wide (AVX2) forms; the others are plain
// loops the compiler vectorises for the x86-64 baseline.
bool HasWideVectors();

// Float → 16-bit as JTXFFloatShortQuantizer defines it, byte-swapped when asked.
void QuantizeFloatToInt16(uint8_t* dest, const uint8_t* source, int samples, bool swap);

// Native 16-bit → float as the converter family defines it: (2v + 1) / 65535.
void Int16ToFloat(uint8_t* dest, const uint8_t* source, int samples);
}  // namespace SampleFastPaths
