#include "engine/devices/AudioBusMixer.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "engine/devices/BusMixKernels.h"

namespace tidemix::engine
{
namespace
{

float LimitGain(float gain)
{
    if (!(gain > 0.0f))
        return 0.0f;  // also NaN
    return gain < 1.0f ? gain : 1.0f;
}

float MixChannel(bool wide, float* out, const float* in, float gain, uint32_t frames, bool accumulate)
{
    return wide ? busmix::MixChannelWide(out, in, gain, frames, accumulate)
                : busmix::MixChannelPortable(out, in, gain, frames, accumulate);
}

float ScaleChannel(bool wide, float* out, float gain, uint32_t frames)
{
    return wide ? busmix::ScaleChannelWide(out, gain, frames)
                : busmix::ScaleChannelPortable(out, gain, frames);
}

float EnergyToDecibels(double energy, uint32_t frames)
{
    if (frames == 0)
        return AudioBusMixer::kLevelFloorDecibels;
    const double meanSquare = energy / frames;
    // The floor also catches NaN and Inf coming from a misbehaving source.
    if (!(meanSquare > 1e-12) || !std::isfinite(meanSquare))
        return AudioBusMixer::kLevelFloorDecibels;
    return static_cast<float>(10.0 * std::log10(meanSquare));
}

}  // namespace

AudioBusMixer::AudioBusMixer(uint32_t maxFramesPerRender)
    : maxFrames_(std::max<uint32_t>(maxFramesPerRender, 1)),
      wideVectors_(busmix::HasWideVectors()),
      busLeft_(maxFrames_),
      busRight_(maxFrames_)
{
    for (auto& g : gains_)
        g.store(1.0f, std::memory_order_relaxed);
    for (auto& l : busLevels_)
        l.store(kLevelFloorDecibels, std::memory_order_relaxed);
    for (auto& l : outputLevels_)
        l.store(kLevelFloorDecibels, std::memory_order_relaxed);
}

DRAVResult AudioBusMixer::SetBusCount(uint32_t count)
{
    if (count > kMaxBusCount)
        return DRAVResult(kDRAVResultErrInvalidParameter, "%u buses; at most %u", count, kMaxBusCount);
    for (uint32_t bus = count; bus < busCount_; ++bus)
    {
        callbacks_[bus] = nullptr;
        readers_[bus] = nullptr;
        busLevels_[bus * 2].store(kLevelFloorDecibels, std::memory_order_relaxed);
        busLevels_[bus * 2 + 1].store(kLevelFloorDecibels, std::memory_order_relaxed);
    }
    busCount_ = count;
    return kDRAVResultOk;
}

DRAVResult AudioBusMixer::SetBusCallback(uint32_t bus, BusCallback callback)
{
    if (bus >= busCount_)
        return DRAVResult(kDRAVResultErrIndexOutOfRange, "bus %u of %u", bus, busCount_);
    callbacks_[bus] = std::move(callback);
    readers_[bus] = nullptr;
    return kDRAVResultOk;
}

DRAVResult AudioBusMixer::SetBusReader(uint32_t bus, BusReader reader)
{
    if (bus >= busCount_)
        return DRAVResult(kDRAVResultErrIndexOutOfRange, "bus %u of %u", bus, busCount_);
    readers_[bus] = std::move(reader);
    callbacks_[bus] = nullptr;
    return kDRAVResultOk;
}

void AudioBusMixer::BusBlock::Mix(const float* left, const float* right)
{
    if (mixed_ || left == nullptr || right == nullptr)
        return;
    AudioBusMixer& m = mixer_;
    const float gain = m.gains_[bus_].load(std::memory_order_relaxed);
    m.busEnergy_[bus_ * 2] += MixChannel(m.wideVectors_, left_, left, gain, frames_, accumulate_);
    m.busEnergy_[bus_ * 2 + 1] += MixChannel(m.wideVectors_, right_, right, gain, frames_, accumulate_);
    mixed_ = true;
}

DRAVResult AudioBusMixer::SetBusGain(uint32_t bus, float gain)
{
    if (bus >= kMaxBusCount)
        return DRAVResult(kDRAVResultErrIndexOutOfRange, "bus %u", bus);
    gains_[bus].store(LimitGain(gain), std::memory_order_relaxed);
    return kDRAVResultOk;
}

float AudioBusMixer::BusGain(uint32_t bus) const
{
    return bus < kMaxBusCount ? gains_[bus].load(std::memory_order_relaxed) : 0.0f;
}

void AudioBusMixer::SetOutputGain(float gain)
{
    outputGain_.store(LimitGain(gain), std::memory_order_relaxed);
}

float AudioBusMixer::OutputGain() const
{
    return outputGain_.load(std::memory_order_relaxed);
}

float AudioBusMixer::BusLevelDecibels(uint32_t bus, uint32_t channel) const
{
    if (bus >= kMaxBusCount || channel > 1)
        return kLevelFloorDecibels;
    return busLevels_[bus * 2 + channel].load(std::memory_order_relaxed);
}

float AudioBusMixer::OutputLevelDecibels(uint32_t channel) const
{
    if (channel > 1)
        return kLevelFloorDecibels;
    return outputLevels_[channel].load(std::memory_order_relaxed);
}

void AudioBusMixer::Render(float* left, float* right, uint32_t frames)
{
    if (left == nullptr || right == nullptr || frames == 0)
        return;

    const uint32_t buses = busCount_;
    std::fill(busEnergy_.begin(), busEnergy_.begin() + buses * 2, 0.0);
    double outputEnergy[2] = {0.0, 0.0};
    const float outputGain = outputGain_.load(std::memory_order_relaxed);

    for (uint32_t done = 0; done < frames;)
    {
        const uint32_t slice = std::min(maxFrames_, frames - done);
        RenderSlice(left + done, right + done, slice);
        outputEnergy[0] += ScaleChannel(wideVectors_, left + done, outputGain, slice);
        outputEnergy[1] += ScaleChannel(wideVectors_, right + done, outputGain, slice);
        done += slice;
    }

    for (uint32_t i = 0; i < buses * 2; ++i)
        busLevels_[i].store(EnergyToDecibels(busEnergy_[i], frames), std::memory_order_relaxed);
    outputLevels_[0].store(EnergyToDecibels(outputEnergy[0], frames), std::memory_order_relaxed);
    outputLevels_[1].store(EnergyToDecibels(outputEnergy[1], frames), std::memory_order_relaxed);
}

void AudioBusMixer::RenderSlice(float* left, float* right, uint32_t frames)
{
    bool anyMixed = false;
    for (uint32_t bus = 0; bus < busCount_; ++bus)
    {
        if (const BusReader& reader = readers_[bus])
        {
            BusBlock block(*this, bus, left, right, frames, anyMixed);
            reader(block, frames);
            anyMixed = anyMixed || block.mixed_;
            continue;
        }
        const BusCallback& callback = callbacks_[bus];
        if (!callback || !callback(busLeft_.Data(), busRight_.Data(), frames))
            continue;
        const float gain = gains_[bus].load(std::memory_order_relaxed);
        busEnergy_[bus * 2] += MixChannel(wideVectors_, left, busLeft_.Data(), gain, frames, anyMixed);
        busEnergy_[bus * 2 + 1] += MixChannel(wideVectors_, right, busRight_.Data(), gain, frames, anyMixed);
        anyMixed = true;
    }
    if (!anyMixed)
    {
        std::memset(left, 0, frames * sizeof(float));
        std::memset(right, 0, frames * sizeof(float));
    }
}

}  // namespace tidemix::engine
