#include "MixToWavDemo.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>

#include "engine/DRAVManager.h"
#include "engine/devices/DRAVMultiChannelAudioMixerCoreAudio.h"
#include "engine/sinks/DRAVSinkAudioRendererAudioUnit.h"
#include "engine/sources/DRAVSourceAudioCaptureCoreAudio.h"
#include "engine/units/DRAVRingBuffer.h"
#include "engine/units/DRAVUnitOutputPin.h"
#include "platform/Platform.h"
#include "platform/sim/SimPlatform.h"

namespace
{
using tidemix::platform::SampleEncoding;
using tidemix::platform::sim::SimDeviceSpec;
using tidemix::platform::sim::SimSignal;
using tidemix::platform::sim::SimTone;

constexpr int64_t kBlockFrames = 960;  // 20 ms, the mix's block

// A capture source as an input of a mix makes it: blocks of the mix, running
// on the device, into a ring of four blocks (two, as an input sizes it, both
// overrun and run dry with a 44100 Hz device's 512-frame packets).
std::shared_ptr<DRAVSourceAudioCaptureCoreAudio> StartCapture(uint32_t deviceId)
{
    auto source = std::make_shared<DRAVSourceAudioCaptureCoreAudio>(DRAVSourceConfig{});
    source->SetBufferSizeFrameCount(kBlockFrames);
    if (!source->InitSource(kDRAVPinTypePullRingBuffer).Succeeded())
    {
        return nullptr;
    }
    if (auto pin = source->GetOutputPin(0))
    {
        if (auto ring = std::dynamic_pointer_cast<DRAVRingBuffer>(pin->GetQueue()))
        {
            ring->SetMaxTotalSizeMB(static_cast<int>(4 * 8 * kBlockFrames));  // stereo float
        }
    }
    source->SetDevicePath(std::to_string(deviceId));
    source->SetUnitState(kDRAVUnitStateRunning);
    return source;
}

void StopUnit(const std::shared_ptr<DRAVUnit>& unit)
{
    if (unit)
    {
        unit->SetUnitState(kDRAVUnitStatePaused);
        unit->Deinit();
    }
}
}  // namespace

int RunMixToWav(const std::string& wavPath, double seconds)
{
    auto platform = std::make_shared<tidemix::platform::sim::SimPlatform>();
    tidemix::platform::Platform::Use(platform);
    auto& world = platform->World();

    // A USB microphone at 44.1 kHz mono with 512-frame packets, a little fast;
    // a music channel at 48 kHz in 16-bit stereo, a chord; an output a little slow.
    SimDeviceSpec microphone =
        SimDeviceSpec::Microphone("demo-mic", "Demo Microphone", {44100, 1, SampleEncoding::Float32, true});
    microphone.packetFrames = 512;
    microphone.skewPpm = 150.0;
    microphone.signal = SimSignal::Sine(440.0, 0.35);
    SimDeviceSpec music =
        SimDeviceSpec::Microphone("demo-music", "Demo Music", {48000, 2, SampleEncoding::Int16, true});
    music.signal = SimSignal::Sines({SimTone{261.63, 0.2}, SimTone{329.63, 0.2}});
    SimDeviceSpec speaker =
        SimDeviceSpec::Speaker("demo-out", "Demo Output", {48000, 2, SampleEncoding::Float32, true});
    speaker.skewPpm = -150.0;
    const uint32_t microphoneId = world.AddDevice(microphone);
    const uint32_t musicId = world.AddDevice(music);
    const uint32_t outputId = world.AddDevice(speaker);

    DRAVManager* engine = DRAVManager::GetDRAVManager();
    if (!engine->Init().Succeeded())
    {
        fprintf(stderr, "the engine did not start\n");
        return 1;
    }

    auto mixer = std::make_shared<DRAVMultiChannelAudioMixerCoreAudio>("Demo Mix", DRAVFilterConfig{8, false},
                                                                       2, 1, DRAVGetHostTime());
    mixer->InitFilter(kDRAVPinTypePassthrough, kDRAVPinTypePull);
    auto voiceSource = StartCapture(microphoneId);
    auto musicSource = StartCapture(musicId);
    mixer->AddSource(voiceSource, 0);
    mixer->AddSource(musicSource, 1);

    auto sink = std::make_shared<DRAVSinkAudioRendererAudioUnit>();
    sink->SetBufferSizeFrameCount(kBlockFrames);
    sink->Init();
    sink->SetDevicePath(std::to_string(outputId));
    sink->SetUnitState(kDRAVUnitStateRunning);
    mixer->AddSink(sink);
    mixer->SetInputVolume(0, 1.0);
    mixer->SetInputVolume(1, 0.5);
    mixer->SetOutputVolume(0.9);
    mixer->SetProcessingBufferSizeFrameCount(kBlockFrames);

    world.StartRecording(outputId, seconds + 1.0);
    const DRAVResult running = mixer->SetUnitState(kDRAVUnitStateRunning);
    printf("mixer unit: %s; microphone on bus 0 (gain 1.0), music on bus 1 (gain 0.5), output gain 0.9\n",
           running.Succeeded() ? "running" : running.toString().c_str());

    const auto start = std::chrono::steady_clock::now();
    auto next = start;
    while (running.Succeeded() &&
           std::chrono::steady_clock::now() - start < std::chrono::duration<double>(seconds))
    {
        next += std::chrono::milliseconds(500);
        std::this_thread::sleep_until(next);
        const double at = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        printf("%5.1f s  microphone %6.1f/%6.1f dB  music %6.1f/%6.1f dB  output %6.1f/%6.1f dB\n", at,
               mixer->GetInputLevel(0, 0), mixer->GetInputLevel(0, 1), mixer->GetInputLevel(1, 0),
               mixer->GetInputLevel(1, 1), mixer->GetOutputLevel(0), mixer->GetOutputLevel(1));
    }

    StopUnit(mixer);
    StopUnit(sink);
    StopUnit(voiceSource);
    StopUnit(musicSource);
    world.StopRecording(outputId);
    const auto recording = world.Recording(outputId);
    const DRAVResult saved = world.SaveRecording(outputId, wavPath, SampleEncoding::Int16);
    printf("output: %zu frames (%.2f s) at 48000 Hz stereo -> %s: %s\n", recording ? recording->Frames() : 0,
           recording ? static_cast<double>(recording->Frames()) / 48000.0 : 0.0, wavPath.c_str(),
           saved.Succeeded() ? "written" : saved.toString().c_str());
    printf("sink: %lld blocks dropped, %lld underruns\n",
           static_cast<long long>(sink->GetDroppedBlockCount()),
           static_cast<long long>(sink->GetUnderrunCount()));

    engine->Deinit();
    tidemix::platform::Platform::Use(nullptr);
    return saved.Succeeded() ? 0 : 1;
}
