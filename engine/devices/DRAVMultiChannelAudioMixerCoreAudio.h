#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "engine/media/DRAVBlockFrameCount.h"
#include "engine/units/DRAVFilter.h"
#include "engine/units/DRAVSink.h"
#include "engine/units/DRAVSource.h"
#include "portable-core/DRAVTime.h"

// The real-time heart of a mix: N input buses, one per source, summed at a
// gain per bus and an output gain, and any number of sinks that each get a
// copy of every block.
//
// There is no device behind it. Its own audio thread (the single worker of
// the queue "coreaudio.mixer.render-" + name) runs on the host clock: it
// renders one block, adds the block's duration to a render clock and sleeps
// until the host clock gets there; a thread that fell behind renders the
// missing blocks back to back. Devices with other clocks meet it only through
// the rings of the sources and the buffers of the sinks.
//
// Every shortage becomes silence: a bus without a source, a null source, a
// source that has nothing or has stopped plays zeros and the others go on.
//
// Threads: the audio thread holds the unit's lock for one block. Volumes,
// levels, the block size, sources, sinks and stopping take the same lock, so
// they wait at most one block. Once SetUnitState(kDRAVUnitStatePaused)
// returns, no sink receives another block.
class DRAVMultiChannelAudioMixerCoreAudio : public DRAVFilter
{
public:
    // Buses are numbered 0 to kMaxBusCount - 1.
    static constexpr int kMaxBusCount = 255;
    // The largest block the unit renders: one second at the mix's rate.
    static constexpr int64_t kMaxProcessingBufferFrameCount = kMaxBlockFrameCount;

    // `startTime` is accepted for the callers' convenience and not used: the
    // render clock starts with the audio thread.
    DRAVMultiChannelAudioMixerCoreAudio(const std::string& name, const DRAVFilterConfig& config,
                                        int numInputs, int numOutputs, const DRAVTimestamp& startTime);
    ~DRAVMultiChannelAudioMixerCoreAudio() override;

    static KVCMap* GetMyObjectProperties();

    // Passthrough inputs, pull output: the pins carry nothing, the unit pulls
    // from its sources and hands blocks to its sinks itself.
    DRAVResult Init() override;
    DRAVResult InitFilter(DRAVPinType input, DRAVPinType output) override;
    // Also stops the audio thread when it runs.
    DRAVResult Deinit() override;
    // Running builds the bus mixer and starts the audio thread; paused stops
    // both. Setting the present state again changes nothing.
    DRAVResult SetUnitState(DRAVUnitState state) override;
    // Nothing is ever pushed into this unit: "ErrNotImplemented".
    DRAVResult InputMediaBufferReceived(std::shared_ptr<DRAVUnitInputPin> pin, int pinNumber,
                                        std::shared_ptr<DRAVMediaBuffer> frame) override;

    // Stores the source for `bus`, replacing an earlier one. A null source is
    // allowed and plays silence. A bus outside 0..254 is refused.
    DRAVResult AddSource(std::shared_ptr<DRAVSource> source, int bus);
    DRAVResult RemoveSourceAtIndex(int bus);
    DRAVResult AddSink(std::shared_ptr<DRAVSink> sink);

    // Frames per block. A new value takes effect with the next block; values
    // outside 1..kMaxProcessingBufferFrameCount are refused.
    DRAVResult SetProcessingBufferSizeFrameCount(int64_t frames);
    int64_t GetProcessingBufferSizeFrameCount() const;

    // Volumes are stored as given and applied limited to 0.0..1.0. The getters
    // read what the running mixer applies, and give 0.0 when not running.
    DRAVResult SetInputVolume(int bus, double volume);
    double GetInputVolume(int bus) const;
    DRAVResult SetOutputVolume(double volume);
    double GetOutputVolume() const;
    // Average power of the last block in decibels, before the bus's gain and
    // after the output gain; 0.0 when not running.
    double GetInputLevel(int bus, int channel) const;
    double GetOutputLevel(int channel) const;

protected:
    // Hands the audio thread's loop to the render queue. Tests and benchmarks
    // that drive blocks themselves override this to start nothing.
    virtual void StartRenderLoop();
    // One block: render, then hand a copy to every sink. Returns the block's
    // duration, 0 when the unit isn't running. On the mix's audio thread:
    // holds the unit's lock for the block; no allocation once the pool has
    // its items, no log, no other lock a control call holds for long.
    DRAVDuration AudioThread();

private:
    struct Impl;
    std::shared_ptr<Impl> impl_;  // the audio thread holds it weakly
};
