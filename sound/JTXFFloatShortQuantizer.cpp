#include "sound/JTXFFloatShortQuantizer.h"

#include <cstring>

#include "sound/CSampleType.h"
#include "sound/SampleFastPaths.h"

namespace
{
inline int16_t Quantize(float s)
{
    // s × 32767 is exact in double for every float, so comparing the product
    // is the same as comparing s against ±1, and it lets one select chain
    // serve the vector form too.
    const double scaled = static_cast<double>(s) * 32767.0;
    double clamped = scaled > 32767.0 ? 32767.0 : scaled;
    clamped = scaled <= -32767.0 ? -32768.0 : clamped;
    clamped = scaled == scaled ? clamped : 0.0;  // NaN
    return static_cast<int16_t>(static_cast<int32_t>(clamped));
}

inline uint16_t Swap(int16_t v)
{
    return __builtin_bswap16(static_cast<uint16_t>(v));
}

inline void Store(uint8_t* dest, int index, int16_t value, bool swap)
{
    const uint16_t bits = swap ? Swap(value) : static_cast<uint16_t>(value);
    std::memcpy(dest + index * 2, &bits, sizeof(bits));
}

// Byte pointers throughout: the caller's buffers need not be aligned.
void ScalarLoop(uint8_t* dest, const uint8_t* source, int samples, bool swap)
{
    for (int i = 0; i < samples; ++i)
    {
        float s;
        std::memcpy(&s, source + i * 4, sizeof(s));
        Store(dest, i, Quantize(s), swap);
    }
}

void FourAtATimeLoop(uint8_t* dest, const uint8_t* source, int samples, bool swap)
{
    int i = 0;
    for (; i + 4 <= samples; i += 4)
    {
        float s[4];
        std::memcpy(s, source + i * 4, sizeof(s));
        uint16_t q[4];
        for (int k = 0; k < 4; ++k)
        {
            q[k] = static_cast<uint16_t>(Quantize(s[k]));
        }
        if (swap)
        {
            for (int k = 0; k < 4; ++k)
            {
                q[k] = __builtin_bswap16(q[k]);
            }
        }
        std::memcpy(dest + i * 2, q, sizeof(q));
    }
    ScalarLoop(dest + i * 2, source + i * 4, samples - i, swap);
}
}  // namespace

JTXFFloatShortQuantizer::JTXFFloatShortQuantizer(int channels, bool swap)
    : CSampleFunnel(CSampleType::kFloat32, swap ? CSampleType::kSwapped16 : CSampleType::kSigned16, nullptr),
      fChannels(channels),
      fSwap(swap)
{
}

JTXFFloatShortQuantizer::~JTXFFloatShortQuantizer() = default;

int16_t JTXFFloatShortQuantizer::QuantizeSample(float s)
{
    return Quantize(s);
}

void JTXFFloatShortQuantizer::QuantizeScalar(int16_t* dest, const float* source, int samples, bool swap)
{
    ScalarLoop(reinterpret_cast<uint8_t*>(dest), reinterpret_cast<const uint8_t*>(source), samples, swap);
}

void JTXFFloatShortQuantizer::QuantizeFourAtATime(int16_t* dest, const float* source, int samples, bool swap)
{
    FourAtATimeLoop(reinterpret_cast<uint8_t*>(dest), reinterpret_cast<const uint8_t*>(source), samples,
                    swap);
}

int JTXFFloatShortQuantizer::FunnelBuffer(void* dest, const void* source, int samples)
{
    if (fChannels <= 0 || samples < 0 || samples % fChannels != 0)
    {
        throw kParameterError;
    }
    if (samples > 0 && (dest == nullptr || source == nullptr))
    {
        throw kParameterError;
    }
    SampleFastPaths::QuantizeFloatToInt16(static_cast<uint8_t*>(dest), static_cast<const uint8_t*>(source),
                                          samples, fSwap);
    return samples / fChannels;
}
