#include "engine/devices/AudioFormatConverter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>
#include <random>
#include <vector>

#include "support/SimAudioAnalysis.h"

namespace tidemix::engine
{
namespace
{

using platform::DeviceStreamFormat;
using platform::SampleEncoding;
using test::Rms;
using test::ZeroCrossingFrequency;

DeviceStreamFormat Format(uint32_t rate, uint32_t channels, SampleEncoding encoding, bool interleaved)
{
    DeviceStreamFormat format;
    format.sampleRate = rate;
    format.channels = channels;
    format.encoding = encoding;
    format.interleaved = interleaved;
    return format;
}

// Sample (channel c, frame f) of a device layout. Int16 is written at the converter's input
// scale (32768) and read back at its output scale (32767).
void Put(const DeviceStreamFormat& format, void* const* buffers, uint32_t c, uint32_t f, float value)
{
    const size_t index = format.interleaved ? f * format.channels + c : f;
    void* base = buffers[format.interleaved ? 0 : c];
    if (format.encoding == SampleEncoding::Float32)
        static_cast<float*>(base)[index] = value;
    else
        static_cast<int16_t*>(base)[index] = static_cast<int16_t>(std::lround(value * 32768.0));
}

float Get(const DeviceStreamFormat& format, void* const* buffers, uint32_t c, uint32_t f)
{
    const size_t index = format.interleaved ? f * format.channels + c : f;
    const void* base = buffers[format.interleaved ? 0 : c];
    if (format.encoding == SampleEncoding::Float32)
        return static_cast<const float*>(base)[index];
    return static_cast<const int16_t*>(base)[index] / 32767.0f;
}

// Feeds two planar float channels from arrays; with `read`, it walks through them.
AudioFormatConverter::InputCallback FromArrays(const float* left, const float* right, size_t* read = nullptr)
{
    return [=](void* const* buffers, uint32_t frames)
    {
        const size_t at = read != nullptr ? *read : 0;
        std::copy_n(left + at, frames, static_cast<float*>(buffers[0]));
        std::copy_n(right + at, frames, static_cast<float*>(buffers[1]));
        if (read != nullptr)
            *read += frames;
        return frames;
    };
}

// A sine source that writes any device layout and keeps its phase across calls.
class SineSource
{
public:
    SineSource(DeviceStreamFormat format, double frequency, double amplitude)
        : format_(format), frequency_(frequency), amplitude_(amplitude)
    {
    }
    uint32_t Fill(void* const* buffers, uint32_t frames)
    {
        for (uint32_t f = 0; f < frames; ++f)
        {
            const double t = static_cast<double>(position_++) / format_.sampleRate;
            const auto value =
                static_cast<float>(amplitude_ * std::sin(2.0 * std::numbers::pi * frequency_ * t));
            for (uint32_t c = 0; c < format_.channels; ++c)
                Put(format_, buffers, c, f, value);
        }
        return frames;
    }

private:
    DeviceStreamFormat format_;
    double frequency_;
    double amplitude_;
    uint64_t position_ = 0;
};

// Level of a 0.5 peak sine relative to its expected RMS, in dB.
double LevelErrorDecibels(const std::vector<float>& x)
{
    return 20.0 * std::log10(Rms(x) / (0.5 / std::sqrt(2.0)));
}

// A sine through the resampler, either way, keeps its pitch and level. The
// layouts are ReadsAndWritesEveryDeviceLayout's, the frame counts
// FrameCountsFollowTheExactRatioOverALongRun's.
TEST(AudioFormatConverter, ResampledSineKeepsItsFrequencyAndLevel)
{
    const DeviceStreamFormat mix = AudioFormatConverter::MixFormat();
    struct Case
    {
        DeviceStreamFormat input, output;
        uint32_t request;
    };
    const Case cases[] = {{Format(44100, 1, SampleEncoding::Int16, true), mix, 960},
                          {mix, Format(44100, 2, SampleEncoding::Int16, true), 512}};
    for (const Case& c : cases)
    {
        SCOPED_TRACE(testing::Message() << c.input.sampleRate << " to " << c.output.sampleRate);
        SineSource source(c.input, 1000.0, 0.5);
        auto converter = AudioFormatConverter::Create(
            c.input, c.output, 1024, [&source](void* const* b, uint32_t n) { return source.Fill(b, n); });
        ASSERT_NE(converter, nullptr);
        EXPECT_TRUE(converter->Resamples());
        std::vector<std::vector<uint8_t>> storage(c.output.BufferCount(),
                                                  std::vector<uint8_t>(c.request * c.output.channels * 4));
        std::vector<void*> buffers;
        for (auto& bytes : storage)
            buffers.push_back(bytes.data());
        std::vector<std::vector<float>> channels(c.output.channels);
        for (int block = 0; block < 80; ++block)
        {
            converter->Render(buffers.data(), c.request);
            for (uint32_t f = 0; block >= 10 && f < c.request; ++f)  // past the filter's start-up
                for (uint32_t channel = 0; channel < c.output.channels; ++channel)
                    channels[channel].push_back(Get(c.output, buffers.data(), channel, f));
        }
        EXPECT_EQ(converter->ShortFrames(), 0u);
        for (const auto& channel : channels)
        {
            EXPECT_NEAR(ZeroCrossingFrequency(channel, c.output.sampleRate), 1000.0, 0.5);
            EXPECT_NEAR(LevelErrorDecibels(channel), 0.0, 0.1);
        }
    }
}

TEST(AudioFormatConverter, FloatPlanarStereoAt48000PassesBitForBit)
{
    const DeviceStreamFormat mix = AudioFormatConverter::MixFormat();
    std::mt19937 random(7);
    std::uniform_real_distribution<float> sample(-1.5f, 1.5f);
    std::vector<float> sourceLeft(5000), sourceRight(5000);
    for (size_t i = 0; i < sourceLeft.size(); ++i)
    {
        sourceLeft[i] = sample(random);
        sourceRight[i] = sample(random);
    }
    sourceLeft[3] = std::numeric_limits<float>::denorm_min();
    size_t read = 0;
    auto converter =
        AudioFormatConverter::Create(mix, mix, 960, FromArrays(sourceLeft.data(), sourceRight.data(), &read));
    ASSERT_NE(converter, nullptr);
    EXPECT_FALSE(converter->Resamples());

    std::vector<float> left(5000), right(5000);
    size_t written = 0;
    for (uint32_t request : {1u, 960u, 961u, 2000u, 1078u})  // odd sizes and several slices
    {
        void* buffers[2] = {left.data() + written, right.data() + written};
        converter->Render(buffers, request);
        written += request;
    }
    EXPECT_EQ(read, 5000u);
    EXPECT_EQ(0, std::memcmp(left.data(), sourceLeft.data(), 5000 * sizeof(float)));
    EXPECT_EQ(0, std::memcmp(right.data(), sourceRight.data(), 5000 * sizeof(float)));
}

// Every device layout both ways: reading takes the first two channels (mono feeds both),
// writing fills the first two, zeroes the rest and averages into mono.
TEST(AudioFormatConverter, ReadsAndWritesEveryDeviceLayout)
{
    const DeviceStreamFormat mix = AudioFormatConverter::MixFormat();
    constexpr uint32_t kFrames = 4;
    // Exact in 16 bits, so both encodings compare exactly on reading.
    auto value = [](uint32_t c, uint32_t f) { return (c + 1) * 0.125f + f / 64.0f; };
    const float kLeft[kFrames] = {0.5f, -0.25f, 0.0f, 1.0f};
    const float kRight[kFrames] = {0.25f, 0.25f, -1.0f, 1.0f};
    for (const bool interleaved : {true, false})
        for (const SampleEncoding encoding : {SampleEncoding::Float32, SampleEncoding::Int16})
            for (const uint32_t channels : {1u, 2u, 3u, 4u})
            {
                SCOPED_TRACE(testing::Message()
                             << "interleaved " << interleaved << " int16 "
                             << (encoding == SampleEncoding::Int16) << " channels " << channels);
                const DeviceStreamFormat device = Format(48000, channels, encoding, interleaved);
                auto reader =
                    AudioFormatConverter::Create(device, mix, 64,
                                                 [&](void* const* buffers, uint32_t frames)
                                                 {
                                                     for (uint32_t f = 0; f < frames; ++f)
                                                         for (uint32_t c = 0; c < channels; ++c)
                                                             Put(device, buffers, c, f, value(c, f));
                                                     return frames;
                                                 });
                ASSERT_NE(reader, nullptr);
                float left[kFrames], right[kFrames];
                void* mixBuffers[2] = {left, right};
                reader->Render(mixBuffers, kFrames);
                for (uint32_t f = 0; f < kFrames; ++f)
                {
                    EXPECT_EQ(left[f], value(0, f));
                    EXPECT_EQ(right[f], value(channels > 1 ? 1 : 0, f));
                }

                auto writer = AudioFormatConverter::Create(mix, device, 64, FromArrays(kLeft, kRight));
                ASSERT_NE(writer, nullptr);
                // Pre-filled with garbage so untouched samples show.
                std::vector<std::vector<uint8_t>> storage(device.BufferCount(),
                                                          std::vector<uint8_t>(kFrames * channels * 4, 0xAB));
                std::vector<void*> buffers;
                for (auto& s : storage)
                    buffers.push_back(s.data());
                writer->Render(buffers.data(), kFrames);
                const float tolerance = encoding == SampleEncoding::Int16 ? 1.0f / 32767.0f : 0.0f;
                for (uint32_t f = 0; f < kFrames; ++f)
                {
                    if (channels == 1)
                    {
                        EXPECT_NEAR(Get(device, buffers.data(), 0, f), 0.5f * (kLeft[f] + kRight[f]),
                                    tolerance);
                        continue;
                    }
                    EXPECT_NEAR(Get(device, buffers.data(), 0, f), kLeft[f], tolerance);
                    EXPECT_NEAR(Get(device, buffers.data(), 1, f), kRight[f], tolerance);
                    for (uint32_t c = 2; c < channels; ++c)
                        EXPECT_EQ(Get(device, buffers.data(), c, f), 0.0f);
                }
            }
}

TEST(AudioFormatConverter, FrameCountsFollowTheExactRatioOverALongRun)
{
    const std::pair<uint32_t, uint32_t> rates[] = {
        {44100, 48000}, {48000, 44100}, {8000, 48000}, {96000, 44100}, {48000, 47999}};
    for (const auto& [inputRate, outputRate] : rates)
    {
        SCOPED_TRACE(testing::Message() << inputRate << " to " << outputRate);
        uint64_t pulled = 0;
        auto converter =
            AudioFormatConverter::Create(Format(inputRate, 2, SampleEncoding::Float32, false),
                                         Format(outputRate, 2, SampleEncoding::Float32, false), 1024,
                                         [&pulled](void* const* b, uint32_t n)
                                         {
                                             std::fill_n(static_cast<float*>(b[0]), n, 0.25f);
                                             std::fill_n(static_cast<float*>(b[1]), n, -0.25f);
                                             pulled += n;
                                             return n;
                                         });
        ASSERT_NE(converter, nullptr);

        // Irregular request sizes, some beyond one slice; about 100 seconds of output.
        std::mt19937 random(1);
        std::uniform_int_distribution<uint32_t> size(1, 3000);
        std::vector<float> left(3000), right(3000);
        uint64_t rendered = 0;
        uint32_t last = 0;
        while (rendered < uint64_t{outputRate} * 100)
        {
            const uint32_t n = size(random);
            const uint64_t predicted = converter->InputFramesForOutput(n);
            const uint64_t before = pulled;
            void* buffers[2] = {left.data(), right.data()};
            converter->Render(buffers, n);
            ASSERT_EQ(pulled - before, predicted);
            rendered += n;
            last = n;
            ASSERT_EQ(pulled, (rendered * inputRate + outputRate - 1) / outputRate) << "after " << rendered;
        }
        EXPECT_EQ(converter->OutputFramesRendered(), rendered);
        EXPECT_EQ(converter->ShortFrames(), 0u);
        // The steady DC arrives at its level after the start-up.
        EXPECT_NEAR(left[last - 1], 0.25f, 0.01f);
        EXPECT_NEAR(right[last - 1], -0.25f, 0.01f);
    }
}

TEST(AudioFormatConverter, SingleFrameRendersNeverAskForZeroFramesAndResetRestartsTheSchedule)
{
    std::vector<uint32_t> requests;
    auto converter = AudioFormatConverter::Create(Format(44100, 2, SampleEncoding::Float32, false),
                                                  AudioFormatConverter::MixFormat(), 960,
                                                  [&requests](void* const*, uint32_t frames)
                                                  {
                                                      requests.push_back(frames);
                                                      return frames;
                                                  });
    ASSERT_NE(converter, nullptr);
    const uint64_t first = converter->InputFramesForOutput(100);
    std::vector<float> left(960), right(960);
    void* buffers[2] = {left.data(), right.data()};
    for (int i = 0; i < 160; ++i)
        converter->Render(buffers, 1);
    // 160 output frames at 48000 Hz take exactly 147 at 44100 Hz, one at a time.
    EXPECT_EQ(requests, std::vector<uint32_t>(147, 1u));
    EXPECT_EQ(converter->ShortFrames(), 0u);

    converter->Render(buffers, 333);
    EXPECT_EQ(converter->InputFramesPulled(), (493u * 44100 + 47999) / 48000);
    converter->Reset();
    EXPECT_EQ(converter->InputFramesPulled(), 0u);
    EXPECT_EQ(converter->OutputFramesRendered(), 0u);
    EXPECT_EQ(converter->InputFramesForOutput(100), first);
}

TEST(AudioFormatConverter, ShortInputPlaysAsSilence)
{
    auto converter = AudioFormatConverter::Create(
        Format(48000, 2, SampleEncoding::Int16, true), AudioFormatConverter::MixFormat(), 64,
        [](void* const* buffers, uint32_t frames)
        {
            // Fills everything but admits to only three frames.
            std::fill_n(static_cast<int16_t*>(buffers[0]), frames * 2, int16_t{16384});
            return 3u;
        });
    ASSERT_NE(converter, nullptr);
    float left[8], right[8];
    void* buffers[2] = {left, right};
    converter->Render(buffers, 8);
    for (int f = 0; f < 8; ++f)
    {
        EXPECT_EQ(left[f], f < 3 ? 0.5f : 0.0f) << f;
        EXPECT_EQ(right[f], f < 3 ? 0.5f : 0.0f) << f;
    }
}

TEST(AudioFormatConverter, RefusesFormatsItCannotConvert)
{
    const DeviceStreamFormat mix = AudioFormatConverter::MixFormat();
    auto callback = [](void* const*, uint32_t frames) { return frames; };
    for (const DeviceStreamFormat& format :
         {Format(0, 2, SampleEncoding::Float32, false), Format(999, 2, SampleEncoding::Float32, false),
          Format(768001, 2, SampleEncoding::Float32, false), Format(48000, 0, SampleEncoding::Int16, true),
          Format(48000, 65, SampleEncoding::Int16, false),
          Format(48000, 2, static_cast<SampleEncoding>(7), false)})
    {
        DRAVResult result;
        EXPECT_EQ(AudioFormatConverter::Create(format, mix, 960, callback, &result), nullptr);
        EXPECT_EQ(result, kDRAVResultErrInvalidFormat);
        EXPECT_EQ(AudioFormatConverter::Create(mix, format, 960, callback, &result), nullptr);
        EXPECT_EQ(result, kDRAVResultErrInvalidFormat);
    }
    DRAVResult result;
    EXPECT_EQ(AudioFormatConverter::Create(mix, mix, 0, callback, &result), nullptr);
    EXPECT_EQ(result, kDRAVResultErrInvalidParameter);
    EXPECT_EQ(AudioFormatConverter::Create(mix, mix, 960, nullptr, &result), nullptr);
    EXPECT_EQ(result, kDRAVResultErrNullPointer);
    // 64 channels and the rate limits themselves are fine.
    EXPECT_NE(AudioFormatConverter::Create(Format(768000, 64, SampleEncoding::Int16, true),
                                           Format(1000, 64, SampleEncoding::Float32, false), 960, callback),
              nullptr);
}

}  // namespace
}  // namespace tidemix::engine
