#include "platform/sim/SimWavFile.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>

namespace tidemix::platform::sim
{
namespace
{
constexpr uint16_t kFormatPcm = 1;
constexpr uint16_t kFormatFloat = 3;
constexpr uint16_t kFormatExtensible = 0xFFFE;
// Nothing the simulation plays needs more; it keeps a hostile header from
// asking for absurd allocations.
constexpr uint32_t kMaxChannels = 64;

uint16_t ReadU16(const uint8_t* p)
{
    return static_cast<uint16_t>(p[0] | (p[1] << 8));
}

uint32_t ReadU32(const uint8_t* p)
{
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
           (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

void PutU16(std::vector<uint8_t>& out, uint16_t v)
{
    out.push_back(static_cast<uint8_t>(v & 0xFF));
    out.push_back(static_cast<uint8_t>(v >> 8));
}

void PutU32(std::vector<uint8_t>& out, uint32_t v)
{
    for (int i = 0; i < 4; ++i)
    {
        out.push_back(static_cast<uint8_t>((v >> (8 * i)) & 0xFF));
    }
}

void PutTag(std::vector<uint8_t>& out, const char* tag)
{
    // Byte by byte: g++ 12 at -O3 takes a four-byte insert into a reserved
    // vector for an overflow (a false -Wstringop-overflow).
    for (int i = 0; i < 4; ++i)
    {
        out.push_back(static_cast<uint8_t>(tag[i]));
    }
}

int16_t FloatToInt16(float value)
{
    // Scaled by 32768 both ways, so int16 -> float -> int16 is exact; +1.0
    // itself clips to 32767.
    const long scaled = std::lrintf(std::clamp(value, -1.0f, 1.0f) * 32768.0f);
    return static_cast<int16_t>(std::clamp(scaled, -32768L, 32767L));
}
}  // namespace

DRAVResult SimWavFile::Parse(const std::vector<uint8_t>& bytes, SimSound& sound)
{
    if (bytes.size() < 12 || std::memcmp(bytes.data(), "RIFF", 4) != 0 ||
        std::memcmp(bytes.data() + 8, "WAVE", 4) != 0)
    {
        return DRAVResult(kDRAVResultErrInvalidFormat, "not a RIFF WAVE file");
    }
    size_t pos = 12;
    bool haveFormat = false;
    uint16_t formatTag = 0;
    uint16_t channels = 0;
    uint32_t rate = 0;
    uint16_t bits = 0;
    while (pos + 8 <= bytes.size())
    {
        const uint8_t* chunk = bytes.data() + pos;
        const uint32_t size = ReadU32(chunk + 4);
        const size_t bodyStart = pos + 8;
        const size_t available = bytes.size() - bodyStart;
        if (std::memcmp(chunk, "fmt ", 4) == 0)
        {
            if (size < 16 || size > available)
            {
                return DRAVResult(kDRAVResultErrInvalidFormat, "bad format chunk");
            }
            const uint8_t* body = bytes.data() + bodyStart;
            formatTag = ReadU16(body);
            channels = ReadU16(body + 2);
            rate = ReadU32(body + 4);
            bits = ReadU16(body + 14);
            if (formatTag == kFormatExtensible && size >= 26)
            {
                // The sub-format GUID begins with the plain format tag.
                formatTag = ReadU16(body + 24);
            }
            haveFormat = true;
        }
        else if (std::memcmp(chunk, "data", 4) == 0)
        {
            if (!haveFormat)
            {
                return DRAVResult(kDRAVResultErrInvalidFormat, "data before format");
            }
            const bool isInt16 = formatTag == kFormatPcm && bits == 16;
            const bool isFloat = formatTag == kFormatFloat && bits == 32;
            if ((!isInt16 && !isFloat) || channels == 0 || channels > kMaxChannels || rate == 0)
            {
                return DRAVResult(kDRAVResultErrInvalidFormat, "unsupported sample format");
            }
            // A truncated file (size past the end) keeps what it has.
            const size_t dataBytes = std::min<size_t>(size, available);
            const size_t bytesPerSample = bits / 8;
            const size_t frameBytes = bytesPerSample * channels;
            const size_t frames = dataBytes / frameBytes;
            SimSound result;
            result.sampleRate = rate;
            result.channels = channels;
            result.samples.resize(frames * channels);
            const uint8_t* data = bytes.data() + bodyStart;
            for (size_t i = 0; i < frames * channels; ++i)
            {
                const uint8_t* p = data + i * bytesPerSample;
                if (isInt16)
                {
                    result.samples[i] = static_cast<float>(static_cast<int16_t>(ReadU16(p))) / 32768.0f;
                }
                else
                {
                    const uint32_t raw = ReadU32(p);
                    float value;
                    std::memcpy(&value, &raw, sizeof value);
                    result.samples[i] = value;
                }
            }
            sound = std::move(result);
            return kDRAVResultOk;
        }
        // Chunks are padded to even sizes.
        const size_t advance = 8 + static_cast<size_t>(size) + (size & 1);
        if (advance > bytes.size() - pos)
        {
            break;
        }
        pos += advance;
    }
    return DRAVResult(kDRAVResultErrInvalidFormat, "no data chunk");
}

std::vector<uint8_t> SimWavFile::Encode(const SimSound& sound, SampleEncoding encoding)
{
    const uint16_t bits = encoding == SampleEncoding::Float32 ? 32 : 16;
    const uint32_t bytesPerSample = bits / 8u;
    const size_t sampleCount = sound.Frames() * sound.channels;
    const uint32_t dataBytes = static_cast<uint32_t>(sampleCount * bytesPerSample);
    std::vector<uint8_t> out;
    out.reserve(44 + dataBytes);
    PutTag(out, "RIFF");
    PutU32(out, 36 + dataBytes);
    PutTag(out, "WAVE");
    PutTag(out, "fmt ");
    PutU32(out, 16);
    PutU16(out, encoding == SampleEncoding::Float32 ? kFormatFloat : kFormatPcm);
    PutU16(out, static_cast<uint16_t>(sound.channels));
    PutU32(out, sound.sampleRate);
    PutU32(out, sound.sampleRate * sound.channels * bytesPerSample);
    PutU16(out, static_cast<uint16_t>(sound.channels * bytesPerSample));
    PutU16(out, bits);
    PutTag(out, "data");
    PutU32(out, dataBytes);
    for (size_t i = 0; i < sampleCount; ++i)
    {
        if (encoding == SampleEncoding::Float32)
        {
            uint32_t raw;
            std::memcpy(&raw, &sound.samples[i], sizeof raw);
            PutU32(out, raw);
        }
        else
        {
            PutU16(out, static_cast<uint16_t>(FloatToInt16(sound.samples[i])));
        }
    }
    return out;
}

DRAVResult SimWavFile::Read(const std::string& path, SimSound& sound)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
    {
        return DRAVResult(kDRAVResultErrCouldNotOpenFile, "cannot open %s", path.c_str());
    }
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    return Parse(bytes, sound);
}

DRAVResult SimWavFile::Write(const std::string& path, const SimSound& sound, SampleEncoding encoding)
{
    if (sound.channels == 0 || sound.samples.size() % sound.channels != 0)
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "sound with %u channels and %zu samples",
                          sound.channels, sound.samples.size());
    }
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out)
    {
        return DRAVResult(kDRAVResultErrCouldNotOpenFile, "cannot create %s", path.c_str());
    }
    const std::vector<uint8_t> bytes = Encode(sound, encoding);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return out ? DRAVResult(kDRAVResultOk)
               : DRAVResult(kDRAVResultErrCouldNotOpenFile, "cannot write %s", path.c_str());
}

}  // namespace tidemix::platform::sim
