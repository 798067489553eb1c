#pragma once

#include <cstdint>

#include "sound/CSampleType.h"
#include "sound/SampleArithmetic.h"
#include "sound/StoredSampleTypes.h"

namespace SampleCodec
{
// How one format is read into and written from the normalised double scale.
// All of it follows from the format's number and its value range.
template <int Id, long long Min, long long Max>
struct TCodec
{
    static_assert(Id >= CSampleType::kFirstConvertible && Id <= CSampleType::kLastConvertible);

    static constexpr int kId = Id;
    static constexpr int kSize = CSampleType::sSizes[Id];
    static constexpr int kContentBits = CSampleType::sContentSizes[Id];
    static constexpr bool kUnsigned = CSampleType::sUnsignedFlags[Id];
    static constexpr bool kFloating = CSampleType::sFloatingFlags[Id];
    static constexpr bool kBigEndian = CSampleType::sEndianities[Id] == CSampleType::kEndianitySwapped;
    static constexpr long long kMin = Min;
    static constexpr long long kMax = Max;

    // Signed 24- and 25-bit formats are scaled by a power of two; the other
    // integer formats map their whole range onto [-1, 1].
    static constexpr bool kPowerOfTwoScale =
        !kFloating && !kUnsigned && (kContentBits == 24 || kContentBits == 25);
    static constexpr double kRange = static_cast<double>(Max - Min);
    static constexpr double kTwoOverRange = 2.0 / kRange;
    static constexpr double kOneOverRange = 1.0 / kRange;
    static constexpr double kHalfRange = kRange / 2.0;
    static constexpr double kPowerOfTwoIn = 1.0 / static_cast<double>(Max + 1);
    // The big-endian 25-bit form scales out by 2^24 where the native form uses 2^24 - 1.
    static constexpr double kPowerOfTwoOut =
        static_cast<double>(Id == CSampleType::kSwappedWide25 ? Max + 1 : Max);

    static double Normalize(const uint8_t* p)
    {
        const uint64_t raw = SampleArithmetic::LoadRaw<kSize, kBigEndian>(p);
        if constexpr (kFloating && kSize == 4)
        {
            return static_cast<double>(std::bit_cast<float>(static_cast<uint32_t>(raw)));
        }
        else if constexpr (kFloating)
        {
            return std::bit_cast<double>(raw);
        }
        else if constexpr (kUnsigned)
        {
            const uint64_t value = raw & ((uint64_t{1} << kContentBits) - 1);
            return static_cast<double>(value) * kTwoOverRange - 1.0;
        }
        else
        {
            const int64_t value = SampleArithmetic::SignExtend<kContentBits>(raw);
            if constexpr (kPowerOfTwoScale)
            {
                return static_cast<double>(value) * kPowerOfTwoIn;
            }
            else
            {
                return static_cast<double>(value) * kTwoOverRange + kOneOverRange;
            }
        }
    }

    static void Denormalize(uint8_t* p, double x)
    {
        uint64_t raw;
        if constexpr (kFloating && kSize == 4)
        {
            raw = std::bit_cast<uint32_t>(static_cast<float>(x));
            // A NaN always leaves quiet with its payload, whether or not the
            // compiler folded a float → double → float round trip away.
            if (x != x)
            {
                raw |= 0x00400000u;
            }
        }
        else if constexpr (kFloating)
        {
            raw = std::bit_cast<uint64_t>(x);
            if (x != x)
            {
                raw |= 0x0008000000000000u;
            }
        }
        else
        {
            double y;
            if constexpr (kUnsigned)
            {
                y = (x + 1.0) * kHalfRange;
            }
            else if constexpr (kPowerOfTwoScale)
            {
                y = x * kPowerOfTwoOut;
            }
            else
            {
                y = (x - kOneOverRange) * kHalfRange;
            }
            raw = static_cast<uint64_t>(SampleArithmetic::TruncateToInt64(y));
            if constexpr (!kUnsigned && kContentBits < kSize * 8)
            {
                // A wide word holds the wrapped content sign-extended.
                raw = static_cast<uint64_t>(SampleArithmetic::SignExtend<kContentBits>(raw));
            }
            else if constexpr (kUnsigned && kContentBits < kSize * 8)
            {
                raw &= (uint64_t{1} << kContentBits) - 1;
            }
        }
        SampleArithmetic::StoreRaw<kSize, kBigEndian>(p, raw);
    }
};
}  // namespace SampleCodec

// Binds a stored type in native byte order to its value range and number.
template <class T, long long Min, long long Max, int Id>
struct TSampleTraits : SampleCodec::TCodec<Id, Min, Max>
{
    using Type = T;
    static_assert(sizeof(T) == CSampleType::sSizes[Id]);
    static_assert(CSampleType::sEndianities[Id] != CSampleType::kEndianitySwapped);
};

// The same for a byte-swapped stored type; `Native` is its native twin.
template <class T, long long Min, long long Max, int Id, class Native>
struct TSwappedSampleTraits : SampleCodec::TCodec<Id, Min, Max>
{
    using Type = T;
    using NativeType = Native;
    static_assert(sizeof(T) == CSampleType::sSizes[Id]);
    static_assert(sizeof(T) == sizeof(Native));
};

using SampleTraits8 = TSampleTraits<char, -128, 127, 1>;
using SampleTraits16 = TSampleTraits<short, -32768, 32767, 2>;
using SampleTraitsPacked24 = TSampleTraits<Packed24, -8388608, 8388607, 3>;
using SampleTraitsWide24 = TSampleTraits<Wide24, -8388608, 8388607, 4>;
using SampleTraits32 = TSampleTraits<int, -2147483648LL, 2147483647LL, 5>;
using SampleTraitsFloat = TSampleTraits<float, -1, 1, 6>;
using SampleTraitsDouble = TSampleTraits<double, -1, 1, 7>;
using SampleTraitsUnsigned8 = TSampleTraits<unsigned char, 0, 255, 8>;
using SampleTraitsUnsigned16 = TSampleTraits<unsigned short, 0, 65535, 9>;
using SampleTraitsUnsignedPacked24 = TSampleTraits<UnsignedPacked24, 0, 16777215, 10>;
using SampleTraitsUnsignedWide24 = TSampleTraits<UnsignedWide24, 0, 16777215, 11>;
using SampleTraitsUnsigned32 = TSampleTraits<unsigned int, 0, 4294967295LL, 12>;
using SampleTraitsSwapped8 = TSwappedSampleTraits<Swapped8Sample, -128, 127, 13, char>;
using SampleTraitsSwapped16 = TSwappedSampleTraits<Swapped16Sample, -32768, 32767, 14, short>;
using SampleTraitsSwappedPacked24 =
    TSwappedSampleTraits<SwappedPacked24Sample, -8388608, 8388607, 15, Packed24>;
using SampleTraitsSwappedWide24 = TSwappedSampleTraits<SwappedWide24Sample, -8388608, 8388607, 16, Wide24>;
using SampleTraitsSwapped32 = TSwappedSampleTraits<Swapped32Sample, -2147483648LL, 2147483647LL, 17, int>;
using SampleTraitsSwappedFloat = TSwappedSampleTraits<SwappedFloatSample, -1, 1, 18, float>;
using SampleTraitsSwappedDouble = TSwappedSampleTraits<SwappedDoubleSample, -1, 1, 19, double>;
using SampleTraitsSwappedUnsigned8 = TSwappedSampleTraits<SwappedUnsigned8Sample, 0, 255, 20, unsigned char>;
using SampleTraitsSwappedUnsigned16 =
    TSwappedSampleTraits<SwappedUnsigned16Sample, 0, 65535, 21, unsigned short>;
using SampleTraitsSwappedUnsignedPacked24 =
    TSwappedSampleTraits<SwappedUnsignedPacked24Sample, 0, 16777215, 22, UnsignedPacked24>;
using SampleTraitsSwappedUnsignedWide24 =
    TSwappedSampleTraits<SwappedUnsignedWide24Sample, 0, 16777215, 23, UnsignedWide24>;
using SampleTraitsSwappedUnsigned32 =
    TSwappedSampleTraits<SwappedUnsigned32Sample, 0, 4294967295LL, 24, unsigned int>;
using SampleTraitsWide25 = TSampleTraits<Wide25, -16777216, 16777215, 25>;
using SampleTraitsSwappedWide25 = TSwappedSampleTraits<SwappedWide25Sample, -16777216, 16777215, 26, Wide25>;

// The traits of a format by its number.
template <int Id>
struct TSampleTraitsForId;
#define TIDEMIX_SAMPLE_TRAITS_FOR_ID(id, traits) \
    template <>                                  \
    struct TSampleTraitsForId<id>                \
    {                                            \
        using type = traits;                     \
    };
TIDEMIX_SAMPLE_TRAITS_FOR_ID(1, SampleTraits8)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(2, SampleTraits16)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(3, SampleTraitsPacked24)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(4, SampleTraitsWide24)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(5, SampleTraits32)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(6, SampleTraitsFloat)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(7, SampleTraitsDouble)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(8, SampleTraitsUnsigned8)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(9, SampleTraitsUnsigned16)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(10, SampleTraitsUnsignedPacked24)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(11, SampleTraitsUnsignedWide24)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(12, SampleTraitsUnsigned32)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(13, SampleTraitsSwapped8)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(14, SampleTraitsSwapped16)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(15, SampleTraitsSwappedPacked24)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(16, SampleTraitsSwappedWide24)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(17, SampleTraitsSwapped32)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(18, SampleTraitsSwappedFloat)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(19, SampleTraitsSwappedDouble)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(20, SampleTraitsSwappedUnsigned8)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(21, SampleTraitsSwappedUnsigned16)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(22, SampleTraitsSwappedUnsignedPacked24)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(23, SampleTraitsSwappedUnsignedWide24)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(24, SampleTraitsSwappedUnsigned32)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(25, SampleTraitsWide25)
TIDEMIX_SAMPLE_TRAITS_FOR_ID(26, SampleTraitsSwappedWide25)
#undef TIDEMIX_SAMPLE_TRAITS_FOR_ID
