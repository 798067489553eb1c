#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "engine/devices/DRAVMultiChannelAudioMixerCoreAudio.h"
#include "engine/units/DRAVRingBuffer.h"
#include "engine/sinks/DRAVSinkAudioRendererAudioUnit.h"
#include "engine/sources/DRAVSourceAudioCaptureCoreAudio.h"
#include "portable-core/DRAVResult.h"

namespace tidemix::test
{

// One mix's road, put together as the control layer puts it together: a
// capture source per input (960-frame blocks into a ring of four blocks), one
// mixer unit, and a renderer sink on the output device. Devices are given by
// their ids on the current platform.
class TestMixRoad
{
public:
    static constexpr int64_t kBlockFrames = 960;
    static constexpr int64_t kRingBlocks = 4;

    explicit TestMixRoad(int busCount);
    ~TestMixRoad();
    TestMixRoad(const TestMixRoad&) = delete;
    TestMixRoad& operator=(const TestMixRoad&) = delete;

    // A running capture source on the device, as an input of a mix makes it.
    static std::shared_ptr<DRAVSourceAudioCaptureCoreAudio> StartCapture(uint32_t deviceId,
                                                                         DRAVResult* result = nullptr);
    static void StopCapture(const std::shared_ptr<DRAVSourceAudioCaptureCoreAudio>& source);
    // The ring the mixer pulls the source's blocks from.
    static std::shared_ptr<DRAVRingBuffer> RingOf(
        const std::shared_ptr<DRAVSourceAudioCaptureCoreAudio>& source);

    // Before Start, or while running (a source replaced on its bus).
    DRAVResult SetSource(int bus, std::shared_ptr<DRAVSourceAudioCaptureCoreAudio> source);
    // Makes the renderer sink for the device; before Start.
    DRAVResult SetOutput(uint32_t deviceId);
    DRAVResult Start();
    // Stops the mixer, the sink and every source; safe to call twice.
    void Stop();

    DRAVMultiChannelAudioMixerCoreAudio& Mixer() { return *mixer_; }
    DRAVSinkAudioRendererAudioUnit& Sink() { return *sink_; }
    std::shared_ptr<DRAVSourceAudioCaptureCoreAudio> Source(int bus);

private:
    std::shared_ptr<DRAVMultiChannelAudioMixerCoreAudio> mixer_;
    std::shared_ptr<DRAVSinkAudioRendererAudioUnit> sink_;
    std::map<int, std::shared_ptr<DRAVSourceAudioCaptureCoreAudio>> sources_;
    bool running_ = false;
};

}  // namespace tidemix::test
