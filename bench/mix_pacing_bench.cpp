// How closely a mix's own audio thread keeps to the host clock: the error of
// each block's departure against its time stamp, at the 50th and 99th
// percentile, with and without two threads loading both cores, and with the
// simulated platform (no real-time request granted) or the Linux one (which
// asks RealtimeKit, else SCHED_FIFO, for the thread).

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "engine/DRAVManager.h"
#include "engine/devices/DRAVMultiChannelAudioMixerCoreAudio.h"
#include "engine/media/DRAVAudioBuffer.h"
#include "engine/units/DRAVSink.h"
#include "engine/units/DRAVSource.h"
#include "platform/Platform.h"
#include "portable-core/DRAVTime.h"

namespace
{
constexpr int64_t kFrames = 960;
constexpr size_t kBlocks = 250;  // five seconds

class SilentSource : public DRAVSource
{
public:
    SilentSource() : DRAVSource("silent source", nullptr, DRAVSourceConfig{2, 1}, 1)
    {
        std::vector<float> zeros(kFrames * 2, 0.0f);
        block_ = DRAVAudioBuffer::GetAudioBuffer(
            "silent source", kFrames * 8, DRAVAudioFormat(48000, 2, kDRAVAudioSampleTypeFloat, 3, true),
            zeros.data(), kFrames * 8);
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

// Notes how late each block left against its stamp, in microseconds.
class LatenessSink : public DRAVSink
{
public:
    LatenessSink() : DRAVSink("lateness sink", nullptr, DRAVSinkConfig{5}, 1) { lateness_.reserve(kBlocks); }
    DRAVResult SendAudioFrame(std::shared_ptr<DRAVAudioBuffer> frame) override
    {
        const int64_t now = DRAVGetHostTime().Get();
        std::lock_guard lock(mutex_);
        if (lateness_.size() < kBlocks)
        {
            lateness_.push_back(static_cast<double>(now - frame->GetTimestamp().Get()));
            if (lateness_.size() == kBlocks)
            {
                done_.notify_all();
            }
        }
        return DRAVResult();
    }
    std::vector<double> Wait()
    {
        std::unique_lock lock(mutex_);
        done_.wait(lock, [this] { return lateness_.size() == kBlocks; });
        return lateness_;
    }

private:
    std::mutex mutex_;
    std::condition_variable done_;
    std::vector<double> lateness_;
};

double Percentile(std::vector<double> values, double fraction)
{
    std::sort(values.begin(), values.end());
    return values[static_cast<size_t>(fraction * static_cast<double>(values.size() - 1))];
}

// args: competing load on both cores (0/1), the Linux platform's real-time request (0/1).
void BM_MixPacing(benchmark::State& state)
{
    const bool load = state.range(0) != 0;
    const bool realtime = state.range(1) != 0;
    tidemix::platform::Platform::Use(tidemix::platform::Platform::Create(realtime ? "linux" : "sim"));
    DRAVManager::GetDRAVManager()->Init();
    std::atomic<bool> stop{false};
    std::vector<std::thread> hogs;
    if (load)
    {
        for (unsigned i = 0; i < std::max(2u, std::thread::hardware_concurrency()); ++i)
        {
            hogs.emplace_back(
                [&stop]
                {
                    double x = 1.0;
                    while (!stop.load(std::memory_order_relaxed))
                    {
                        x = std::sqrt(x + 1.0);
                        benchmark::DoNotOptimize(x);
                    }
                });
        }
    }
    for (auto _ : state)
    {
        auto mixer = std::make_shared<DRAVMultiChannelAudioMixerCoreAudio>("Pacing", DRAVFilterConfig{8}, 1,
                                                                           1, DRAVGetHostTime());
        mixer->Init();
        mixer->SetProcessingBufferSizeFrameCount(kFrames);
        mixer->AddSource(std::make_shared<SilentSource>(), 0);
        auto sink = std::make_shared<LatenessSink>();
        mixer->AddSink(sink);
        mixer->SetUnitState(kDRAVUnitStateRunning);
        const std::vector<double> lateness = sink->Wait();
        mixer->SetUnitState(kDRAVUnitStatePaused);
        state.counters["p50_us"] = Percentile(lateness, 0.50);
        state.counters["p99_us"] = Percentile(lateness, 0.99);
        state.counters["max_us"] = Percentile(lateness, 1.0);
    }
    stop.store(true);
    for (auto& hog : hogs)
    {
        hog.join();
    }
    DRAVManager::GetDRAVManager()->Deinit();
    tidemix::platform::Platform::Use(nullptr);
}
BENCHMARK(BM_MixPacing)
    ->ArgsProduct({{0, 1}, {0, 1}})
    ->ArgNames({"load", "realtime"})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
}  // namespace
