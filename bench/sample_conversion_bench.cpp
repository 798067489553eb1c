// Sample conversion speed in bytes of input per second, against memcpy of the
// same bytes (the limit) and libsamplerate's array helpers.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>

#include "sound/DplAudioConverters.h"
#include "sound/TSampleConverter.h"

#ifdef TIDEMIX_HAVE_SAMPLERATE
#include <samplerate.h>
#endif

namespace
{
constexpr int kSamples = 2 * 960;  // one stereo block

struct AlignedDelete
{
    void operator()(void* p) const { std::free(p); }
};
using Buffer = std::unique_ptr<uint8_t, AlignedDelete>;

Buffer Allocate(size_t bytes)
{
    return Buffer(static_cast<uint8_t*>(std::aligned_alloc(64, (bytes + 63) / 64 * 64)));
}

Buffer FloatBlock()
{
    Buffer block = Allocate(kSamples * sizeof(float));
    std::mt19937 rng(1);
    std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
    for (int i = 0; i < kSamples; ++i)
    {
        const float s = dist(rng);
        std::memcpy(block.get() + i * 4, &s, 4);
    }
    return block;
}

Buffer ConvertedBlock(int type)
{
    Buffer floats = FloatBlock();
    std::unique_ptr<CSampleFunnel> funnel = DplAudio_CreateSampleTypeConverter(6, type, 2, nullptr);
    Buffer out = Allocate(static_cast<size_t>(kSamples * CSampleType(type).GetSize()));
    funnel->FunnelBuffer(out.get(), floats.get(), kSamples);
    return out;
}

void Memcpy(benchmark::State& state)
{
    const size_t bytes = static_cast<size_t>(state.range(0));
    Buffer source = Allocate(bytes), dest = Allocate(bytes);
    std::memset(source.get(), 1, bytes);
    for (auto _ : state)
    {
        std::memcpy(dest.get(), source.get(), bytes);
        benchmark::DoNotOptimize(dest.get());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
}
// Float input and 16-bit input of one block.
BENCHMARK(Memcpy)->Arg(kSamples * 4)->Arg(kSamples * 2)->Arg(kSamples * 3);

void RunFunnel(benchmark::State& state, CSampleFunnel& funnel, const uint8_t* source,
               int sourceBytesPerSample, int destBytesPerSample)
{
    Buffer dest = Allocate(static_cast<size_t>(kSamples * destBytesPerSample));
    for (auto _ : state)
    {
        funnel.FunnelBuffer(dest.get(), source, kSamples);
        benchmark::DoNotOptimize(dest.get());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kSamples * sourceBytesPerSample);
}

void FloatToInt16_Quantizer(benchmark::State& state)
{
    Buffer source = FloatBlock();
    std::unique_ptr<CSampleFunnel> funnel = DplAudio_CreateSampleTypeConverter(6, 2, 2, nullptr);
    RunFunnel(state, *funnel, source.get(), 4, 2);
}
BENCHMARK(FloatToInt16_Quantizer);

void FloatToInt16_Family(benchmark::State& state)
{
    Buffer source = FloatBlock();
    std::unique_ptr<CSampleFunnel> funnel = MakeConverterTo<SampleTraitsFloat>(2, nullptr);
    RunFunnel(state, *funnel, source.get(), 4, 2);
}
BENCHMARK(FloatToInt16_Family);

void Int16ToFloat(benchmark::State& state)
{
    Buffer source = ConvertedBlock(2);
    std::unique_ptr<CSampleFunnel> funnel = DplAudio_CreateSampleTypeConverter(2, 6, 2, nullptr);
    RunFunnel(state, *funnel, source.get(), 2, 4);
}
BENCHMARK(Int16ToFloat);

void FloatToInt24Packed(benchmark::State& state)
{
    Buffer source = FloatBlock();
    std::unique_ptr<CSampleFunnel> funnel = DplAudio_CreateSampleTypeConverter(6, 3, 2, nullptr);
    RunFunnel(state, *funnel, source.get(), 4, 3);
}
BENCHMARK(FloatToInt24Packed);

void Int24PackedToFloat(benchmark::State& state)
{
    Buffer source = ConvertedBlock(3);
    std::unique_ptr<CSampleFunnel> funnel = DplAudio_CreateSampleTypeConverter(3, 6, 2, nullptr);
    RunFunnel(state, *funnel, source.get(), 3, 4);
}
BENCHMARK(Int24PackedToFloat);

void FloatToInt24Wide(benchmark::State& state)
{
    Buffer source = FloatBlock();
    std::unique_ptr<CSampleFunnel> funnel = DplAudio_CreateSampleTypeConverter(6, 4, 2, nullptr);
    RunFunnel(state, *funnel, source.get(), 4, 4);
}
BENCHMARK(FloatToInt24Wide);

void Int24WideToFloat(benchmark::State& state)
{
    Buffer source = ConvertedBlock(4);
    std::unique_ptr<CSampleFunnel> funnel = DplAudio_CreateSampleTypeConverter(4, 6, 2, nullptr);
    RunFunnel(state, *funnel, source.get(), 4, 4);
}
BENCHMARK(Int24WideToFloat);

void FloatToInt16Swapped(benchmark::State& state)
{
    Buffer source = FloatBlock();
    std::unique_ptr<CSampleFunnel> funnel = DplAudio_CreateSampleTypeConverter(6, 14, 2, nullptr);
    RunFunnel(state, *funnel, source.get(), 4, 2);
}
BENCHMARK(FloatToInt16Swapped);

#ifdef TIDEMIX_HAVE_SAMPLERATE
void Libsamplerate_FloatToShort(benchmark::State& state)
{
    Buffer source = FloatBlock();
    Buffer dest = Allocate(kSamples * 2);
    for (auto _ : state)
    {
        src_float_to_short_array(reinterpret_cast<const float*>(source.get()),
                                 reinterpret_cast<short*>(dest.get()), kSamples);
        benchmark::DoNotOptimize(dest.get());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kSamples * 4);
}
BENCHMARK(Libsamplerate_FloatToShort);

void Libsamplerate_ShortToFloat(benchmark::State& state)
{
    Buffer source = ConvertedBlock(2);
    Buffer dest = Allocate(kSamples * 4);
    for (auto _ : state)
    {
        src_short_to_float_array(reinterpret_cast<const short*>(source.get()),
                                 reinterpret_cast<float*>(dest.get()), kSamples);
        benchmark::DoNotOptimize(dest.get());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kSamples * 2);
}
BENCHMARK(Libsamplerate_ShortToFloat);

void Libsamplerate_FloatToInt32(benchmark::State& state)
{
    Buffer source = FloatBlock();
    Buffer dest = Allocate(kSamples * 4);
    for (auto _ : state)
    {
        src_float_to_int_array(reinterpret_cast<const float*>(source.get()),
                               reinterpret_cast<int*>(dest.get()), kSamples);
        benchmark::DoNotOptimize(dest.get());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kSamples * 4);
}
BENCHMARK(Libsamplerate_FloatToInt32);
#endif
}  // namespace
