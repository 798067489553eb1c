#include "platform/sim/SimLoopback.h"

#include <algorithm>

namespace tidemix::platform::sim
{

SimLoopback::SimLoopback(uint32_t channels, uint32_t capacityFrames)
    : channels_(std::max<uint32_t>(channels, 1)),
      capacity_(std::max<uint32_t>(capacityFrames, 1)),
      samples_(static_cast<size_t>(capacity_) * channels_)
{
}

void SimLoopback::Write(const float* interleaved, uint32_t frames)
{
    const uint64_t written = written_.load(std::memory_order_relaxed);
    const uint64_t read = read_.load(std::memory_order_acquire);
    const uint64_t room = capacity_ - (written - read);
    const uint64_t fit = std::min<uint64_t>(frames, room);
    for (uint64_t i = 0; i < fit; ++i)
    {
        const size_t slot = static_cast<size_t>((written + i) % capacity_) * channels_;
        std::copy_n(interleaved + i * channels_, channels_,
                    samples_.begin() + static_cast<std::ptrdiff_t>(slot));
    }
    written_.store(written + fit, std::memory_order_release);
    if (fit < frames)
    {
        dropped_.fetch_add(frames - fit, std::memory_order_relaxed);
    }
}

void SimLoopback::Read(float* const* planar, uint32_t channelCount, uint32_t frames)
{
    const uint64_t written = written_.load(std::memory_order_acquire);
    uint64_t read = read_.load(std::memory_order_relaxed);
    // Keep the delay within a quarter of the room plus this packet.
    const uint64_t keep = capacity_ / 4 + frames;
    if (written - read > keep)
    {
        read = written - keep;
    }
    const uint64_t available = std::min<uint64_t>(written - read, frames);
    for (uint64_t i = 0; i < available; ++i)
    {
        const float* frame = samples_.data() + static_cast<size_t>((read + i) % capacity_) * channels_;
        for (uint32_t c = 0; c < channelCount; ++c)
        {
            planar[c][i] = frame[std::min(c, channels_ - 1)];
        }
    }
    for (uint32_t c = 0; c < channelCount; ++c)
    {
        std::fill(planar[c] + available, planar[c] + frames, 0.0f);
    }
    read_.store(read + available, std::memory_order_release);
}

}  // namespace tidemix::platform::sim
