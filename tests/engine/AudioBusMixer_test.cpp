#include "engine/devices/AudioBusMixer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

namespace tidemix::engine
{
namespace
{

constexpr uint32_t kBlock = 960;

// A bus that plays a constant per channel.
AudioBusMixer::BusCallback Constant(float left, float right)
{
    return [left, right](float* l, float* r, uint32_t frames)
    {
        for (uint32_t i = 0; i < frames; ++i)
        {
            l[i] = left;
            r[i] = right;
        }
        return true;
    };
}

// A bus that plays a sine of the given peak amplitude, continuing across calls.
AudioBusMixer::BusCallback Sine(float amplitude, double frequency)
{
    auto phase = std::make_shared<uint64_t>(0);
    return [=](float* l, float* r, uint32_t frames)
    {
        for (uint32_t i = 0; i < frames; ++i)
        {
            const double t = static_cast<double>((*phase)++) / 48000.0;
            l[i] = r[i] = static_cast<float>(amplitude * std::sin(2.0 * std::numbers::pi * frequency * t));
        }
        return true;
    };
}

struct Output
{
    std::vector<float> left = std::vector<float>(kBlock, -7.0f);
    std::vector<float> right = std::vector<float>(kBlock, -7.0f);
};

TEST(AudioBusMixer, SumsBusesAtTheirGainsThenAppliesTheOutputGain)
{
    AudioBusMixer mixer;
    ASSERT_TRUE(mixer.SetBusCount(3).Succeeded());
    ASSERT_TRUE(mixer.SetBusCallback(0, Constant(0.25f, 0.5f)).Succeeded());
    ASSERT_TRUE(mixer.SetBusCallback(1, Constant(0.5f, -0.25f)).Succeeded());
    ASSERT_TRUE(mixer.SetBusCallback(2, Constant(1.0f, 1.0f)).Succeeded());
    ASSERT_TRUE(mixer.SetBusGain(0, 1.0f).Succeeded());
    ASSERT_TRUE(mixer.SetBusGain(1, 0.5f).Succeeded());
    ASSERT_TRUE(mixer.SetBusGain(2, 0.0f).Succeeded());

    Output out;
    mixer.Render(out.left.data(), out.right.data(), kBlock);
    for (uint32_t i = 0; i < kBlock; ++i)
    {
        ASSERT_EQ(out.left[i], 0.5f) << i;     // 0.25 + 0.5 * 0.5
        ASSERT_EQ(out.right[i], 0.375f) << i;  // 0.5 - 0.5 * 0.25
    }

    mixer.SetOutputGain(0.5f);
    mixer.Render(out.left.data(), out.right.data(), kBlock);
    EXPECT_EQ(out.left[0], 0.25f);
    EXPECT_EQ(out.right[kBlock - 1], 0.1875f);
    // Output gain is post-fader: bus levels don't move, the output level does.
    EXPECT_NEAR(mixer.BusLevelDecibels(2, 0), 0.0f, 1e-4);
    EXPECT_NEAR(mixer.OutputLevelDecibels(0), 20.0 * std::log10(0.25), 1e-3);
}

TEST(AudioBusMixer, OddFrameCountsAndLongRendersCoverEveryFrame)
{
    // 7 frames (tail only), 1001 (chunks plus tail) and 2500 with slices of 960.
    for (uint32_t frames : {7u, 1001u, 2500u})
    {
        AudioBusMixer mixer(kBlock);
        ASSERT_TRUE(mixer.SetBusCount(2).Succeeded());
        uint32_t calls = 0;
        ASSERT_TRUE(mixer
                        .SetBusCallback(0,
                                        [&calls](float* l, float* r, uint32_t n)
                                        {
                                            ++calls;
                                            for (uint32_t i = 0; i < n; ++i)
                                                l[i] = r[i] = 0.125f;
                                            return true;
                                        })
                        .Succeeded());
        ASSERT_TRUE(mixer.SetBusCallback(1, Constant(0.0625f, -0.0625f)).Succeeded());
        std::vector<float> left(frames, 9.0f), right(frames, 9.0f);
        mixer.Render(left.data(), right.data(), frames);
        for (uint32_t i = 0; i < frames; ++i)
        {
            ASSERT_EQ(left[i], 0.1875f) << frames << " at " << i;
            ASSERT_EQ(right[i], 0.0625f) << frames << " at " << i;
        }
        EXPECT_EQ(calls, (frames + kBlock - 1) / kBlock);
    }
}

TEST(AudioBusMixer, SilentBusesContributeZerosWhileOthersPlay)
{
    AudioBusMixer mixer;
    ASSERT_TRUE(mixer.SetBusCount(4).Succeeded());
    // Bus 0: no callback. Bus 1: no data, but scribbles into the scratch first.
    ASSERT_TRUE(mixer
                    .SetBusCallback(1,
                                    [](float* l, float* r, uint32_t n)
                                    {
                                        for (uint32_t i = 0; i < n; ++i)
                                            l[i] = r[i] = 100.0f;
                                        return false;
                                    })
                    .Succeeded());
    ASSERT_TRUE(mixer.SetBusCallback(2, Constant(0.5f, 0.25f)).Succeeded());
    ASSERT_TRUE(mixer.SetBusCallback(3, nullptr).Succeeded());

    Output out;
    mixer.Render(out.left.data(), out.right.data(), kBlock);
    for (uint32_t i = 0; i < kBlock; ++i)
    {
        ASSERT_EQ(out.left[i], 0.5f);
        ASSERT_EQ(out.right[i], 0.25f);
    }
    EXPECT_EQ(mixer.BusLevelDecibels(0, 0), AudioBusMixer::kLevelFloorDecibels);
    EXPECT_EQ(mixer.BusLevelDecibels(1, 1), AudioBusMixer::kLevelFloorDecibels);

    // With nothing playing at all the output is zeros, not stale data.
    ASSERT_TRUE(mixer.SetBusCallback(2, nullptr).Succeeded());
    mixer.Render(out.left.data(), out.right.data(), kBlock);
    for (uint32_t i = 0; i < kBlock; ++i)
        ASSERT_EQ(out.left[i], 0.0f);
    EXPECT_EQ(mixer.OutputLevelDecibels(0), AudioBusMixer::kLevelFloorDecibels);
    EXPECT_EQ(mixer.OutputLevelDecibels(1), AudioBusMixer::kLevelFloorDecibels);
}

TEST(AudioBusMixer, LevelsAreAveragePowerInDecibels)
{
    AudioBusMixer mixer;
    ASSERT_TRUE(mixer.SetBusCount(3).Succeeded());
    ASSERT_TRUE(mixer.SetBusCallback(0, Sine(1.0f, 1000.0)).Succeeded());
    ASSERT_TRUE(mixer.SetBusCallback(1, Sine(0.1f, 1000.0)).Succeeded());  // -20 dBFS peak
    ASSERT_TRUE(mixer.SetBusCallback(2, Constant(0.0f, 0.5f)).Succeeded());
    ASSERT_TRUE(mixer.SetBusGain(0, 0.0f).Succeeded());  // pre-fader: still metered

    Output out;
    mixer.Render(out.left.data(), out.right.data(), kBlock);
    EXPECT_NEAR(mixer.BusLevelDecibels(0, 0), -3.0103, 0.01);
    EXPECT_NEAR(mixer.BusLevelDecibels(0, 1), -3.0103, 0.01);
    EXPECT_NEAR(mixer.BusLevelDecibels(1, 0), -23.0103, 0.01);
    EXPECT_EQ(mixer.BusLevelDecibels(2, 0), AudioBusMixer::kLevelFloorDecibels);
    EXPECT_NEAR(mixer.BusLevelDecibels(2, 1), -6.0206, 0.001);
    // Output: bus 1 alone on the left, bus 1 plus 0.5 DC on the right.
    EXPECT_NEAR(mixer.OutputLevelDecibels(0), -23.0103, 0.01);
    EXPECT_NEAR(mixer.OutputLevelDecibels(1), 10.0 * std::log10(0.25 + 0.005), 0.01);

    // Out of range reads give the floor, never NaN.
    EXPECT_EQ(mixer.BusLevelDecibels(0, 2), AudioBusMixer::kLevelFloorDecibels);
    EXPECT_EQ(mixer.BusLevelDecibels(255, 0), AudioBusMixer::kLevelFloorDecibels);
    EXPECT_EQ(mixer.OutputLevelDecibels(2), AudioBusMixer::kLevelFloorDecibels);
}

TEST(AudioBusMixer, NonFiniteInputReadsTheFloorInsteadOfNaN)
{
    AudioBusMixer mixer;
    ASSERT_TRUE(mixer.SetBusCount(1).Succeeded());
    ASSERT_TRUE(mixer
                    .SetBusCallback(0, Constant(std::numeric_limits<float>::quiet_NaN(),
                                                std::numeric_limits<float>::infinity()))
                    .Succeeded());
    Output out;
    mixer.Render(out.left.data(), out.right.data(), kBlock);
    EXPECT_EQ(mixer.BusLevelDecibels(0, 0), AudioBusMixer::kLevelFloorDecibels);
    EXPECT_EQ(mixer.BusLevelDecibels(0, 1), AudioBusMixer::kLevelFloorDecibels);
}

TEST(AudioBusMixer, GainsAreLimitedToTheUnitRange)
{
    AudioBusMixer mixer;
    const std::pair<float, float> gains[] = {
        {1.5f, 1.0f}, {-0.5f, 0.0f}, {std::numeric_limits<float>::quiet_NaN(), 0.0f}, {0.25f, 0.25f}};
    for (const auto& [asked, kept] : gains)
    {
        ASSERT_TRUE(mixer.SetBusGain(254, asked).Succeeded());
        EXPECT_EQ(mixer.BusGain(254), kept) << asked;
        mixer.SetOutputGain(asked);
        EXPECT_EQ(mixer.OutputGain(), kept) << asked;
    }
    EXPECT_EQ(mixer.BusGain(3), 1.0f);  // untouched buses start at unity
}

TEST(AudioBusMixer, RefusesBusesBeyondTheLimit)
{
    AudioBusMixer mixer;
    ASSERT_TRUE(mixer.SetBusCount(AudioBusMixer::kMaxBusCount).Succeeded());
    EXPECT_EQ(mixer.SetBusCount(256), kDRAVResultErrInvalidParameter);
    EXPECT_EQ(mixer.BusCount(), 255u);

    EXPECT_TRUE(mixer.SetBusCallback(254, Constant(0.001f, 0.001f)).Succeeded());
    EXPECT_EQ(mixer.SetBusCallback(255, Constant(1.0f, 1.0f)), kDRAVResultErrIndexOutOfRange);
    EXPECT_EQ(mixer.SetBusGain(255, 0.5f), kDRAVResultErrIndexOutOfRange);
    EXPECT_EQ(mixer.BusGain(255), 0.0f);

    // All 255 buses render; only the last one has a callback.
    Output out;
    mixer.Render(out.left.data(), out.right.data(), kBlock);
    EXPECT_EQ(out.left[0], 0.001f);

    // Shrinking drops the callbacks of the buses that went away.
    ASSERT_TRUE(mixer.SetBusCount(10).Succeeded());
    EXPECT_EQ(mixer.SetBusCallback(10, nullptr), kDRAVResultErrIndexOutOfRange);
    ASSERT_TRUE(mixer.SetBusCount(255).Succeeded());
    mixer.Render(out.left.data(), out.right.data(), kBlock);
    EXPECT_EQ(out.left[0], 0.0f);
}

TEST(AudioBusMixer, RenderIgnoresNullOutputs)
{
    AudioBusMixer mixer;
    ASSERT_TRUE(mixer.SetBusCount(1).Succeeded());
    bool called = false;
    ASSERT_TRUE(
        mixer.SetBusCallback(0, [&called](float*, float*, uint32_t) { return called = true; }).Succeeded());
    std::vector<float> left(kBlock);
    mixer.Render(left.data(), nullptr, kBlock);
    mixer.Render(nullptr, left.data(), kBlock);
    EXPECT_FALSE(called);
}

}  // namespace
}  // namespace tidemix::engine
