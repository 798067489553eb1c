#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "platform/sim/SimWavFile.h"

namespace tidemix::platform::sim
{

// What a simulated output played, as interleaved float after the streams'
// volumes and mixing. Room is reserved up front: the device thread appends
// without allocating, and what doesn't fit is counted as dropped. Readers on
// other threads see every frame appended before their call.
class SimRecorder
{
public:
    SimRecorder(uint32_t sampleRate, uint32_t channels, size_t capacityFrames);

    // Device thread only.
    void Append(const float* interleaved, uint32_t frames);

    uint32_t SampleRate() const { return sampleRate_; }
    uint32_t Channels() const { return channels_; }
    size_t Frames() const { return frames_.load(std::memory_order_acquire); }
    size_t DroppedFrames() const { return dropped_.load(std::memory_order_acquire); }
    // A copy of what was recorded so far.
    SimSound Snapshot() const;

private:
    const uint32_t sampleRate_;
    const uint32_t channels_;
    const size_t capacityFrames_;
    std::vector<float> samples_;
    std::atomic<size_t> frames_{0};
    std::atomic<size_t> dropped_{0};
};

}  // namespace tidemix::platform::sim
