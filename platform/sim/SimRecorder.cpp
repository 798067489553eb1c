#include "platform/sim/SimRecorder.h"

#include <algorithm>
#include <cstring>

namespace tidemix::platform::sim
{

SimRecorder::SimRecorder(uint32_t sampleRate, uint32_t channels, size_t capacityFrames)
    : sampleRate_(sampleRate),
      channels_(channels),
      capacityFrames_(capacityFrames),
      samples_(capacityFrames * channels)
{
}

void SimRecorder::Append(const float* interleaved, uint32_t frames)
{
    const size_t have = frames_.load(std::memory_order_relaxed);
    const size_t fit = std::min<size_t>(frames, capacityFrames_ - have);
    if (fit > 0)
    {
        std::memcpy(samples_.data() + have * channels_, interleaved, fit * channels_ * sizeof(float));
        frames_.store(have + fit, std::memory_order_release);
    }
    if (fit < frames)
    {
        dropped_.fetch_add(frames - fit, std::memory_order_release);
    }
}

SimSound SimRecorder::Snapshot() const
{
    SimSound sound;
    sound.sampleRate = sampleRate_;
    sound.channels = channels_;
    const size_t frames = Frames();
    sound.samples.assign(samples_.begin(),
                         samples_.begin() + static_cast<std::ptrdiff_t>(frames * channels_));
    return sound;
}

}  // namespace tidemix::platform::sim
