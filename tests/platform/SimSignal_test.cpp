#include "platform/sim/SimSignal.h"

#include <gtest/gtest.h>

#include <unistd.h>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

#include "platform/sim/SimWavFile.h"
#include "support/SimAudioAnalysis.h"

namespace tidemix::platform::sim
{
namespace
{
std::vector<std::vector<float>> RenderPlanar(SimSignalGenerator& generator, uint32_t channels,
                                             uint32_t frames, uint32_t chunk)
{
    std::vector<std::vector<float>> out(channels);
    std::vector<std::vector<float>> buffers(channels, std::vector<float>(chunk));
    std::vector<float*> pointers;
    for (auto& b : buffers)
    {
        pointers.push_back(b.data());
    }
    for (uint32_t done = 0; done < frames; done += chunk)
    {
        generator.Render(pointers.data(), chunk);
        for (uint32_t c = 0; c < channels; ++c)
        {
            out[c].insert(out[c].end(), buffers[c].begin(), buffers[c].end());
        }
    }
    return out;
}

std::string TempPath(const char* name)
{
    return std::string(::testing::TempDir()) + name + std::to_string(getpid()) + ".wav";
}
}  // namespace

TEST(SimSignal, SinePerChannelHasItsFrequencyAndLevelAcrossChunks)
{
    SimSignalGenerator generator(SimSignal::Sines({{1000.0, 0.5}, {440.0, 0.25}}), 48000, 3);
    // Odd chunk sizes: the phase must carry over from one render to the next.
    auto channels = RenderPlanar(generator, 3, 48000, 333);
    EXPECT_NEAR(test::ZeroCrossingFrequency(channels[0], 48000), 1000.0, 0.5);
    EXPECT_NEAR(test::ZeroCrossingFrequency(channels[1], 48000), 440.0, 0.5);
    // A channel past the list repeats the last tone.
    EXPECT_NEAR(test::ZeroCrossingFrequency(channels[2], 48000), 440.0, 0.5);
    // Levels per channel: SimAudioWorld's capture table measures them.
    // No jump at chunk borders: neighbouring samples differ by at most one step.
    const double maxStep = 0.5 * 2.0 * M_PI * 1000.0 / 48000.0 + 1e-4;
    for (size_t i = 1; i < channels[0].size(); ++i)
    {
        ASSERT_LE(std::fabs(channels[0][i] - channels[0][i - 1]), maxStep) << "at " << i;
    }
}

TEST(SimSignal, NoiseIsBoundedAndRepeatsWithItsSeed)
{
    SimSignalGenerator a(SimSignal::Noise(42, 0.3), 48000, 2);
    SimSignalGenerator b(SimSignal::Noise(42, 0.3), 48000, 2);
    SimSignalGenerator c(SimSignal::Noise(43, 0.3), 48000, 2);
    auto x = RenderPlanar(a, 2, 9600, 480);
    auto y = RenderPlanar(b, 2, 9600, 480);
    auto z = RenderPlanar(c, 2, 9600, 480);
    EXPECT_EQ(x, y);
    EXPECT_NE(x, z);
    EXPECT_LE(test::Peak(x[0]), 0.3);
    // Uniform noise of half-width w has an RMS of w / sqrt(3).
    EXPECT_NEAR(test::Rms(x[0]), 0.3 / std::sqrt(3.0), 0.01);
    EXPECT_NE(x[0], x[1]);
}

TEST(SimSignal, SilenceAndEmptySoundsGiveZeros)
{
    SimSignalGenerator silence(SimSignal::Silence(), 48000, 2);
    SimSignalGenerator emptySound(SimSignal::FromSound(SimSound{}), 48000, 2);
    SimSignalGenerator noTones(SimSignal::Sines({}), 48000, 2);
    for (SimSignalGenerator* g : {&silence, &emptySound, &noTones})
    {
        auto out = RenderPlanar(*g, 2, 960, 480);
        EXPECT_EQ(test::Peak(out[0]), 0.0);
        EXPECT_EQ(test::Peak(out[1]), 0.0);
    }
}

TEST(SimSignal, SoundLoopsAndSpreadsItsLastChannel)
{
    SimSound sound;
    sound.channels = 1;
    sound.samples = {0.1f, 0.2f, 0.3f};
    SimSignalGenerator generator(SimSignal::FromSound(sound), 48000, 2);
    auto out = RenderPlanar(generator, 2, 8, 4);
    const std::vector<float> expected = {0.1f, 0.2f, 0.3f, 0.1f, 0.2f, 0.3f, 0.1f, 0.2f};
    EXPECT_EQ(out[0], expected);
    EXPECT_EQ(out[1], expected);
}

// Float files come back exactly in SimAudioWorld's recording test; 16-bit
// ones within half a step.
TEST(SimWavFile, Int16RoundTripsWithinHalfAStep)
{
    SimSound sound;
    sound.sampleRate = 44100;
    sound.channels = 2;
    for (int i = 0; i < 1000; ++i)
    {
        sound.samples.push_back(std::sin(i * 0.01f) * 0.8f);
        sound.samples.push_back(-0.5f + i * 0.001f);
    }
    const std::string path = TempPath("int16");
    ASSERT_TRUE(SimWavFile::Write(path, sound, SampleEncoding::Int16).Succeeded());
    SimSound back;
    ASSERT_TRUE(SimWavFile::Read(path, back).Succeeded());
    std::remove(path.c_str());
    EXPECT_EQ(back.sampleRate, 44100u);
    EXPECT_EQ(back.channels, 2u);
    ASSERT_EQ(back.samples.size(), sound.samples.size());
    for (size_t i = 0; i < sound.samples.size(); ++i)
    {
        ASSERT_NEAR(back.samples[i], sound.samples[i], 0.5 / 32768.0 + 1e-7) << i;
    }
}

TEST(SimWavFile, HeaderIsTheClassicFortyFourBytes)
{
    SimSound sound;
    sound.channels = 1;
    sound.sampleRate = 48000;
    sound.samples = {0.0f, 1.0f, -1.0f, 2.0f};
    const auto bytes = SimWavFile::Encode(sound, SampleEncoding::Int16);
    ASSERT_EQ(bytes.size(), 44u + 8u);
    EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 4), "RIFF");
    EXPECT_EQ(std::string(bytes.begin() + 36, bytes.begin() + 40), "data");
    // +1.0 and anything above clip to 32767; -1.0 is -32768.
    EXPECT_EQ(bytes[46] | (bytes[47] << 8), 32767);
    EXPECT_EQ(static_cast<int16_t>(bytes[48] | (bytes[49] << 8)), -32768);
    EXPECT_EQ(bytes[50] | (bytes[51] << 8), 32767);
}

TEST(SimWavFile, DamagedFilesAreRefusedOrCutNotOverrun)
{
    SimSound sound;
    sound.channels = 2;
    sound.samples = {0.25f, -0.25f, 0.5f, -0.5f};
    auto bytes = SimWavFile::Encode(sound, SampleEncoding::Float32);
    SimSound out;

    auto wrongMagic = bytes;
    wrongMagic[0] = 'X';
    EXPECT_EQ(SimWavFile::Parse(wrongMagic, out).GetCode(), kDRAVResultErrInvalidFormat);

    auto eightBit = SimWavFile::Encode(sound, SampleEncoding::Int16);
    eightBit[34] = 8;  // bits per sample
    EXPECT_EQ(SimWavFile::Parse(eightBit, out).GetCode(), kDRAVResultErrInvalidFormat);

    auto zeroChannels = bytes;
    zeroChannels[22] = 0;
    EXPECT_EQ(SimWavFile::Parse(zeroChannels, out).GetCode(), kDRAVResultErrInvalidFormat);

    // A data chunk that claims more than the file holds keeps the whole frames it has.
    auto truncated = bytes;
    truncated.resize(truncated.size() - 5);
    ASSERT_TRUE(SimWavFile::Parse(truncated, out).Succeeded());
    EXPECT_EQ(out.Frames(), 1u);
    EXPECT_EQ(out.samples, (std::vector<float>{0.25f, -0.25f}));

    // A chunk size that points past the end ends the walk.
    auto hugeChunk = bytes;
    std::fill(hugeChunk.begin() + 16, hugeChunk.begin() + 20, 0xFF);
    EXPECT_FALSE(SimWavFile::Parse(hugeChunk, out).Succeeded());

    EXPECT_EQ(SimWavFile::Read("/nonexistent/dir/x.wav", out).GetCode(), kDRAVResultErrCouldNotOpenFile);
    SimSignal signal = SimSignal::Sine(1, 1);
    EXPECT_FALSE(SimSignal::FromWavFile("/nonexistent/dir/x.wav", signal).Succeeded());
    EXPECT_EQ(signal.kind, SimSignal::Kind::Silence);
}

}  // namespace tidemix::platform::sim
