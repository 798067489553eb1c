#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

namespace tidemix::platform::sim
{

// What a virtual device plays comes back on its input, as the virtual
// driver's devices do: the output's device thread writes its mix, the
// input's device thread reads it. One writer and one reader, no locks, no
// allocation after construction. A reader that finds nothing reads silence;
// one that fell far behind skips ahead to keep the delay short.
class SimLoopback
{
public:
    SimLoopback(uint32_t channels, uint32_t capacityFrames);

    uint32_t Channels() const { return channels_; }

    // Output thread: interleaved frames of Channels() samples. Frames that
    // don't fit are dropped.
    void Write(const float* interleaved, uint32_t frames);
    // Input thread: into planar channels; channels past Channels() repeat the
    // last one.
    void Read(float* const* planar, uint32_t channelCount, uint32_t frames);

    uint64_t DroppedFrames() const { return dropped_.load(std::memory_order_relaxed); }

private:
    const uint32_t channels_;
    const uint64_t capacity_;
    std::vector<float> samples_;
    std::atomic<uint64_t> written_{0};
    std::atomic<uint64_t> read_{0};
    std::atomic<uint64_t> dropped_{0};
};

}  // namespace tidemix::platform::sim
