#include "sound/SampleFastPaths.h"

#include <cstring>

#include "sound/JTXFFloatShortQuantizer.h"

#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#define TIDEMIX_SAMPLE_WIDE_VECTORS 1
#endif

namespace SampleFastPaths
{
namespace
{
// (2v + 1) / 65535 rounded once to float equals the family's double
// expression v × (2/65535) + 1/65535 rounded to float, for all 65536 values;
// y + y × c is that quotient with y = (2v + 1) / 65536 exact and
// c = 1/65535 in float (checked over every value by the tests).
void Int16ToFloatPortable(uint8_t* __restrict dest, const uint8_t* __restrict source, int samples)
{
    for (int i = 0; i < samples; ++i)
    {
        int16_t v;
        std::memcpy(&v, source + i * 2, sizeof(v));
        const float y = static_cast<float>(2 * v + 1) * 0x1p-16f;
        const float f = y + y * (1.0f / 65535.0f);
        std::memcpy(dest + i * 4, &f, sizeof(f));
    }
}

// The quantizer's own loop for processors without the wide form.
void QuantizePortable(uint8_t* dest, const uint8_t* source, int samples, bool swap)
{
    JTXFFloatShortQuantizer::QuantizeFourAtATime(reinterpret_cast<int16_t*>(dest),
                                                 reinterpret_cast<const float*>(source), samples, swap);
}

#ifdef TIDEMIX_SAMPLE_WIDE_VECTORS
// The same value with fused steps: v/32768 + 1/65536 is exact, and the fused
// y + y × c happens to round like the two-step form for every 16-bit value.
__attribute__((target("avx2,fma"))) void Int16ToFloatWide(uint8_t* __restrict dest,
                                                          const uint8_t* __restrict source, int samples)
{
    for (int i = 0; i < samples; ++i)
    {
        int16_t v;
        std::memcpy(&v, source + i * 2, sizeof(v));
        const float y = __builtin_fmaf(static_cast<float>(v), 0x1p-15f, 0x1p-16f);
        const float f = __builtin_fmaf(y, 1.0f / 65535.0f, y);
        std::memcpy(dest + i * 4, &f, sizeof(f));
    }
}

// Eight samples in float instead of double. Inside [-1, 1], t = trunc(fl(32767 s))
// is off by one exactly when rounding carried the product up onto an integer;
// the residual (32768 s − t) − s has the sign of 32767 s − t exactly, because
// 32768 s is exact and so is its difference with an integer no larger than it.
__attribute__((target("avx2,fma"))) inline __m256i QuantizeEight(__m256 s)
{
    const __m256 one = _mm256_set1_ps(1.0f);
    const __m256 minusOne = _mm256_set1_ps(-1.0f);
    const __m256 high = _mm256_cmp_ps(s, one, _CMP_GT_OQ);
    const __m256 low = _mm256_cmp_ps(s, minusOne, _CMP_LE_OQ);
    // Outside [-1, 1] and NaN compute on 0; the ends are put in below.
    const __m256 inside =
        _mm256_and_ps(_mm256_cmp_ps(s, minusOne, _CMP_GE_OQ), _mm256_cmp_ps(s, one, _CMP_LE_OQ));
    const __m256 x = _mm256_and_ps(s, inside);
    __m256i t = _mm256_cvttps_epi32(_mm256_mul_ps(x, _mm256_set1_ps(32767.0f)));
    const __m256 residual =
        _mm256_sub_ps(_mm256_sub_ps(_mm256_mul_ps(x, _mm256_set1_ps(32768.0f)), _mm256_cvtepi32_ps(t)), x);
    const __m256i zero = _mm256_setzero_si256();
    const __m256 zeroFloat = _mm256_setzero_ps();
    // All-ones masks: adding one takes 1 away.
    const __m256i down = _mm256_and_si256(
        _mm256_cmpgt_epi32(t, zero), _mm256_castps_si256(_mm256_cmp_ps(residual, zeroFloat, _CMP_LT_OQ)));
    const __m256i up = _mm256_and_si256(_mm256_cmpgt_epi32(zero, t),
                                        _mm256_castps_si256(_mm256_cmp_ps(residual, zeroFloat, _CMP_GT_OQ)));
    t = _mm256_sub_epi32(_mm256_add_epi32(t, down), up);
    t = _mm256_blendv_epi8(t, _mm256_set1_epi32(32767), _mm256_castps_si256(high));
    return _mm256_blendv_epi8(t, _mm256_set1_epi32(-32768), _mm256_castps_si256(low));
}

__attribute__((target("avx2,fma"))) void QuantizeWide(uint8_t* dest, const uint8_t* source, int samples,
                                                      bool swap)
{
    int i = 0;
    for (; i + 16 <= samples; i += 16)
    {
        const __m256i a = QuantizeEight(_mm256_loadu_ps(reinterpret_cast<const float*>(source + i * 4)));
        const __m256i b = QuantizeEight(_mm256_loadu_ps(reinterpret_cast<const float*>(source + i * 4 + 32)));
        // The pack works per 128-bit half; the permute puts the halves in order.
        __m256i q = _mm256_permute4x64_epi64(_mm256_packs_epi32(a, b), 0xD8);
        if (swap)
        {
            q = _mm256_or_si256(_mm256_slli_epi16(q, 8), _mm256_srli_epi16(q, 8));
        }
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dest + i * 2), q);
    }
    if (i < samples)
    {
        QuantizePortable(dest + i * 2, source + i * 4, samples - i, swap);
    }
}
#endif
}  // namespace

bool HasWideVectors()
{
#ifdef TIDEMIX_SAMPLE_WIDE_VECTORS
    static const bool wide = []
    {
        __builtin_cpu_init();
        return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
    }();
    return wide;
#else
    return false;
#endif
}

void QuantizeFloatToInt16(uint8_t* dest, const uint8_t* source, int samples, bool swap)
{
#ifdef TIDEMIX_SAMPLE_WIDE_VECTORS
    if (HasWideVectors())
    {
        QuantizeWide(dest, source, samples, swap);
        return;
    }
#endif
    QuantizePortable(dest, source, samples, swap);
}

void Int16ToFloat(uint8_t* dest, const uint8_t* source, int samples)
{
#ifdef TIDEMIX_SAMPLE_WIDE_VECTORS
    if (HasWideVectors())
    {
        Int16ToFloatWide(dest, source, samples);
        return;
    }
#endif
    Int16ToFloatPortable(dest, source, samples);
}
}  // namespace SampleFastPaths
