#pragma once

#include <cstdint>

// The bus mixer's two inner loops, in a form for the x86-64 baseline and a
// wide (AVX2) form that gives the same bits: each wide lane does the
// arithmetic of the same narrow lane, and the partial sums are added in the
// same order. Real-time safe: no allocation, no lock.
namespace tidemix::engine::busmix
{
// out = (accumulate ? out : 0) + gain * in; returns the sum of squares of in.
float MixChannelPortable(float* __restrict out, const float* __restrict in, float gain, uint32_t frames,
                         bool accumulate);
// out *= gain; returns the sum of squares after the gain.
float ScaleChannelPortable(float* __restrict out, float gain, uint32_t frames);

// The wide forms; call them only where HasWideVectors() says so.
float MixChannelWide(float* __restrict out, const float* __restrict in, float gain, uint32_t frames,
                     bool accumulate);
float ScaleChannelWide(float* __restrict out, float gain, uint32_t frames);

bool HasWideVectors();
}  // namespace tidemix::engine::busmix
