#include "engine/devices/AudioBusMixer.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace tidemix::engine
{
namespace
{

constexpr uint32_t kChunk = 16;

float LimitGain(float gain)
{
    if (!(gain > 0.0f))
        return 0.0f;  // also NaN
    return gain < 1.0f ? gain : 1.0f;
}

// The hot loops use the compiler's vector extension on 4-float lanes (SSE,
// the x86-64 baseline; NEON elsewhere), four lanes per chunk of 16 frames (four
// separate sums of squares, so the additions don't wait on each other) and a
// scalar tail. Left to itself g++ either keeps them scalar (a trip count known
// only at run time) or vectorises the chunked form across the partial sums
// with costly shuffles; explicit lanes avoid both.
using Lanes = float __attribute__((vector_size(16)));

inline Lanes Load(const float* p)
{
    Lanes v;
    std::memcpy(&v, p, sizeof(v));
    return v;
}

inline void Store(float* p, Lanes v)
{
    std::memcpy(p, &v, sizeof(v));
}

inline float Sum(Lanes v)
{
    return (v[0] + v[1]) + (v[2] + v[3]);
}

// out = (accumulate ? out : 0) + gain * in; returns the sum of squares of in.
float MixChannel(float* __restrict out, const float* __restrict in, float gain, uint32_t frames,
                 bool accumulate)
{
    Lanes energy[4] = {};
    const uint32_t whole = frames / kChunk * kChunk;
    float tailEnergy = 0.0f;
    if (accumulate)
    {
        for (uint32_t i = 0; i < whole; i += kChunk)
        {
            for (uint32_t k = 0; k < 4; ++k)
            {
                const Lanes x = Load(in + i + 4 * k);
                energy[k] += x * x;
                Store(out + i + 4 * k, Load(out + i + 4 * k) + gain * x);
            }
        }
        for (uint32_t i = whole; i < frames; ++i)
        {
            tailEnergy += in[i] * in[i];
            out[i] += gain * in[i];
        }
    }
    else
    {
        for (uint32_t i = 0; i < whole; i += kChunk)
        {
            for (uint32_t k = 0; k < 4; ++k)
            {
                const Lanes x = Load(in + i + 4 * k);
                energy[k] += x * x;
                Store(out + i + 4 * k, gain * x);
            }
        }
        for (uint32_t i = whole; i < frames; ++i)
        {
            tailEnergy += in[i] * in[i];
            out[i] = gain * in[i];
        }
    }
    return Sum((energy[0] + energy[1]) + (energy[2] + energy[3])) + tailEnergy;
}

// out *= gain; returns the sum of squares after the gain.
float ScaleChannel(float* __restrict out, float gain, uint32_t frames)
{
    Lanes energy[4] = {};
    const uint32_t whole = frames / kChunk * kChunk;
    float tailEnergy = 0.0f;
    for (uint32_t i = 0; i < whole; i += kChunk)
    {
        for (uint32_t k = 0; k < 4; ++k)
        {
            const Lanes y = gain * Load(out + i + 4 * k);
            Store(out + i + 4 * k, y);
            energy[k] += y * y;
        }
    }
    for (uint32_t i = whole; i < frames; ++i)
    {
        out[i] *= gain;
        tailEnergy += out[i] * out[i];
    }
    return Sum((energy[0] + energy[1]) + (energy[2] + energy[3])) + tailEnergy;
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
    : maxFrames_(std::max<uint32_t>(maxFramesPerRender, 1)), busLeft_(maxFrames_), busRight_(maxFrames_)
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
    return kDRAVResultOk;
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
        outputEnergy[0] += ScaleChannel(left + done, outputGain, slice);
        outputEnergy[1] += ScaleChannel(right + done, outputGain, slice);
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
        const BusCallback& callback = callbacks_[bus];
        if (!callback || !callback(busLeft_.Data(), busRight_.Data(), frames))
            continue;
        const float gain = gains_[bus].load(std::memory_order_relaxed);
        busEnergy_[bus * 2] += MixChannel(left, busLeft_.Data(), gain, frames, anyMixed);
        busEnergy_[bus * 2 + 1] += MixChannel(right, busRight_.Data(), gain, frames, anyMixed);
        anyMixed = true;
    }
    if (!anyMixed)
    {
        std::memset(left, 0, frames * sizeof(float));
        std::memset(right, 0, frames * sizeof(float));
    }
}

}  // namespace tidemix::engine
