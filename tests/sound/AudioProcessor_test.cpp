#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "sound/CDplAudioFilter_Level.h"
#include "sound/CDplAudioProcessor.h"

namespace
{
std::vector<float> Stereo(float left, float right, int frames)
{
    std::vector<float> block;
    for (int i = 0; i < frames; ++i)
    {
        block.push_back(left);
        block.push_back(right);
    }
    return block;
}

void Measure(CDplAudioProcessor& processor, const std::vector<float>& block)
{
    processor.MeasureAudioLevel(block.data(), static_cast<int>(block.size() * sizeof(float)));
}
}  // namespace

TEST(AudioProcessor, BadChannelCountsOrTypesLeaveItInert)
{
    for (auto [type, channels] : {std::pair{6, 9}, std::pair{6, 0}, std::pair{6, -1}, std::pair{3, 2},
                                  std::pair{0, 2}, std::pair{14, 2}})
    {
        CDplAudioProcessor processor(type, channels, 48000);
        EXPECT_FALSE(processor.IsInitialized());
        std::vector<float> block = Stereo(0.5f, 0.5f, 960);
        Measure(processor, block);
        EXPECT_EQ(processor.GetAudioLevel(0), 0.0);
        EXPECT_EQ(processor.GetAudioLevel(-1), 0.0);
        EXPECT_EQ(processor.GetAudioLevelDecibel(0), -144.0);
        EXPECT_FALSE(processor.SetDecreaseDbPerSecond(10.0));
        double value = -1.0;
        EXPECT_FALSE(processor.GetDecreaseDbPerSecond(&value));
        EXPECT_EQ(value, -1.0);
        EXPECT_FALSE(processor.SetGainNorm(0.5, 0));
        EXPECT_EQ(processor.GetGainNorm(0), 0.0);
        processor.Reset();
    }
}

TEST(AudioProcessor, ChannelLevelsAndTheirAverage)
{
    CDplAudioProcessor processor(6, 2, 48000);
    ASSERT_TRUE(processor.IsInitialized());
    Measure(processor, Stereo(0.2f, -0.4f, 960));
    EXPECT_NEAR(processor.GetAudioLevel(0), 0.2, 1e-7);
    EXPECT_NEAR(processor.GetAudioLevel(1), 0.4, 1e-7);
    EXPECT_NEAR(processor.GetAudioLevel(-1), 0.3, 1e-7);
    EXPECT_NEAR(processor.GetAudioLevelDecibel(0), 20.0 * std::log10(0.2), 1e-5);
    EXPECT_NEAR(processor.GetAudioLevelDecibel(-1), 20.0 * std::log10(0.3), 1e-5);
    EXPECT_EQ(processor.GetAudioLevel(2), 0.0);  // no such channel
    EXPECT_EQ(processor.GetAudioLevel(-2), 0.0);
}

TEST(AudioProcessor, DecreasePerSecond)
{
    CDplAudioProcessor processor(6, 2, 48000);
    double value = 0.0;
    EXPECT_TRUE(processor.GetDecreaseDbPerSecond(&value));
    EXPECT_EQ(value, 10.0);
    EXPECT_FALSE(processor.GetDecreaseDbPerSecond(nullptr));
    EXPECT_FALSE(processor.SetDecreaseDbPerSecond(0.0));
    EXPECT_FALSE(processor.SetDecreaseDbPerSecond(-3.0));
    EXPECT_FALSE(processor.SetDecreaseDbPerSecond(std::nan("")));
    EXPECT_TRUE(processor.SetDecreaseDbPerSecond(48.0));
    EXPECT_TRUE(processor.GetDecreaseDbPerSecond(&value));
    EXPECT_EQ(value, 48.0);

    // One full-scale frame, then a second of silence in 50 blocks of 960 frames.
    Measure(processor, Stereo(1.0f, 1.0f, 1));
    const std::vector<float> silence = Stereo(0.0f, 0.0f, 960);
    for (int block = 0; block < 50; ++block)
    {
        Measure(processor, silence);
    }
    // 48000 samples after the peak hold 979 falls of 0.048 dB.
    EXPECT_NEAR(processor.GetAudioLevelDecibel(1), -0.048 * 979, 0.01);
}

TEST(AudioProcessor, FloatMeasurementEqualsOneMeterPerChannel)
{
    // Three channels fed in chunks that split frames: the channel order must
    // carry over from one call to the next.
    CDplAudioProcessor processor(6, 3, 48000);
    CDplAudioFilter_Level reference[3] = {CDplAudioFilter_Level(48000), CDplAudioFilter_Level(48000),
                                          CDplAudioFilter_Level(48000)};
    std::mt19937 rng(99);
    std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
    int channel = 0;
    for (int chunk = 0; chunk < 400; ++chunk)
    {
        std::vector<float> samples(static_cast<size_t>(1 + chunk % 11));
        for (float& s : samples)
        {
            s = dist(rng) * static_cast<float>((chunk % 5) + 1) / 5.0f;
            reference[channel].Apply(s);
            channel = (channel + 1) % 3;
        }
        processor.MeasureAudioLevel(samples.data(), static_cast<int>(samples.size() * sizeof(float)));
        for (int c = 0; c < 3; ++c)
        {
            ASSERT_EQ(processor.GetAudioLevel(c), reference[c].GetAudioLevel()) << chunk << " " << c;
        }
    }
}

TEST(AudioProcessor, UnitGainsLeaveTheBufferUntouched)
{
    // The engine hands over frames that other readers share: with no gain to
    // apply the processor must not write, here into read-only memory.
    const long page = sysconf(_SC_PAGESIZE);
    void* memory =
        mmap(nullptr, static_cast<size_t>(page), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    float* samples = static_cast<float*>(memory);
    for (int i = 0; i < 64; ++i)
    {
        samples[i] = 0.01f * static_cast<float>(i);
    }
    ASSERT_EQ(mprotect(memory, static_cast<size_t>(page), PROT_READ), 0);
    CDplAudioProcessor processor(6, 2, 48000);
    processor.MeasureAudioLevel(samples, 64 * 4);
    EXPECT_NEAR(processor.GetAudioLevel(1), 0.63, 1e-6);
    munmap(memory, static_cast<size_t>(page));

    // 16-bit: the normalised round trip would move some values; unit gains keep them.
    CDplAudioProcessor shorts(2, 1, 48000);
    int16_t values[2] = {-31232, 100};
    shorts.MeasureAudioLevel(values, sizeof(values));
    EXPECT_EQ(values[0], -31232);
    EXPECT_EQ(values[1], 100);
    EXPECT_EQ(shorts.GetAudioLevel(0), std::fabs(-31232.0 * (2.0 / 65535.0) + 1.0 / 65535.0));
}

TEST(AudioProcessor, GainsScaleTheCallersBufferAndTheReading)
{
    CDplAudioProcessor processor(6, 2, 48000);
    EXPECT_EQ(processor.GetGainNorm(0), 1.0);
    EXPECT_EQ(processor.GetGainDB(0), 0.0);
    EXPECT_TRUE(processor.SetGainNorm(0.5, 0));
    EXPECT_FALSE(processor.SetGainNorm(1.5, 0));
    EXPECT_FALSE(processor.SetGainNorm(-0.1, 1));
    EXPECT_FALSE(processor.SetGainNorm(0.5, 2));
    EXPECT_EQ(processor.GetGainNorm(0), 0.5);
    EXPECT_EQ(processor.GetGainNorm(1), 1.0);
    EXPECT_NEAR(processor.GetGainDB(0), -6.0206, 1e-4);
    EXPECT_EQ(processor.GetGainNorm(5), 0.0);

    std::vector<float> block = Stereo(0.8f, 0.8f, 10);
    Measure(processor, block);
    EXPECT_EQ(block[0], 0.4f);
    EXPECT_EQ(block[1], 0.8f);
    EXPECT_NEAR(processor.GetAudioLevel(0), 0.4, 1e-7);
    EXPECT_NEAR(processor.GetAudioLevel(1), 0.8, 1e-7);

    EXPECT_TRUE(processor.SetGainNorm(0.25, -1));
    EXPECT_EQ(processor.GetGainNorm(0), 0.25);
    EXPECT_EQ(processor.GetGainNorm(1), 0.25);
    EXPECT_TRUE(processor.SetGainDB(-20.0, 1));
    EXPECT_NEAR(processor.GetGainNorm(1), 0.1, 1e-15);
    EXPECT_FALSE(processor.SetGainDB(6.0, 1));
    EXPECT_TRUE(processor.SetGainNorm(0.0, 0));
    EXPECT_EQ(processor.GetGainDB(0), -144.0);
}

TEST(AudioProcessor, ResetAndOddInput)
{
    CDplAudioProcessor processor(6, 2, 48000);
    std::vector<float> block = Stereo(0.5f, 0.25f, 4);
    // A byte count that is not whole samples measures the whole ones only:
    // 9 bytes are two samples.
    processor.MeasureAudioLevel(block.data(), 9);
    EXPECT_EQ(processor.GetAudioLevel(0), 0.5);
    EXPECT_EQ(processor.GetAudioLevel(1), 0.25);
    // One more sample leaves the next call starting on channel 1.
    std::vector<float> one = {0.75f};
    Measure(processor, one);
    EXPECT_EQ(processor.GetAudioLevel(0), 0.75);
    processor.Reset();
    EXPECT_EQ(processor.GetAudioLevel(0), 0.0);
    EXPECT_EQ(processor.GetAudioLevel(1), 0.0);
    // After a reset the next sample is channel 0 again.
    Measure(processor, std::vector<float>{0.125f});
    EXPECT_EQ(processor.GetAudioLevel(0), 0.125);
    EXPECT_EQ(processor.GetAudioLevel(1), 0.0);

    processor.MeasureAudioLevel(nullptr, 100);
    processor.MeasureAudioLevel(block.data(), -8);
    processor.MeasureAudioLevel(block.data(), 0);
    EXPECT_EQ(processor.GetAudioLevel(0), 0.125);
}
