#include "platform/sim/SimSignal.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tidemix::platform::sim
{

SimSignal SimSignal::Sine(double frequency, double level)
{
    return Sines({SimTone{frequency, level}});
}

SimSignal SimSignal::Sines(std::vector<SimTone> perChannel)
{
    SimSignal signal;
    signal.kind = Kind::Sine;
    signal.tones = std::move(perChannel);
    return signal;
}

SimSignal SimSignal::Noise(uint64_t seed, double level)
{
    SimSignal signal;
    signal.kind = Kind::Noise;
    signal.seed = seed;
    signal.noiseLevel = level;
    return signal;
}

SimSignal SimSignal::FromSound(SimSound sound)
{
    SimSignal signal;
    signal.kind = Kind::Sound;
    signal.sound = std::make_shared<const SimSound>(std::move(sound));
    return signal;
}

SimSignal SimSignal::FromLoopback(std::shared_ptr<SimLoopback> loopback)
{
    SimSignal signal;
    signal.kind = loopback ? Kind::Loopback : Kind::Silence;
    signal.loopback = std::move(loopback);
    return signal;
}

DRAVResult SimSignal::FromWavFile(const std::string& path, SimSignal& signal)
{
    SimSound sound;
    DRAVResult result = SimWavFile::Read(path, sound);
    signal = result.Succeeded() ? FromSound(std::move(sound)) : Silence();
    return result;
}

SimSignalGenerator::SimSignalGenerator(const SimSignal& signal, uint32_t sampleRate, uint32_t channels)
    : signal_(signal),
      sampleRate_(sampleRate == 0 ? 1 : sampleRate),
      channels_(channels),
      phases_(channels, 0.0),
      increments_(channels, 0.0),
      levels_(channels, 0.0),
      // A zero state would stay zero forever.
      noiseState_(signal.seed == 0 ? 0x9E3779B97F4A7C15ull : signal.seed)
{
    if (signal_.kind == SimSignal::Kind::Sine && !signal_.tones.empty())
    {
        for (uint32_t c = 0; c < channels_; ++c)
        {
            const SimTone& tone = signal_.tones[std::min<size_t>(c, signal_.tones.size() - 1)];
            increments_[c] = 2.0 * std::numbers::pi * tone.frequency / sampleRate_;
            levels_[c] = tone.level;
        }
    }
    if (signal_.kind == SimSignal::Kind::Sound && (!signal_.sound || signal_.sound->Frames() == 0))
    {
        signal_.kind = SimSignal::Kind::Silence;
    }
}

void SimSignalGenerator::Render(float* const* channels, uint32_t frames)
{
    switch (signal_.kind)
    {
        case SimSignal::Kind::Silence:
            for (uint32_t c = 0; c < channels_; ++c)
            {
                std::fill(channels[c], channels[c] + frames, 0.0f);
            }
            break;
        case SimSignal::Kind::Sine:
            if (signal_.tones.empty())
            {
                for (uint32_t c = 0; c < channels_; ++c)
                {
                    std::fill(channels[c], channels[c] + frames, 0.0f);
                }
                break;
            }
            for (uint32_t c = 0; c < channels_; ++c)
            {
                double phase = phases_[c];
                for (uint32_t i = 0; i < frames; ++i)
                {
                    channels[c][i] = static_cast<float>(levels_[c] * std::sin(phase));
                    phase += increments_[c];
                }
                phases_[c] = std::fmod(phase, 2.0 * std::numbers::pi);
            }
            break;
        case SimSignal::Kind::Noise:
            for (uint32_t i = 0; i < frames; ++i)
            {
                for (uint32_t c = 0; c < channels_; ++c)
                {
                    // xorshift64*: cheap, deterministic, good enough for test noise.
                    noiseState_ ^= noiseState_ >> 12;
                    noiseState_ ^= noiseState_ << 25;
                    noiseState_ ^= noiseState_ >> 27;
                    const uint64_t value = noiseState_ * 0x2545F4914F6CDD1Dull;
                    const double unit = static_cast<double>(value >> 11) * (1.0 / 9007199254740992.0);
                    channels[c][i] = static_cast<float>((unit * 2.0 - 1.0) * signal_.noiseLevel);
                }
            }
            break;
        case SimSignal::Kind::Loopback:
            signal_.loopback->Read(channels, channels_, frames);
            break;
        case SimSignal::Kind::Sound:
        {
            const SimSound& sound = *signal_.sound;
            const size_t total = sound.Frames();
            for (uint32_t i = 0; i < frames; ++i)
            {
                const float* frame = sound.samples.data() + soundFrame_ * sound.channels;
                for (uint32_t c = 0; c < channels_; ++c)
                {
                    channels[c][i] = frame[std::min(c, sound.channels - 1)];
                }
                if (++soundFrame_ == total)
                {
                    soundFrame_ = 0;
                }
            }
            break;
        }
    }
}

}  // namespace tidemix::platform::sim
