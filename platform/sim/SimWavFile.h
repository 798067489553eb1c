#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/AudioSystem.h"
#include "portable-core/DRAVResult.h"

namespace tidemix::platform::sim
{

// Sound held in memory as interleaved float samples, with its rate and
// channel count: what a WAV file of the simulated world holds.
struct SimSound
{
    uint32_t sampleRate = 48000;
    uint32_t channels = 2;
    std::vector<float> samples;  // interleaved, frames() * channels values

    size_t Frames() const { return channels == 0 ? 0 : samples.size() / channels; }
};

// A small reader and writer of PCM WAV files: 16-bit integer and 32-bit float
// samples, plain or extensible format chunk.
class SimWavFile
{
public:
    // "ErrCouldNotOpenFile" when the file can't be read, "ErrInvalidFormat"
    // for anything that isn't a 16-bit or float PCM WAV file.
    static DRAVResult Read(const std::string& path, SimSound& sound);
    static DRAVResult Write(const std::string& path, const SimSound& sound, SampleEncoding encoding);

    // The same on bytes in memory.
    static DRAVResult Parse(const std::vector<uint8_t>& bytes, SimSound& sound);
    static std::vector<uint8_t> Encode(const SimSound& sound, SampleEncoding encoding);
};

}  // namespace tidemix::platform::sim
