// The cost of one block through each device unit, driven by hand on the
// benchmark's thread the way the sim-based tests drive them: a 960-frame
// packet of a 48000 Hz stereo float microphone through the capture source
// into its ring (and out again, as the mix pulls it), and a 960-frame block
// through the renderer sink to a 48000 Hz stereo float speaker's request.
//
// Besides the time, every mutex the benchmark's thread takes while a block
// passes is counted (pthread_mutex_lock is interposed below), and so is every
// memcpy of at least 256 bytes: the copies of sample data that are plain
// copies. Conversions and resampling write samples too; they are not memcpy.

#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <pthread.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "engine/filters/DRAVEngineFilters.h"
#include "engine/media/DRAVAudioBuffer.h"
#include "engine/media/DRAVBufferRAM.h"
#include "engine/media/DRAVMediaBufferLock.h"
#include "engine/media/DRAVMemoryPoolRAM.h"
#include "engine/sinks/DRAVSinkAudioRendererAudioUnit.h"
#include "engine/sources/DRAVSourceAudioCaptureCoreAudio.h"
#include "engine/units/DRAVUnitFactory.h"
#include "platform/CountingProcessActivity.h"
#include "platform/Platform.h"

namespace
{
thread_local bool tCounting = false;
thread_local int64_t tLocks = 0;
thread_local int64_t tCopies = 0;

using LockFunction = int (*)(pthread_mutex_t*);
using CopyFunction = void* (*)(void*, const void*, size_t);

LockFunction RealLock()
{
    static const auto sLock = reinterpret_cast<LockFunction>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
    return sLock;
}

CopyFunction RealCopy()
{
    static const auto sCopy = reinterpret_cast<CopyFunction>(dlsym(RTLD_NEXT, "memcpy"));
    return sCopy;
}
}  // namespace

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex)
{
    if (tCounting)
    {
        ++tLocks;
    }
    return RealLock()(mutex);
}

extern "C" void* memcpy(void* __restrict destination, const void* __restrict source, size_t size) noexcept
{
    if (tCounting && size >= 256)
    {
        ++tCopies;
    }
    return RealCopy()(destination, source, size);
}

namespace
{
using tidemix::platform::AudioDeviceInfo;
using tidemix::platform::CaptureCallback;
using tidemix::platform::CapturePacket;
using tidemix::platform::CaptureStream;
using tidemix::platform::DeviceStreamFormat;
using tidemix::platform::ListenerToken;
using tidemix::platform::PlaybackCallback;
using tidemix::platform::PlaybackRequest;
using tidemix::platform::PlaybackStream;

constexpr uint32_t kFrames = 960;

// One device of each direction whose callbacks the benchmark calls itself.
class HandAudio : public tidemix::platform::AudioSystem
{
public:
    std::vector<AudioDeviceInfo> Devices() override
    {
        AudioDeviceInfo device;
        device.id = 1;
        device.uid = "hand";
        device.name = "hand";
        device.inputStreams = 1;
        device.outputStreams = 1;
        return {device};
    }
    std::optional<uint32_t> DefaultOutput() override { return 1; }
    ListenerToken AddDeviceListListener(std::function<void()>) override { return 0; }
    ListenerToken AddDefaultOutputListener(std::function<void()>) override { return 0; }
    void RemoveListener(ListenerToken) override {}

    std::unique_ptr<CaptureStream> OpenCapture(uint32_t, CaptureCallback callback) override
    {
        capture = std::move(callback);
        return std::make_unique<Capture>();
    }
    std::unique_ptr<PlaybackStream> OpenPlayback(uint32_t, PlaybackCallback callback) override
    {
        playback = std::move(callback);
        return std::make_unique<Playback>();
    }

    CaptureCallback capture;
    PlaybackCallback playback;

private:
    struct Capture : CaptureStream
    {
        DeviceStreamFormat Format() const override { return DeviceStreamFormat{}; }
        DRAVResult Start() override { return kDRAVResultOk; }
        void Stop() override {}
    };
    struct Playback : PlaybackStream
    {
        DeviceStreamFormat Format() const override { return DeviceStreamFormat{}; }
        DRAVResult Start() override { return kDRAVResultOk; }
        void Stop() override {}
        void SetVolume(float) override {}
        float Volume() const override { return 1.0f; }
        DRAVResult MoveTo(uint32_t) override { return kDRAVResultOk; }
    };
};

class HandPlatform : public tidemix::platform::Platform
{
public:
    std::string Name() const override { return "hand"; }
    tidemix::platform::AudioSystem& Audio() override { return audio; }
    tidemix::platform::ProcessActivity& Activity() override { return activity; }

    HandAudio audio;
    tidemix::platform::CountingProcessActivity activity;
};

// The engine's own filters (the level meter) and pool, as on a mix's road.
struct Road
{
    Road()
    {
        DRAVUnitFactory factory;
        factory.createFilter =
            [](int32_t type, std::shared_ptr<DRAVUnit> owner, bool init, std::shared_ptr<DRAVUnit>* out)
        {
            std::shared_ptr<DRAVFilter> filter = DRAVCreateEngineFilter(DRAVFilterConfig{type, false});
            if (!filter)
            {
                return DRAVResult(kDRAVResultErrUnknownUnit);
            }
            owner->AddChild(filter);
            filter->SetOwner(owner);
            DRAVResult result = init ? filter->Init() : DRAVResult(kDRAVResultOk);
            if (result.Succeeded())
            {
                *out = filter;
            }
            return result;
        };
        formerFactory = DRAVUnitFactory::Install(factory);
        tidemix::platform::Platform::Use(platform);
    }
    ~Road()
    {
        tidemix::platform::Platform::Use(nullptr);
        DRAVUnitFactory::Install(formerFactory);
    }

    std::shared_ptr<HandPlatform> platform = std::make_shared<HandPlatform>();
    DRAVUnitFactory formerFactory;
};

void Report(benchmark::State& state, std::chrono::steady_clock::duration spent, int64_t locks, int64_t copies)
{
    const double blocks = static_cast<double>(state.iterations());
    state.counters["us_per_block"] = std::chrono::duration<double, std::micro>(spent).count() / blocks;
    state.counters["locks_per_block"] = static_cast<double>(locks) / blocks;
    state.counters["memcpy_per_block"] = static_cast<double>(copies) / blocks;
}

// One packet in makes one block in the ring; the pull takes it out again.
void BM_CaptureSourceBlock(benchmark::State& state)
{
    Road road;
    auto source = std::make_shared<DRAVSourceAudioCaptureCoreAudio>();
    source->InitSource(kDRAVPinTypePullRingBuffer);
    source->SetBufferSizeFrameCount(kFrames);
    source->SetDevicePath("1");
    source->SetUnitState(kDRAVUnitStateRunning);

    std::vector<float> samples(kFrames * 2, 0.25f);
    const void* buffers[1] = {samples.data()};
    CapturePacket packet;
    packet.buffers = buffers;
    packet.bufferCount = 1;
    packet.frames = kFrames;
    auto ring = source->GetOutputPin(0)->GetQueue();
    std::shared_ptr<DRAVAudioBuffer> pulled;
    for (int i = 0; i < 200; ++i)
    {
        road.platform->audio.capture(packet);
        source->PullAudioFrame(DRAVTimestamp(0), &pulled, DRAVDuration(20000), 0);
        pulled.reset();
    }
    const int64_t blocksBefore = source->GetBlockCount();

    int64_t locks = 0;
    int64_t copies = 0;
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state)
    {
        tLocks = 0;
        tCopies = 0;
        tCounting = true;
        road.platform->audio.capture(packet);
        source->PullAudioFrame(DRAVTimestamp(0), &pulled, DRAVDuration(20000), 0);
        tCounting = false;
        locks += tLocks;
        copies += tCopies;
        benchmark::DoNotOptimize(pulled.get());
        pulled.reset();
    }
    Report(state, std::chrono::steady_clock::now() - start, locks, copies);
    if (source->GetBlockCount() - blocksBefore != static_cast<int64_t>(state.iterations()))
    {
        state.SkipWithError("a packet made no block");
    }
    source->SetUnitState(kDRAVUnitStatePaused);
    source->Deinit();
}
BENCHMARK(BM_CaptureSourceBlock);

// One block in, one device request of the same length out.
void BM_RendererSinkBlock(benchmark::State& state)
{
    Road road;
    auto sink = std::make_shared<DRAVSinkAudioRendererAudioUnit>();
    sink->Init();
    sink->SetBufferSizeFrameCount(kFrames);
    sink->SetDevicePath("1");
    sink->SetUnitState(kDRAVUnitStateRunning);

    const DRAVAudioFormat planarStereo(48000, 2, kDRAVAudioSampleTypeFloat, 0, true);
    std::vector<float> samples(kFrames * 2, 0.25f);
    std::shared_ptr<DRAVAudioBuffer> block = DRAVAudioBuffer::GetAudioBuffer(
        "bench", kFrames * 8, planarStereo, samples.data(), static_cast<int64_t>(kFrames * 8));
    std::vector<float> output(kFrames * 2);
    void* outputs[1] = {output.data()};
    PlaybackRequest request;
    request.buffers = outputs;
    request.bufferCount = 1;
    request.frames = kFrames;
    sink->SendFrame(block);
    for (int i = 0; i < 200; ++i)
    {
        sink->SendFrame(block);
        road.platform->audio.playback(request);
    }
    const int64_t underrunsBefore = sink->GetUnderrunCount();

    int64_t locks = 0;
    int64_t copies = 0;
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state)
    {
        tLocks = 0;
        tCopies = 0;
        tCounting = true;
        sink->SendFrame(block);
        road.platform->audio.playback(request);
        tCounting = false;
        locks += tLocks;
        copies += tCopies;
        benchmark::DoNotOptimize(output.data());
    }
    Report(state, std::chrono::steady_clock::now() - start, locks, copies);
    if (sink->GetUnderrunCount() != underrunsBefore)
    {
        state.SkipWithError("a request found too little");
    }
    sink->SetUnitState(kDRAVUnitStatePaused);
    sink->Deinit();
}
BENCHMARK(BM_RendererSinkBlock);

}  // namespace
