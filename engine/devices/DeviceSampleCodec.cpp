#include "engine/devices/DeviceSampleCodec.h"

#include <cstring>

namespace tidemix::engine
{
namespace
{

using platform::DeviceStreamFormat;
using platform::SampleEncoding;

constexpr float kInt16InScale = 1.0f / 32768.0f;
constexpr float kInt16OutScale = 32767.0f;

// Round to nearest (ties to even) by adding and removing 1.5 * 2^23, which
// pushes the fraction out of a float's mantissa; exact for |y| < 2^22.
constexpr float kRoundingBias = 12582912.0f;

// NaN becomes 0, everything else is scaled, clamped to the 16-bit range by
// value and rounded, so the cast that follows is always defined.
inline int16_t ToInt16(float x)
{
    float y = x == x ? x * kInt16OutScale : 0.0f;
    y = y > -32768.0f ? y : -32768.0f;
    y = y < 32767.0f ? y : 32767.0f;
    y = (y + kRoundingBias) - kRoundingBias;
    return static_cast<int16_t>(static_cast<int32_t>(y));
}

// The same steps on 4 lanes at once: g++ won't if-convert the scalar form
// into vector code, so it is spelled out with the vector extension.
using Lanes = float __attribute__((vector_size(16)));
using IntLanes = int32_t __attribute__((vector_size(16)));
using ShortLanes = int16_t __attribute__((vector_size(8)));

inline void ToInt16x4(const float* in, int16_t* out)
{
    Lanes y;
    std::memcpy(&y, in, sizeof(y));
    const Lanes zero = {0.0f, 0.0f, 0.0f, 0.0f};
    const Lanes low = zero - 32768.0f;
    const Lanes high = zero + 32767.0f;
    y = y == y ? y * kInt16OutScale : zero;
    y = y > low ? y : low;
    y = y < high ? y : high;
    y = (y + kRoundingBias) - kRoundingBias;
    const ShortLanes narrowed = __builtin_convertvector(__builtin_convertvector(y, IntLanes), ShortLanes);
    std::memcpy(out, &narrowed, sizeof(narrowed));
}

// Reads one sample of a channel as float.
inline float ReadSample(const DeviceStreamFormat& format, const void* const* buffers, uint32_t channel,
                        uint32_t frame)
{
    const uint32_t index = format.interleaved ? frame * format.channels + channel : frame;
    const void* base = buffers[format.interleaved ? 0 : channel];
    if (format.encoding == SampleEncoding::Float32)
        return static_cast<const float*>(base)[index];
    return static_cast<const int16_t*>(base)[index] * kInt16InScale;
}

inline void WriteSample(const DeviceStreamFormat& format, void* const* buffers, uint32_t channel,
                        uint32_t frame, float value)
{
    const uint32_t index = format.interleaved ? frame * format.channels + channel : frame;
    void* base = buffers[format.interleaved ? 0 : channel];
    if (format.encoding == SampleEncoding::Float32)
        static_cast<float*>(base)[index] = value;
    else
        static_cast<int16_t*>(base)[index] = ToInt16(value);
}

}  // namespace

void DeviceSampleCodec::FloatToInt16(const float* __restrict in, int16_t* __restrict out, uint32_t count)
{
    const uint32_t whole = count / 4 * 4;
    for (uint32_t i = 0; i < whole; i += 4)
        ToInt16x4(in + i, out + i);
    for (uint32_t i = whole; i < count; ++i)
        out[i] = ToInt16(in[i]);
}

void DeviceSampleCodec::Int16ToFloat(const int16_t* __restrict in, float* __restrict out, uint32_t count)
{
    for (uint32_t i = 0; i < count; ++i)
        out[i] = in[i] * kInt16InScale;
}

void DeviceSampleCodec::DecodeToStereo(const DeviceStreamFormat& format, const void* const* buffers,
                                       uint32_t frames, float* left, float* right)
{
    if (format.channels == 0 || buffers == nullptr)
    {
        std::memset(left, 0, frames * sizeof(float));
        std::memset(right, 0, frames * sizeof(float));
        return;
    }
    const uint32_t rightChannel = format.channels > 1 ? 1 : 0;
    if (!format.interleaved)
    {
        // Planar channels are contiguous: plain copies and vector conversions.
        if (format.encoding == SampleEncoding::Float32)
        {
            std::memcpy(left, buffers[0], frames * sizeof(float));
            std::memcpy(right, buffers[rightChannel], frames * sizeof(float));
        }
        else
        {
            Int16ToFloat(static_cast<const int16_t*>(buffers[0]), left, frames);
            Int16ToFloat(static_cast<const int16_t*>(buffers[rightChannel]), right, frames);
        }
        return;
    }
    for (uint32_t f = 0; f < frames; ++f)
    {
        left[f] = ReadSample(format, buffers, 0, f);
        right[f] = ReadSample(format, buffers, rightChannel, f);
    }
}

void DeviceSampleCodec::EncodeFromStereo(const DeviceStreamFormat& format, const float* left,
                                         const float* right, uint32_t frames, void* const* buffers)
{
    if (format.channels == 0 || buffers == nullptr)
        return;
    if (format.channels == 1)
    {
        for (uint32_t f = 0; f < frames; ++f)
            WriteSample(format, buffers, 0, f, 0.5f * (left[f] + right[f]));
        return;
    }
    if (!format.interleaved)
    {
        if (format.encoding == SampleEncoding::Float32)
        {
            std::memcpy(buffers[0], left, frames * sizeof(float));
            std::memcpy(buffers[1], right, frames * sizeof(float));
        }
        else
        {
            FloatToInt16(left, static_cast<int16_t*>(buffers[0]), frames);
            FloatToInt16(right, static_cast<int16_t*>(buffers[1]), frames);
        }
        for (uint32_t c = 2; c < format.channels; ++c)
            std::memset(buffers[c], 0, frames * format.BytesPerSample());
        return;
    }
    for (uint32_t f = 0; f < frames; ++f)
    {
        WriteSample(format, buffers, 0, f, left[f]);
        WriteSample(format, buffers, 1, f, right[f]);
        for (uint32_t c = 2; c < format.channels; ++c)
            WriteSample(format, buffers, c, f, 0.0f);
    }
}

}  // namespace tidemix::engine
