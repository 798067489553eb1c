#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine/units/DRAVFilter.h"
#include "engine/units/DRAVUnitFactory.h"
#include "platform/CountingProcessActivity.h"
#include "platform/Platform.h"
#include "platform/sim/SimAudioWorld.h"

namespace deviceunits_test
{
using tidemix::platform::DeviceStreamFormat;
using tidemix::platform::SampleEncoding;

DeviceStreamFormat Format(uint32_t rate, uint32_t channels, bool interleaved,
                          SampleEncoding encoding = SampleEncoding::Float32);

// One stream opened on the hand-driven platform; the test delivers packets
// and requests on its own thread, one at a time.
struct HandStream
{
    uint32_t deviceId = 0;
    DeviceStreamFormat format;
    tidemix::platform::CaptureCallback capture;
    tidemix::platform::PlaybackCallback playback;
    std::atomic<bool> started{false};
    std::atomic<bool> closed{false};
    std::atomic<float> volume{1.0f};
    std::atomic<int> moves{0};

    // A packet of `frames` frames whose channel c, frame i holds
    // first + i + 1000 * c (for 16 bits the integer sample itself, which
    // decodes to that value / 32768). Nothing happens unless started.
    void Deliver(uint32_t frames, float first = 0.0f);
    // Asks for `frames` frames and returns each channel's samples as floats
    // (16-bit samples / 32768); empty unless started.
    std::vector<std::vector<float>> Request(uint32_t frames);
};

// A platform whose devices are those of a simulated world, but whose streams
// run only when the test drives them: exact packet by packet tests.
class HandDrivenAudio : public tidemix::platform::AudioSystem
{
public:
    std::vector<tidemix::platform::AudioDeviceInfo> Devices() override { return world_.Devices(); }
    std::optional<uint32_t> DefaultOutput() override { return world_.DefaultOutput(); }
    tidemix::platform::ListenerToken AddDeviceListListener(std::function<void()> listener) override
    {
        return world_.AddDeviceListListener(std::move(listener));
    }
    tidemix::platform::ListenerToken AddDefaultOutputListener(std::function<void()> listener) override
    {
        return world_.AddDefaultOutputListener(std::move(listener));
    }
    void RemoveListener(tidemix::platform::ListenerToken token) override { world_.RemoveListener(token); }
    std::unique_ptr<tidemix::platform::CaptureStream> OpenCapture(
        uint32_t deviceId, tidemix::platform::CaptureCallback callback) override;
    std::unique_ptr<tidemix::platform::PlaybackStream> OpenPlayback(
        uint32_t deviceId, tidemix::platform::PlaybackCallback callback) override;

    tidemix::platform::sim::SimAudioWorld& World() { return world_; }
    // Streams opened on `deviceId` from now on report `format` (in both
    // directions), whatever the world allows.
    void OverrideFormat(uint32_t deviceId, const DeviceStreamFormat& format);
    // The stream opened last, or null.
    std::shared_ptr<HandStream> Last();
    int Opened();

private:
    tidemix::platform::sim::SimAudioWorld world_;
    std::mutex mutex_;
    std::vector<std::shared_ptr<HandStream>> streams_;
    std::map<uint32_t, DeviceStreamFormat> overrides_;
};

class HandDrivenPlatform : public tidemix::platform::Platform
{
public:
    std::string Name() const override { return "hand"; }
    tidemix::platform::AudioSystem& Audio() override { return audio_; }
    tidemix::platform::ProcessActivity& Activity() override { return activity_; }
    HandDrivenAudio& Hand() { return audio_; }

private:
    HandDrivenAudio audio_;
    tidemix::platform::CountingProcessActivity activity_;
};

// A stand-in for the level meter: keeps every frame it receives.
class RecordingMeter : public DRAVFilter
{
public:
    RecordingMeter() : DRAVFilter("RecordingMeter", nullptr, DRAVFilterConfig{10, false}, 1, 0) {}
    DRAVResult Init() override;
    DRAVResult InputMediaBufferReceived(std::shared_ptr<DRAVUnitInputPin> pin, int pinNumber,
                                        std::shared_ptr<DRAVMediaBuffer> frame) override;
    std::vector<std::shared_ptr<DRAVMediaBuffer>> Frames();
    size_t Count();

private:
    std::mutex mutex_;
    std::vector<std::shared_ptr<DRAVMediaBuffer>> frames_;
};

// Makes RecordingMeters for filter type 10 and remembers the last one.
struct MeterFactory
{
    std::shared_ptr<std::shared_ptr<RecordingMeter>> last =
        std::make_shared<std::shared_ptr<RecordingMeter>>();
    DRAVUnitFactory Make() const;
};

// Channel `channel` of a planar float frame of two channels.
std::vector<float> PlanarChannel(const std::shared_ptr<DRAVMediaBuffer>& frame, int channel);
// A planar stereo float block of `frames` frames: a sine of `frequency` at
// 48000 Hz continuing from sample `start`, or a ramp when frequency is 0.
std::shared_ptr<DRAVAudioBuffer> MakePlanarBlock(uint32_t frames, double frequency, int64_t start,
                                                 float level = 0.5f);
}  // namespace deviceunits_test
