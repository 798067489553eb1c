#include "engine/devices/BusMixKernels.h"

#include <cstring>

#if defined(__x86_64__) && defined(__GNUC__)
#define TIDEMIX_BUSMIX_WIDE_VECTORS 1
#endif

namespace tidemix::engine::busmix
{
namespace
{
constexpr uint32_t kChunk = 16;

// The hot loops use the compiler's vector extension on 4-float lanes (SSE,
// the x86-64 baseline; NEON elsewhere), four lanes per chunk of 16 frames (four
// separate sums of squares, so the additions don't wait on each other) and a
// scalar tail. Left to itself g++ either keeps them scalar (a trip count known
// only at run time) or vectorises the chunked form across the partial sums
// with costly shuffles; explicit lanes avoid both.
using Lanes = float __attribute__((vector_size(16)));

inline Lanes Load(const float* p)
{
    Lanes v;
    std::memcpy(&v, p, sizeof(v));
    return v;
}

inline void Store(float* p, Lanes v)
{
    std::memcpy(p, &v, sizeof(v));
}

inline float Sum(Lanes v)
{
    return (v[0] + v[1]) + (v[2] + v[3]);
}

}  // namespace

// out = (accumulate ? out : 0) + gain * in; returns the sum of squares of in.
float MixChannelPortable(float* __restrict out, const float* __restrict in, float gain, uint32_t frames,
                         bool accumulate)
{
    Lanes energy[4] = {};
    const uint32_t whole = frames / kChunk * kChunk;
    float tailEnergy = 0.0f;
    if (accumulate)
    {
        for (uint32_t i = 0; i < whole; i += kChunk)
        {
            for (uint32_t k = 0; k < 4; ++k)
            {
                const Lanes x = Load(in + i + 4 * k);
                energy[k] += x * x;
                Store(out + i + 4 * k, Load(out + i + 4 * k) + gain * x);
            }
        }
        for (uint32_t i = whole; i < frames; ++i)
        {
            tailEnergy += in[i] * in[i];
            out[i] += gain * in[i];
        }
    }
    else
    {
        for (uint32_t i = 0; i < whole; i += kChunk)
        {
            for (uint32_t k = 0; k < 4; ++k)
            {
                const Lanes x = Load(in + i + 4 * k);
                energy[k] += x * x;
                Store(out + i + 4 * k, gain * x);
            }
        }
        for (uint32_t i = whole; i < frames; ++i)
        {
            tailEnergy += in[i] * in[i];
            out[i] = gain * in[i];
        }
    }
    return Sum((energy[0] + energy[1]) + (energy[2] + energy[3])) + tailEnergy;
}

// out *= gain; returns the sum of squares after the gain.
float ScaleChannelPortable(float* __restrict out, float gain, uint32_t frames)
{
    Lanes energy[4] = {};
    const uint32_t whole = frames / kChunk * kChunk;
    float tailEnergy = 0.0f;
    for (uint32_t i = 0; i < whole; i += kChunk)
    {
        for (uint32_t k = 0; k < 4; ++k)
        {
            const Lanes y = gain * Load(out + i + 4 * k);
            Store(out + i + 4 * k, y);
            energy[k] += y * y;
        }
    }
    for (uint32_t i = whole; i < frames; ++i)
    {
        out[i] *= gain;
        tailEnergy += out[i] * out[i];
    }
    return Sum((energy[0] + energy[1]) + (energy[2] + energy[3])) + tailEnergy;
}

#ifdef TIDEMIX_BUSMIX_WIDE_VECTORS
namespace
{
// Eight lanes hold two of the narrow form's four-lane sums side by side:
// lanes 0-3 of energy[0] are the narrow energy[0], lanes 4-7 its energy[1].
using WideLanes = float __attribute__((vector_size(32)));

// The narrow form's final sum of its four partial sums.
__attribute__((target("avx2"))) inline float SumLikeNarrow(const WideLanes (&energy)[2])
{
    Lanes part[4];
    std::memcpy(&part[0], &energy[0], sizeof(Lanes) * 2);
    std::memcpy(&part[2], &energy[1], sizeof(Lanes) * 2);
    return Sum((part[0] + part[1]) + (part[2] + part[3]));
}
}  // namespace

__attribute__((target("avx2"))) float MixChannelWide(float* __restrict out, const float* __restrict in,
                                                     float gain, uint32_t frames, bool accumulate)
{
    WideLanes energy[2] = {};
    const uint32_t whole = frames / kChunk * kChunk;
    float tailEnergy = 0.0f;
    for (uint32_t i = 0; i < whole; i += kChunk)
    {
        for (uint32_t k = 0; k < 2; ++k)
        {
            WideLanes x;
            std::memcpy(&x, in + i + 8 * k, sizeof(x));
            energy[k] += x * x;
            WideLanes y = gain * x;
            if (accumulate)
            {
                WideLanes before;
                std::memcpy(&before, out + i + 8 * k, sizeof(before));
                y = before + y;
            }
            std::memcpy(out + i + 8 * k, &y, sizeof(y));
        }
    }
    for (uint32_t i = whole; i < frames; ++i)
    {
        tailEnergy += in[i] * in[i];
        out[i] = accumulate ? out[i] + gain * in[i] : gain * in[i];
    }
    return SumLikeNarrow(energy) + tailEnergy;
}

__attribute__((target("avx2"))) float ScaleChannelWide(float* __restrict out, float gain, uint32_t frames)
{
    WideLanes energy[2] = {};
    const uint32_t whole = frames / kChunk * kChunk;
    float tailEnergy = 0.0f;
    for (uint32_t i = 0; i < whole; i += kChunk)
    {
        for (uint32_t k = 0; k < 2; ++k)
        {
            WideLanes y;
            std::memcpy(&y, out + i + 8 * k, sizeof(y));
            y = gain * y;
            std::memcpy(out + i + 8 * k, &y, sizeof(y));
            energy[k] += y * y;
        }
    }
    for (uint32_t i = whole; i < frames; ++i)
    {
        out[i] *= gain;
        tailEnergy += out[i] * out[i];
    }
    return SumLikeNarrow(energy) + tailEnergy;
}

bool HasWideVectors()
{
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2");
}
#else
float MixChannelWide(float* __restrict out, const float* __restrict in, float gain, uint32_t frames,
                     bool accumulate)
{
    return MixChannelPortable(out, in, gain, frames, accumulate);
}

float ScaleChannelWide(float* __restrict out, float gain, uint32_t frames)
{
    return ScaleChannelPortable(out, gain, frames);
}

bool HasWideVectors()
{
    return false;
}
#endif
}  // namespace tidemix::engine::busmix
