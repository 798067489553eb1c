// The converter family and the in-place filters: every instantiation lives
// in this file, so each pair is one function with no branch on the format
// inside its loop, compiled once.
#include <array>
#include <utility>

#include "sound/DplAudioConverters.h"
#include "sound/JTXFFloatShortQuantizer.h"
#include "sound/SampleFastPaths.h"
#include "sound/TSampleConverter.h"
#include "sound/TSampleFilter.h"

template <class From, class To>
TSampleConverter<From, To>::TSampleConverter(const CCountedPtr<Filter>& filter)
    : CSampleFunnel(From::kId, To::kId, filter)
{
}

template <class From, class To>
TSampleConverter<From, To>::~TSampleConverter() = default;

template <class From, class To>
int TSampleConverter<From, To>::FunnelBuffer(void* dest, const void* source, int samples)
{
    if (samples <= 0 || dest == nullptr || source == nullptr)
    {
        return 0;
    }
    uint8_t* out = static_cast<uint8_t*>(dest);
    const uint8_t* in = static_cast<const uint8_t*>(source);
    if (Filter* filter = fFilter.get())
    {
        for (int i = 0; i < samples; ++i)
        {
            const double x = filter->Apply(From::Normalize(in + i * From::kSize));
            To::Denormalize(out + i * To::kSize, x);
        }
    }
    else if constexpr (From::kId == CSampleType::kSigned16 && To::kId == CSampleType::kFloat32)
    {
        // The 16-bit device road: a vector loop with the same results.
        SampleFastPaths::Int16ToFloat(out, in, samples);
    }
    else
    {
        for (int i = 0; i < samples; ++i)
        {
            To::Denormalize(out + i * To::kSize, From::Normalize(in + i * From::kSize));
        }
    }
    return samples;
}

template <class Traits>
TSampleFilter<Traits>::TSampleFilter(const CCountedPtr<Filter>& filter)
    : CSampleFilterFunnel(Traits::kId, Traits::kId, filter)
{
}

template <class Traits>
TSampleFilter<Traits>::~TSampleFilter() = default;

template <class Traits>
int TSampleFilter<Traits>::FunnelBuffer(void* dest, const void* source, int samples)
{
    Filter* filter = fFilter.get();
    if (filter == nullptr || samples <= 0 || dest == nullptr || source == nullptr)
    {
        return 0;
    }
    uint8_t* out = static_cast<uint8_t*>(dest);
    const uint8_t* in = static_cast<const uint8_t*>(source);
    for (int i = 0; i < samples; ++i)
    {
        Traits::Denormalize(out + i * Traits::kSize,
                            filter->Apply(Traits::Normalize(in + i * Traits::kSize)));
    }
    return samples;
}

template <class Traits>
int TSampleFilter<Traits>::ObserveBuffer(const void* source, int samples)
{
    Filter* filter = fFilter.get();
    if (filter == nullptr || samples <= 0 || source == nullptr)
    {
        return 0;
    }
    const uint8_t* in = static_cast<const uint8_t*>(source);
    for (int i = 0; i < samples; ++i)
    {
        filter->Apply(Traits::Normalize(in + i * Traits::kSize));
    }
    return samples;
}

#define TIDEMIX_FOR_EACH_TRAITS(M, A)         \
    M(A, SampleTraits8)                       \
    M(A, SampleTraits16)                      \
    M(A, SampleTraitsPacked24)                \
    M(A, SampleTraitsWide24)                  \
    M(A, SampleTraits32)                      \
    M(A, SampleTraitsFloat)                   \
    M(A, SampleTraitsDouble)                  \
    M(A, SampleTraitsUnsigned8)               \
    M(A, SampleTraitsUnsigned16)              \
    M(A, SampleTraitsUnsignedPacked24)        \
    M(A, SampleTraitsUnsignedWide24)          \
    M(A, SampleTraitsUnsigned32)              \
    M(A, SampleTraitsSwapped8)                \
    M(A, SampleTraitsSwapped16)               \
    M(A, SampleTraitsSwappedPacked24)         \
    M(A, SampleTraitsSwappedWide24)           \
    M(A, SampleTraitsSwapped32)               \
    M(A, SampleTraitsSwappedFloat)            \
    M(A, SampleTraitsSwappedDouble)           \
    M(A, SampleTraitsSwappedUnsigned8)        \
    M(A, SampleTraitsSwappedUnsigned16)       \
    M(A, SampleTraitsSwappedUnsignedPacked24) \
    M(A, SampleTraitsSwappedUnsignedWide24)   \
    M(A, SampleTraitsSwappedUnsigned32)       \
    M(A, SampleTraitsWide25)                  \
    M(A, SampleTraitsSwappedWide25)

#define TIDEMIX_INSTANTIATE_CONVERTER(From, To) template class TSampleConverter<From, To>;
#define TIDEMIX_INSTANTIATE_ROW(Unused, From) TIDEMIX_FOR_EACH_TRAITS(TIDEMIX_INSTANTIATE_CONVERTER, From)
#define TIDEMIX_FOR_EACH_SOURCE(M)            \
    M(_, SampleTraits8)                       \
    M(_, SampleTraits16)                      \
    M(_, SampleTraitsPacked24)                \
    M(_, SampleTraitsWide24)                  \
    M(_, SampleTraits32)                      \
    M(_, SampleTraitsFloat)                   \
    M(_, SampleTraitsDouble)                  \
    M(_, SampleTraitsUnsigned8)               \
    M(_, SampleTraitsUnsigned16)              \
    M(_, SampleTraitsUnsignedPacked24)        \
    M(_, SampleTraitsUnsignedWide24)          \
    M(_, SampleTraitsUnsigned32)              \
    M(_, SampleTraitsSwapped8)                \
    M(_, SampleTraitsSwapped16)               \
    M(_, SampleTraitsSwappedPacked24)         \
    M(_, SampleTraitsSwappedWide24)           \
    M(_, SampleTraitsSwapped32)               \
    M(_, SampleTraitsSwappedFloat)            \
    M(_, SampleTraitsSwappedDouble)           \
    M(_, SampleTraitsSwappedUnsigned8)        \
    M(_, SampleTraitsSwappedUnsigned16)       \
    M(_, SampleTraitsSwappedUnsignedPacked24) \
    M(_, SampleTraitsSwappedUnsignedWide24)   \
    M(_, SampleTraitsSwappedUnsigned32)       \
    M(_, SampleTraitsWide25)                  \
    M(_, SampleTraitsSwappedWide25)

TIDEMIX_FOR_EACH_SOURCE(TIDEMIX_INSTANTIATE_ROW)

template class TSampleFilter<SampleTraits8>;
template class TSampleFilter<SampleTraits16>;
template class TSampleFilter<SampleTraits32>;
template class TSampleFilter<SampleTraitsFloat>;
template class TSampleFilter<SampleTraitsDouble>;

namespace
{
using Factory = std::unique_ptr<CSampleFunnel> (*)(const CCountedPtr<CSampleFunnel::Filter>&);

template <class From, int ToId>
std::unique_ptr<CSampleFunnel> MakeConverter(const CCountedPtr<CSampleFunnel::Filter>& filter)
{
    return std::make_unique<TSampleConverter<From, typename TSampleTraitsForId<ToId>::type>>(filter);
}

template <class From, int... Index>
constexpr std::array<Factory, sizeof...(Index)> MakeFactoryRow(std::integer_sequence<int, Index...>)
{
    return {&MakeConverter<From, Index + CSampleType::kFirstConvertible>...};
}

constexpr int kConvertibleCount = CSampleType::kLastConvertible - CSampleType::kFirstConvertible + 1;

using SourceFactory = std::unique_ptr<CSampleFunnel> (*)(const CSampleType&,
                                                         const CCountedPtr<CSampleFunnel::Filter>&);

template <int... Index>
constexpr std::array<SourceFactory, sizeof...(Index)> MakeSourceTable(std::integer_sequence<int, Index...>)
{
    return {&MakeConverterTo<typename TSampleTraitsForId<Index + CSampleType::kFirstConvertible>::type>...};
}
}  // namespace

template <class From>
std::unique_ptr<CSampleFunnel> MakeConverterTo(const CSampleType& to,
                                               const CCountedPtr<CSampleFunnel::Filter>& filter)
{
    static constexpr std::array<Factory, kConvertibleCount> kRow =
        MakeFactoryRow<From>(std::make_integer_sequence<int, kConvertibleCount>());
    if (!to.IsConvertible())
    {
        return nullptr;
    }
    return kRow[to.Value() - CSampleType::kFirstConvertible](filter);
}

#define TIDEMIX_INSTANTIATE_MAKE_CONVERTER_TO(Unused, From)        \
    template std::unique_ptr<CSampleFunnel> MakeConverterTo<From>( \
        const CSampleType&, const CCountedPtr<CSampleFunnel::Filter>&);
TIDEMIX_FOR_EACH_SOURCE(TIDEMIX_INSTANTIATE_MAKE_CONVERTER_TO)

std::unique_ptr<CSampleFunnel> DplAudio_CreateSampleTypeConverter(
    const CSampleType& from, const CSampleType& to, int channels,
    const CCountedPtr<CSampleFunnel::Filter>& filter)
{
    if (!from.IsConvertible() || !to.IsConvertible())
    {
        return nullptr;
    }
    if (from == CSampleType::kFloat32 && (to == CSampleType::kSigned16 || to == CSampleType::kSwapped16))
    {
        return std::make_unique<JTXFFloatShortQuantizer>(channels, to == CSampleType::kSwapped16);
    }
    static constexpr std::array<SourceFactory, kConvertibleCount> kSources =
        MakeSourceTable(std::make_integer_sequence<int, kConvertibleCount>());
    return kSources[from.Value() - CSampleType::kFirstConvertible](to, filter);
}

std::unique_ptr<CSampleFilterFunnel> DplAudio_CreateAudioProcessingFilter(
    const CSampleType& type, const CCountedPtr<CSampleFunnel::Filter>& filter)
{
    switch (type.Value())
    {
        case CSampleType::kSigned8:
            return std::make_unique<TSampleFilter<SampleTraits8>>(filter);
        case CSampleType::kSigned16:
            return std::make_unique<TSampleFilter<SampleTraits16>>(filter);
        case CSampleType::kSigned32:
            return std::make_unique<TSampleFilter<SampleTraits32>>(filter);
        case CSampleType::kFloat32:
            return std::make_unique<TSampleFilter<SampleTraitsFloat>>(filter);
        case CSampleType::kFloat64:
            return std::make_unique<TSampleFilter<SampleTraitsDouble>>(filter);
        default:
            return nullptr;
    }
}
