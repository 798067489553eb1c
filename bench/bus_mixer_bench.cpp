// Cost of one 960-frame block through the bus mixer with 8 buses, each pulled
// by a callback that copies its block in (as the mixer's sources do) and the
// result copied out to two sinks, against plain summing loops over the same
// buffers. Counters: block_us per block and budget_pct of the 20 ms a block
// lasts.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "engine/media/AlignedSampleBuffer.h"
#include "engine/devices/AudioBusMixer.h"

namespace
{

using tidemix::engine::AlignedSampleBuffer;
using tidemix::engine::AudioBusMixer;

constexpr uint32_t kBlock = 960;
constexpr uint32_t kBuses = 8;
constexpr uint32_t kSinks = 2;

struct Buffers
{
    std::vector<AlignedSampleBuffer<float>> sourceLeft, sourceRight;
    AlignedSampleBuffer<float> left{kBlock}, right{kBlock};
    std::vector<AlignedSampleBuffer<float>> sink;  // left and right behind it, per sink
    float gains[kBuses];

    Buffers()
    {
        for (uint32_t b = 0; b < kBuses; ++b)
        {
            sourceLeft.emplace_back(kBlock);
            sourceRight.emplace_back(kBlock);
            for (uint32_t i = 0; i < kBlock; ++i)
            {
                sourceLeft[b].Data()[i] = static_cast<float>((i * (b + 1)) % 97) / 97.0f - 0.5f;
                sourceRight[b].Data()[i] = static_cast<float>((i * (b + 3)) % 89) / 89.0f - 0.5f;
            }
            gains[b] = 0.1f * (b + 1);
        }
        for (uint32_t s = 0; s < kSinks; ++s)
            sink.emplace_back(kBlock * 2);
    }

    void CopyToSinks()
    {
        for (auto& s : sink)
        {
            std::memcpy(s.Data(), left.Data(), kBlock * sizeof(float));
            std::memcpy(s.Data() + kBlock, right.Data(), kBlock * sizeof(float));
        }
    }
};

void AddBlockCounters(benchmark::State& state)
{
    using benchmark::Counter;
    state.counters["block_us"] = Counter(1e-6, Counter::kIsIterationInvariantRate | Counter::kInvert);
    state.counters["budget_pct"] =
        Counter(0.02 / 100.0, Counter::kIsIterationInvariantRate | Counter::kInvert);
}

void BM_BusMixer8BusesTwoSinks(benchmark::State& state)
{
    Buffers buffers;
    AudioBusMixer mixer(kBlock);
    (void)mixer.SetBusCount(kBuses);
    for (uint32_t b = 0; b < kBuses; ++b)
    {
        const float* srcLeft = buffers.sourceLeft[b].Data();
        const float* srcRight = buffers.sourceRight[b].Data();
        (void)mixer.SetBusCallback(b,
                                   [srcLeft, srcRight](float* l, float* r, uint32_t n)
                                   {
                                       std::memcpy(l, srcLeft, n * sizeof(float));
                                       std::memcpy(r, srcRight, n * sizeof(float));
                                       return true;
                                   });
        (void)mixer.SetBusGain(b, buffers.gains[b]);
    }
    for (auto _ : state)
    {
        mixer.Render(buffers.left.Data(), buffers.right.Data(), kBlock);
        buffers.CopyToSinks();
        benchmark::DoNotOptimize(buffers.sink[1].Data()[kBlock]);
        benchmark::ClobberMemory();
    }
    AddBlockCounters(state);
}
BENCHMARK(BM_BusMixer8BusesTwoSinks);

// The limit: gains applied and summed straight from the sources, in chunks
// of 8 so that the loop vectorises, then the same copies to the sinks.
void BM_PlainSum8BusesTwoSinks(benchmark::State& state)
{
    Buffers buffers;
    for (auto _ : state)
    {
        float* __restrict left = buffers.left.Data();
        float* __restrict right = buffers.right.Data();
        std::memset(left, 0, kBlock * sizeof(float));
        std::memset(right, 0, kBlock * sizeof(float));
        for (uint32_t b = 0; b < kBuses; ++b)
        {
            const float* __restrict inLeft = buffers.sourceLeft[b].Data();
            const float* __restrict inRight = buffers.sourceRight[b].Data();
            const float g = buffers.gains[b];
            for (uint32_t i = 0; i < kBlock; i += 8)
                for (uint32_t k = 0; k < 8; ++k)
                {
                    left[i + k] += g * inLeft[i + k];
                    right[i + k] += g * inRight[i + k];
                }
        }
        buffers.CopyToSinks();
        benchmark::DoNotOptimize(buffers.sink[1].Data()[kBlock]);
        benchmark::ClobberMemory();
    }
    AddBlockCounters(state);
}
BENCHMARK(BM_PlainSum8BusesTwoSinks);

// The plain sum with the same copy of each bus into a scratch block first, as
// a pull through a callback needs: what remains between this and the mixer is
// the metering, the output gain pass and the calls.
void BM_PlainSumWithBusCopies8BusesTwoSinks(benchmark::State& state)
{
    Buffers buffers;
    AlignedSampleBuffer<float> scratchLeft(kBlock), scratchRight(kBlock);
    for (auto _ : state)
    {
        float* __restrict left = buffers.left.Data();
        float* __restrict right = buffers.right.Data();
        std::memset(left, 0, kBlock * sizeof(float));
        std::memset(right, 0, kBlock * sizeof(float));
        for (uint32_t b = 0; b < kBuses; ++b)
        {
            std::memcpy(scratchLeft.Data(), buffers.sourceLeft[b].Data(), kBlock * sizeof(float));
            std::memcpy(scratchRight.Data(), buffers.sourceRight[b].Data(), kBlock * sizeof(float));
            benchmark::ClobberMemory();
            const float* __restrict inLeft = scratchLeft.Data();
            const float* __restrict inRight = scratchRight.Data();
            const float g = buffers.gains[b];
            for (uint32_t i = 0; i < kBlock; i += 8)
                for (uint32_t k = 0; k < 8; ++k)
                {
                    left[i + k] += g * inLeft[i + k];
                    right[i + k] += g * inRight[i + k];
                }
        }
        buffers.CopyToSinks();
        benchmark::DoNotOptimize(buffers.sink[1].Data()[kBlock]);
        benchmark::ClobberMemory();
    }
    AddBlockCounters(state);
}
BENCHMARK(BM_PlainSumWithBusCopies8BusesTwoSinks);

}  // namespace
