#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/sim/SimLoopback.h"
#include "platform/sim/SimWavFile.h"
#include "portable-core/DRAVResult.h"

namespace tidemix::platform::sim
{

// One channel's tone: frequency in Hz and peak amplitude (1.0 is full scale).
struct SimTone
{
    double frequency = 1000.0;
    double level = 0.5;
};

// What a simulated capture device hears. Values are cheap to copy; a WAV
// signal shares its samples.
struct SimSignal
{
    enum class Kind : uint8_t
    {
        Silence,
        Sine,
        Noise,
        Sound,
        // What the same device's output plays (a virtual device's loopback).
        Loopback,
    };

    Kind kind = Kind::Silence;
    // Sine: one tone per channel; channels past the list repeat its last tone.
    std::vector<SimTone> tones;
    // Noise: uniform in [-level, level], from the seed.
    uint64_t seed = 1;
    double noiseLevel = 0.25;
    // Sound: played in a loop at the device's rate; channels past the
    // sound's repeat its last channel.
    std::shared_ptr<const SimSound> sound;
    std::shared_ptr<SimLoopback> loopback;

    static SimSignal Silence() { return {}; }
    static SimSignal Sine(double frequency, double level);
    static SimSignal Sines(std::vector<SimTone> perChannel);
    static SimSignal Noise(uint64_t seed, double level);
    static SimSignal FromSound(SimSound sound);
    static SimSignal FromLoopback(std::shared_ptr<SimLoopback> loopback);
    // Reads a WAV file; on failure the signal is silence and the result says why.
    static DRAVResult FromWavFile(const std::string& path, SimSignal& signal);
};

// Renders a signal, frame after frame, into planar float buffers. Render
// neither allocates nor locks.
class SimSignalGenerator
{
public:
    SimSignalGenerator(const SimSignal& signal, uint32_t sampleRate, uint32_t channels);

    void Render(float* const* channels, uint32_t frames);

private:
    SimSignal signal_;
    uint32_t sampleRate_;
    uint32_t channels_;
    std::vector<double> phases_;
    std::vector<double> increments_;
    std::vector<double> levels_;
    uint64_t noiseState_;
    size_t soundFrame_ = 0;
};

}  // namespace tidemix::platform::sim
