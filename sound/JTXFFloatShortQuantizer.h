#pragma once

#include <cstdint>

#include "sound/CSampleFunnel.h"

// Float to 16-bit for the road to 16-bit devices. Unlike the converter
// family it clamps, and scales by 32767 with no offset: at or below -1 gives
// -32768, above 1 gives 32767, anything between is truncated from
// s × 32767 computed in double. NaN gives 0. No filter is applied.
class JTXFFloatShortQuantizer final : public CSampleFunnel
{
public:
    // The error thrown (as an int) for a sample count that is not a whole
    // number of frames.
    static constexpr int kParameterError = -50;

    JTXFFloatShortQuantizer(int channels, bool swap);
    ~JTXFFloatShortQuantizer() override;

    // Throws kParameterError unless `samples` is a non-negative multiple of
    // the channel count (and that count is positive). Returns the frame count.
    int FunnelBuffer(void* dest, const void* source, int samples) override;

    int GetChannels() const { return fChannels; }
    bool GetSwap() const { return fSwap; }

    // One sample, the reference for the four-at-a-time and vector paths.
    static int16_t QuantizeSample(float s);
    // The plain loop and the four-at-a-time loop (FunnelBuffer's path where
    // the wide vector form is missing); the results are the same.
    static void QuantizeScalar(int16_t* dest, const float* source, int samples, bool swap);
    static void QuantizeFourAtATime(int16_t* dest, const float* source, int samples, bool swap);

private:
    int32_t fChannels;
    bool fSwap;
};
