// The level meter unit on the road of the mix: one stereo block of 960 frames
// sent into a running DRAVAudioLevelmeter, through its passthrough pin and
// straight into the unit, in nanoseconds per sample. Compare with
// level_meter_bench, which measures the processor alone.
#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <numbers>
#include <vector>

#include "engine/media/DRAVAudioBuffer.h"
#include "engine/filters/DRAVAudioLevelmeter.h"

namespace
{
constexpr int kFrames = 960;

std::shared_ptr<DRAVAudioBuffer> SineFrame()
{
    std::vector<float> block(static_cast<size_t>(kFrames * 2));
    for (int i = 0; i < kFrames; ++i)
    {
        const float sample = static_cast<float>(0.8 * std::sin(2.0 * std::numbers::pi * 440.0 * i / 48000.0));
        block[static_cast<size_t>(i * 2)] = sample;
        block[static_cast<size_t>(i * 2 + 1)] = -sample;
    }
    const auto size = static_cast<int64_t>(block.size() * sizeof(float));
    return DRAVAudioBuffer::GetAudioBuffer("bench", size, kDefaultAudioFormatFloat, block.data(), size);
}

std::shared_ptr<DRAVAudioLevelmeter> RunningMeter()
{
    auto meter = std::make_shared<DRAVAudioLevelmeter>();
    meter->Init();
    meter->SetUnitState(kDRAVUnitStateRunning);
    return meter;
}

void PerSample(benchmark::State& state, int samples)
{
    state.counters["per_sample"] =
        benchmark::Counter(static_cast<double>(samples),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void MeterThroughPin(benchmark::State& state)
{
    auto meter = RunningMeter();
    std::shared_ptr<DRAVMediaBuffer> frame = SineFrame();
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(meter->SendFrame(frame));
    }
    benchmark::DoNotOptimize(meter->GetVULevelChannel1());
    PerSample(state, kFrames * 2);
    meter->Deinit();
}
BENCHMARK(MeterThroughPin);

void MeterDirect(benchmark::State& state)
{
    auto meter = RunningMeter();
    std::shared_ptr<DRAVMediaBuffer> frame = SineFrame();
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(meter->InputMediaBufferReceived(nullptr, 0, frame));
    }
    PerSample(state, kFrames * 2);
    meter->Deinit();
}
BENCHMARK(MeterDirect);

// A control thread's reading, as the levels queue does 30 times a second.
void MeterRead(benchmark::State& state)
{
    auto meter = RunningMeter();
    meter->SendFrame(SineFrame());
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(meter->GetVULevelChannel1());
    }
    meter->Deinit();
}
BENCHMARK(MeterRead);
}  // namespace
