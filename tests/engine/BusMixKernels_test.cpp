// The wide bus-mix loops against the baseline ones they stand in for: the
// same output samples and the same sums of squares, bit for bit.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "engine/devices/AudioBusMixer.h"
#include "engine/devices/BusMixKernels.h"
#include "engine/media/AlignedSampleBuffer.h"

namespace
{
using tidemix::engine::AlignedSampleBuffer;
using tidemix::engine::AudioBusMixer;
namespace busmix = tidemix::engine::busmix;

std::vector<float> Samples(uint32_t frames, uint32_t seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> level(-1.0f, 1.0f);
    std::vector<float> samples(frames);
    for (float& s : samples)
    {
        s = level(random);
    }
    // The odd values a misbehaving source may hand over.
    const float odd[] = {std::numeric_limits<float>::quiet_NaN(),
                         std::numeric_limits<float>::infinity(),
                         -std::numeric_limits<float>::infinity(),
                         std::numeric_limits<float>::denorm_min(),
                         -0.0f,
                         3.0e38f};
    for (size_t i = 0; i < std::size(odd) && seed % 2 == 1; ++i)
    {
        samples[(i * 37 + seed) % frames] = odd[i];
    }
    return samples;
}

bool SameBits(float a, float b)
{
    return std::memcmp(&a, &b, sizeof(a)) == 0;
}

TEST(BusMixKernels, WideLoopsGiveTheBaselineBits)
{
    RecordProperty("wide_vectors", busmix::HasWideVectors() ? "yes" : "no");
    if (!busmix::HasWideVectors())
    {
        GTEST_SKIP() << "this processor has no AVX2: only the baseline loops run";
    }
    struct Case
    {
        uint32_t frames;
        float gain;
        bool accumulate;
        uint32_t seed;
    };
    const Case cases[] = {{960, 0.5f, false, 2}, {960, 0.55f, true, 3}, {1, 1.0f, true, 4},
                          {15, 0.3f, false, 5},  {17, 0.7f, true, 6},   {481, 0.0f, true, 7},
                          {64, 1.0f, false, 9},  {1023, 0.9f, true, 11}};
    for (const Case& c : cases)
    {
        const std::vector<float> in = Samples(c.frames, c.seed);
        const std::vector<float> start = Samples(c.frames, c.seed + 100);
        AlignedSampleBuffer<float> portable(c.frames), wide(c.frames);
        std::memcpy(portable.Data(), start.data(), c.frames * sizeof(float));
        std::memcpy(wide.Data(), start.data(), c.frames * sizeof(float));

        const float mixedPortable =
            busmix::MixChannelPortable(portable.Data(), in.data(), c.gain, c.frames, c.accumulate);
        const float mixedWide =
            busmix::MixChannelWide(wide.Data(), in.data(), c.gain, c.frames, c.accumulate);
        EXPECT_TRUE(SameBits(mixedPortable, mixedWide))
            << c.frames << " frames: " << mixedPortable << " / " << mixedWide;
        const float scaledPortable = busmix::ScaleChannelPortable(portable.Data(), c.gain, c.frames);
        const float scaledWide = busmix::ScaleChannelWide(wide.Data(), c.gain, c.frames);
        EXPECT_TRUE(SameBits(scaledPortable, scaledWide)) << c.frames << " frames";
        for (uint32_t i = 0; i < c.frames; ++i)
        {
            ASSERT_TRUE(SameBits(portable.Data()[i], wide.Data()[i]))
                << "frame " << i << " of " << c.frames << ": " << portable.Data()[i] << " / "
                << wide.Data()[i];
        }
    }
}

// Readers lend their blocks where callbacks copy them: the same mix either
// way, bus by bus: one lends, one builds in the scratch, one stays silent,
// one has nothing at all. Two renders, the second longer than a slice.
TEST(BusMixKernels, ReadersMixLikeCallbacks)
{
    constexpr uint32_t kFrames = 100;
    std::vector<std::vector<float>> buses;
    for (uint32_t bus = 0; bus < 4; ++bus)
    {
        buses.push_back(Samples(2 * 3 * kFrames, bus * 2 + 2));
    }
    AudioBusMixer copying(kFrames), lending(kFrames);
    for (AudioBusMixer* mixer : {&copying, &lending})
    {
        ASSERT_TRUE(mixer->SetBusCount(4).Succeeded());
        for (uint32_t bus = 0; bus < 4; ++bus)
        {
            mixer->SetBusGain(bus, 0.25f * static_cast<float>(bus + 1));
        }
        mixer->SetOutputGain(0.8f);
    }
    for (uint32_t bus = 0; bus < 3; ++bus)
    {
        const std::vector<float>* samples = &buses[bus];
        copying.SetBusCallback(bus,
                               [samples, bus](float* left, float* right, uint32_t frames)
                               {
                                   std::memcpy(left, samples->data(), frames * sizeof(float));
                                   std::memcpy(right, samples->data() + 3 * kFrames, frames * sizeof(float));
                                   return bus != 2;
                               });
        lending.SetBusReader(
            bus,
            [samples, bus](AudioBusMixer::BusBlock& block, uint32_t frames)
            {
                if (bus == 0)
                {
                    block.Mix(samples->data(), samples->data() + 3 * kFrames);
                }
                else if (bus == 1)
                {
                    std::memcpy(block.ScratchLeft(), samples->data(), frames * sizeof(float));
                    std::memcpy(block.ScratchRight(), samples->data() + 3 * kFrames, frames * sizeof(float));
                    block.Mix(block.ScratchLeft(), block.ScratchRight());
                }
            });
    }
    for (uint32_t frames : {kFrames, 2 * kFrames})
    {
        AlignedSampleBuffer<float> copied[2] = {AlignedSampleBuffer<float>(frames),
                                                AlignedSampleBuffer<float>(frames)};
        AlignedSampleBuffer<float> lent[2] = {AlignedSampleBuffer<float>(frames),
                                              AlignedSampleBuffer<float>(frames)};
        copying.Render(copied[0].Data(), copied[1].Data(), frames);
        lending.Render(lent[0].Data(), lent[1].Data(), frames);
        for (int channel = 0; channel < 2; ++channel)
        {
            for (uint32_t i = 0; i < frames; ++i)
            {
                ASSERT_TRUE(SameBits(copied[channel].Data()[i], lent[channel].Data()[i])) << "frame " << i;
            }
            EXPECT_TRUE(SameBits(copying.OutputLevelDecibels(channel), lending.OutputLevelDecibels(channel)));
            for (uint32_t bus = 0; bus < 4; ++bus)
            {
                EXPECT_TRUE(
                    SameBits(copying.BusLevelDecibels(bus, channel), lending.BusLevelDecibels(bus, channel)))
                    << "bus " << bus;
            }
        }
        EXPECT_EQ(lending.BusLevelDecibels(2, 0), AudioBusMixer::kLevelFloorDecibels);
        EXPECT_GT(lending.BusLevelDecibels(1, 0), AudioBusMixer::kLevelFloorDecibels);
    }
}
}  // namespace
