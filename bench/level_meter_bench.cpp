// The engine's level meter path: one stereo block of 960 frames through
// CDplAudioProcessor, in nanoseconds per sample.
#include <benchmark/benchmark.h>

#include <cmath>
#include <numbers>
#include <vector>

#include "sound/CDplAudioFilter_Level.h"
#include "sound/CDplAudioProcessor.h"
#include "sound/CInterleavedFilter.h"
#include "sound/DplAudioConverters.h"

namespace
{
constexpr int kFrames = 960;

std::vector<float> SineBlock(int channels)
{
    std::vector<float> block(static_cast<size_t>(kFrames * channels));
    for (int i = 0; i < kFrames; ++i)
    {
        for (int c = 0; c < channels; ++c)
        {
            block[static_cast<size_t>(i * channels + c)] =
                static_cast<float>(0.8 * std::sin(2.0 * std::numbers::pi * 440.0 * (c + 1) * i / 48000.0));
        }
    }
    return block;
}

// Reported as seconds per sample (shown with an "n" prefix for nanoseconds).
void PerSample(benchmark::State& state, int samples)
{
    state.counters["per_sample"] =
        benchmark::Counter(static_cast<double>(samples),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void Processor(benchmark::State& state)
{
    const int channels = static_cast<int>(state.range(0));
    CDplAudioProcessor processor(6, channels, 48000);
    processor.SetDecreaseDbPerSecond(48.0);
    std::vector<float> block = SineBlock(channels);
    const int bytes = static_cast<int>(block.size() * sizeof(float));
    for (auto _ : state)
    {
        processor.MeasureAudioLevel(block.data(), bytes);
        benchmark::DoNotOptimize(processor.GetAudioLevel(0));
    }
    PerSample(state, static_cast<int>(block.size()));
}
BENCHMARK(Processor)->Arg(2)->Arg(8);

// With a gain below 1 the block is scaled in place through the funnel.
void ProcessorWithGain(benchmark::State& state)
{
    CDplAudioProcessor processor(6, 2, 48000);
    processor.SetGainNorm(0.999, -1);
    std::vector<float> block = SineBlock(2);
    const int bytes = static_cast<int>(block.size() * sizeof(float));
    for (auto _ : state)
    {
        processor.MeasureAudioLevel(block.data(), bytes);
        benchmark::DoNotOptimize(block.data());
    }
    PerSample(state, static_cast<int>(block.size()));
}
BENCHMARK(ProcessorWithGain);

// The generic route: the in-place funnel calling the interleaved filter,
// which calls each channel's meter (two virtual calls a sample).
void FunnelRoute(benchmark::State& state)
{
    std::vector<CCountedPtr<CSampleFunnel::Filter>> meters = {new CDplAudioFilter_Level(48000),
                                                              new CDplAudioFilter_Level(48000)};
    CCountedPtr<CSampleFunnel::Filter> interleaved(new CInterleavedFilter(meters));
    std::unique_ptr<CSampleFilterFunnel> funnel = DplAudio_CreateAudioProcessingFilter(6, interleaved);
    std::vector<float> block = SineBlock(2);
    for (auto _ : state)
    {
        funnel->ObserveBuffer(block.data(), static_cast<int>(block.size()));
        benchmark::ClobberMemory();
    }
    PerSample(state, static_cast<int>(block.size()));
}
BENCHMARK(FunnelRoute);
}  // namespace
