// The cost of one mix block: 960 frames, 8 buses, 2 sinks, through the mixer
// unit's block function (without the sleeping loop), against a plain summing
// loop over the same 8 stereo buffers, which is the limit.

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "engine/media/AlignedSampleBuffer.h"
#include "engine/devices/AudioBusMixer.h"
#include "engine/devices/DRAVMultiChannelAudioMixerCoreAudio.h"

namespace
{
std::atomic<int64_t> gAllocations{0};
}  // namespace

// The replacements below pair malloc with free on purpose; g++ can't tell
// once they are inlined into each other's callers.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

// Counts every allocation of the process, to tell what a block costs in
// allocations as well as in time.
void* operator new(std::size_t size)
{
    gAllocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size == 0 ? 1 : size))
    {
        return p;
    }
    throw std::bad_alloc();
}

void* operator new(std::size_t size, std::align_val_t alignment)
{
    gAllocations.fetch_add(1, std::memory_order_relaxed);
    const auto align = static_cast<std::size_t>(alignment);
    const std::size_t rounded = (size + align - 1) / align * align;
    if (void* p = std::aligned_alloc(align, rounded == 0 ? align : rounded))
    {
        return p;
    }
    throw std::bad_alloc();
}

void operator delete(void* p, std::align_val_t) noexcept
{
    std::free(p);
}

void operator delete(void* p, std::size_t, std::align_val_t) noexcept
{
    std::free(p);
}

void operator delete(void* p) noexcept
{
    std::free(p);
}

void operator delete(void* p, std::size_t) noexcept
{
    std::free(p);
}

namespace
{
using tidemix::engine::AlignedSampleBuffer;

constexpr uint32_t kFrames = 960;
constexpr int kBuses = 8;
constexpr double kBudgetUsec = 20000.0;

const DRAVAudioFormat kPlanarStereo(48000, 2, kDRAVAudioSampleTypeFloat, 3, true);

std::vector<float> BusSamples(int bus)
{
    std::vector<float> samples(kFrames * 2);
    for (uint32_t i = 0; i < kFrames * 2; ++i)
    {
        samples[i] = 0.1f * std::sin(0.01f * static_cast<float>(i * (bus + 1)));
    }
    return samples;
}

// A source whose ring always holds one block: every pull hands out the same
// ready frame, so that the source's own costs stay out of the measurement.
class ReadySource : public DRAVSource
{
public:
    explicit ReadySource(int bus) : DRAVSource("ready source", nullptr, DRAVSourceConfig{2, 1}, 1)
    {
        const std::vector<float> samples = BusSamples(bus);
        block_ = DRAVAudioBuffer::GetAudioBuffer("ready source", kFrames * 8, kPlanarStereo, samples.data(),
                                                 kFrames * 8);
    }
    DRAVResult PullAudioFrame(const DRAVTimestamp&, std::shared_ptr<DRAVAudioBuffer>* out,
                              const DRAVDuration&, int) override
    {
        *out = block_;
        return DRAVResult();
    }
    using DRAVSource::PullAudioFrame;

private:
    std::shared_ptr<DRAVAudioBuffer> block_;
};

// A sink that takes every block and lets it go at once.
class DiscardingSink : public DRAVSink
{
public:
    DiscardingSink() : DRAVSink("discarding sink", nullptr, DRAVSinkConfig{5}, 1) {}
    DRAVResult SendAudioFrame(std::shared_ptr<DRAVAudioBuffer> frame) override
    {
        benchmark::DoNotOptimize(frame.get());
        return DRAVResult();
    }
};

class BenchMixer : public DRAVMultiChannelAudioMixerCoreAudio
{
public:
    BenchMixer()
        : DRAVMultiChannelAudioMixerCoreAudio("Bench", DRAVFilterConfig{8}, kBuses, 1, DRAVTimestamp(0))
    {
    }
    DRAVDuration RenderBlock() { return AudioThread(); }

protected:
    void StartRenderLoop() override {}
};

void ReportPerBlock(benchmark::State& state, std::chrono::steady_clock::duration spent, int64_t allocations)
{
    const double blocks = static_cast<double>(state.iterations());
    const double usecPerBlock = std::chrono::duration<double, std::micro>(spent).count() / blocks;
    state.counters["us_per_block"] = usecPerBlock;
    state.counters["budget_pct"] = 100.0 * usecPerBlock / kBudgetUsec;
    state.counters["allocs_per_block"] = static_cast<double>(allocations) / blocks;
}

void BM_MixerUnitBlock(benchmark::State& state)
{
    auto mixer = std::make_shared<BenchMixer>();
    mixer->Init();
    mixer->SetProcessingBufferSizeFrameCount(kFrames);
    for (int bus = 0; bus < kBuses; ++bus)
    {
        mixer->AddSource(std::make_shared<ReadySource>(bus), bus);
        mixer->SetInputVolume(bus, 0.5 + 0.05 * bus);
    }
    mixer->AddSink(std::make_shared<DiscardingSink>());
    mixer->AddSink(std::make_shared<DiscardingSink>());
    mixer->SetUnitState(kDRAVUnitStateRunning);
    mixer->RenderBlock();  // the pool has its items from here on

    const int64_t allocationsBefore = gAllocations.load();
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(mixer->RenderBlock());
    }
    ReportPerBlock(state, std::chrono::steady_clock::now() - start, gAllocations.load() - allocationsBefore);
    mixer->SetUnitState(kDRAVUnitStatePaused);
}
BENCHMARK(BM_MixerUnitBlock);

// The bus mixer alone, its callbacks copying ready planar blocks: the unit's
// cost less the pulls, locks and the two sinks' blocks.
void BM_BusMixerOnly(benchmark::State& state)
{
    std::vector<std::vector<float>> buses;
    for (int bus = 0; bus < kBuses; ++bus)
    {
        buses.push_back(BusSamples(bus));
    }
    tidemix::engine::AudioBusMixer mixer(kFrames);
    mixer.SetBusCount(kBuses);
    for (int bus = 0; bus < kBuses; ++bus)
    {
        const float* samples = buses[bus].data();
        mixer.SetBusCallback(bus,
                             [samples](float* left, float* right, uint32_t frames)
                             {
                                 std::memcpy(left, samples, frames * sizeof(float));
                                 std::memcpy(right, samples + kFrames, frames * sizeof(float));
                                 return true;
                             });
        mixer.SetBusGain(bus, 0.5f + 0.05f * bus);
    }
    AlignedSampleBuffer<float> left(kFrames);
    AlignedSampleBuffer<float> right(kFrames);

    const int64_t allocationsBefore = gAllocations.load();
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state)
    {
        mixer.Render(left.Data(), right.Data(), kFrames);
        benchmark::DoNotOptimize(left.Data());
        benchmark::DoNotOptimize(right.Data());
    }
    ReportPerBlock(state, std::chrono::steady_clock::now() - start, gAllocations.load() - allocationsBefore);
}
BENCHMARK(BM_BusMixerOnly);

// The limit: one loop summing the 8 stereo buffers at their gains.
void BM_PlainSummingLoop(benchmark::State& state)
{
    std::vector<AlignedSampleBuffer<float>> buses;
    for (int bus = 0; bus < kBuses; ++bus)
    {
        buses.emplace_back(kFrames * 2);
        const std::vector<float> samples = BusSamples(bus);
        std::memcpy(buses.back().Data(), samples.data(), samples.size() * sizeof(float));
    }
    float gains[kBuses];
    for (int bus = 0; bus < kBuses; ++bus)
    {
        gains[bus] = 0.5f + 0.05f * bus;
    }
    AlignedSampleBuffer<float> left(kFrames);
    AlignedSampleBuffer<float> right(kFrames);

    const int64_t allocationsBefore = gAllocations.load();
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state)
    {
        float* __restrict l = left.Data();
        float* __restrict r = right.Data();
        std::memset(l, 0, kFrames * sizeof(float));
        std::memset(r, 0, kFrames * sizeof(float));
        for (int bus = 0; bus < kBuses; ++bus)
        {
            const float* __restrict in = buses[bus].Data();
            const float gain = gains[bus];
            for (uint32_t i = 0; i < kFrames; ++i)
            {
                l[i] += gain * in[i];
                r[i] += gain * in[kFrames + i];
            }
        }
        benchmark::DoNotOptimize(l);
        benchmark::DoNotOptimize(r);
        benchmark::ClobberMemory();
    }
    ReportPerBlock(state, std::chrono::steady_clock::now() - start, gAllocations.load() - allocationsBefore);
}
BENCHMARK(BM_PlainSummingLoop);

}  // namespace
