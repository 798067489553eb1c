#include <gtest/gtest.h>

#include <cmath>
#include <deque>
#include <limits>
#include <numbers>
#include <random>
#include <string>

#include "sound/CDplAudioFilter_AutoDucking.h"
#include "sound/CDplAudioFilter_Level.h"
#include "sound/CDplAudioFilter_RmsMeasurement.h"

namespace
{
constexpr double kDefaultDecay = 0.9988493700055032;  // 10^-0.00049999997, a fall of 0.01 dB
}

TEST(LevelFilter, StartsSilentWithTheDefaultFall)
{
    CDplAudioFilter_Level level(48000);
    EXPECT_EQ(level.GetAudioLevelDecibel(), -144.0);
    EXPECT_NEAR(level.GetDecay(), kDefaultDecay, 1e-12);
}

TEST(LevelFilter, RisesAtOnceAndFallsOnceEvery49Samples)
{
    CDplAudioFilter_Level level(48000);
    EXPECT_EQ(level.Apply(1.0), 1.0);
    EXPECT_EQ(level.GetAudioLevel(), 1.0);
    double expected = 1.0;
    int falls = 0;
    for (int i = 1; i <= 1000; ++i)
    {
        level.Apply(0.0);
        // The counter runs 0..48: the 49th sample of each cycle is the fall.
        if (i % 49 == 48)
        {
            expected *= level.GetDecay();
            ++falls;
        }
        ASSERT_EQ(level.GetAudioLevel(), expected) << "sample " << i;
    }
    EXPECT_EQ(falls, 20);
}

TEST(LevelFilter, FullScaleSineReadsFullScale)
{
    CDplAudioFilter_Level level(48000);
    for (int i = 0; i < 48000; ++i)
    {
        level.Apply(std::sin(2.0 * std::numbers::pi * 1000.0 * i / 48000.0));
        if (i > 48)
        {
            // The peak comes back every 48 samples, faster than one fall can
            // take the reading further than one step.
            ASSERT_GE(level.GetAudioLevel(), level.GetDecay() * 0.99999) << i;
            ASSERT_LE(level.GetAudioLevel(), 1.0) << i;
        }
    }
    EXPECT_NEAR(level.GetAudioLevelDecibel(), 0.0, 0.011);
}

TEST(LevelFilter, SilenceAndStep)
{
    CDplAudioFilter_Level level(48000);
    for (int i = 0; i < 4800; ++i)
    {
        level.Apply(0.0);
    }
    EXPECT_EQ(level.GetAudioLevel(), 0.0);
    // A step up is read at once, on whatever sample of the cycle it arrives.
    level.Apply(-0.5);
    EXPECT_EQ(level.GetAudioLevel(), 0.5);
    EXPECT_NEAR(level.GetAudioLevelDecibel(), -6.0206, 1e-4);
    for (int i = 0; i < 4800; ++i)
    {
        level.Apply(-0.5);
    }
    EXPECT_EQ(level.GetAudioLevel(), 0.5);
    // A step down falls by the decay, never straight to the new value.
    level.Apply(0.25);
    EXPECT_GE(level.GetAudioLevel(), 0.5 * level.GetDecay());
}

TEST(LevelFilter, DecayCanBeChanged)
{
    CDplAudioFilter_Level level(48000);
    level.SetDecreaseDbMs(0.048);  // 48 dB per second
    level.Apply(1.0);
    for (int i = 0; i < 48000; ++i)
    {
        level.Apply(0.0);
    }
    EXPECT_NEAR(level.GetAudioLevelDecibel(), -0.048 * 979, 0.01);
    level.SetDecreaseDbMs(0.0);  // no fall at all
    const double frozen = level.GetAudioLevel();
    for (int i = 0; i < 4800; ++i)
    {
        level.Apply(0.0);
    }
    EXPECT_EQ(level.GetAudioLevel(), frozen);
}

TEST(LevelFilter, GainScalesTheSampleAndTheReading)
{
    CDplAudioFilter_Level level(48000);
    level.SetGainNorm(0.5);
    EXPECT_EQ(level.Apply(0.8), 0.4);
    EXPECT_EQ(level.GetAudioLevel(), 0.4);
    level.SetGainNorm(1.5);
    level.SetGainNorm(-0.1);
    level.SetGainNorm(std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(level.GetGainNorm(), 0.5);
    level.SetGainNorm(0.0);
    EXPECT_EQ(level.Apply(0.8), 0.0);
}

TEST(LevelFilter, DecibelScaleAndReset)
{
    EXPECT_EQ(CDplAudioFilter_Level::LevelToDecibel(0.0), -144.0);
    EXPECT_EQ(CDplAudioFilter_Level::LevelToDecibel(1e-8), -144.0);  // -160 is cut
    EXPECT_DOUBLE_EQ(CDplAudioFilter_Level::LevelToDecibel(0.1), -20.0);
    EXPECT_DOUBLE_EQ(CDplAudioFilter_Level::LevelToDecibel(1.0), 0.0);
    EXPECT_GT(CDplAudioFilter_Level::LevelToDecibel(2.0), 6.0);
    EXPECT_EQ(CDplAudioFilter_Level::LevelToDecibel(std::numeric_limits<double>::quiet_NaN()), -144.0);

    CDplAudioFilter_Level level(48000);
    for (int i = 0; i < 30; ++i)
    {
        level.Apply(0.3);
    }
    EXPECT_EQ(level.GetCounter(), 30);
    level.Reset();
    EXPECT_EQ(level.GetCounter(), 0);
    EXPECT_EQ(level.GetAudioLevel(), 0.0);
}

TEST(LevelFilter, LowAndOddRates)
{
    // Below 1000 Hz the reading may fall with every sample.
    CDplAudioFilter_Level level(500);
    EXPECT_EQ(level.GetSamplesPerMillisecond(), 0);
    level.Apply(1.0);  // the first sample is a fall step too: 0 < 1 → level 1
    EXPECT_EQ(level.GetAudioLevel(), 1.0);
    level.Apply(0.0);
    EXPECT_EQ(level.GetAudioLevel(), level.GetDecay());
}

TEST(RmsMeasurement, RunningSumMatchesTheWindow)
{
    // 10 ms at 4800 Hz: 48 samples, more than the ring's first allocation.
    CDplAudioFilter_RmsMeasurement rms(10, CDplAudioFormat{4800, 2});
    ASSERT_EQ(rms.GetWindowSamples(), 48);
    std::deque<double> window{0.0};
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> dist(-1.0, 1.0);
    for (int i = 0; i < 1000; ++i)
    {
        const double x = dist(rng);
        ASSERT_EQ(rms.Apply(x), x);
        if (window.size() >= 48)
        {
            window.pop_front();
        }
        window.push_back(x * x);
        double sum = 0.0;
        for (double s : window)
        {
            sum += s;
        }
        ASSERT_EQ(rms.GetQueueLength(), static_cast<int>(window.size()));
        ASSERT_NEAR(rms.GetMeanSquare(), sum / static_cast<double>(window.size()), 1e-12) << i;
    }
}

TEST(RmsMeasurement, EmptyOrNegativeWindowsKeepTheLastSample)
{
    for (int ms : {0, -5})
    {
        CDplAudioFilter_RmsMeasurement rms(ms, CDplAudioFormat{48000, 1});
        rms.Apply(2.0);
        rms.Apply(3.0);
        EXPECT_EQ(rms.GetQueueLength(), 1);
        EXPECT_EQ(rms.GetMeanSquare(), 9.0);
    }
    // A window too long for an int is cut, not overflowed.
    CDplAudioFilter_RmsMeasurement huge(std::numeric_limits<int>::max(), CDplAudioFormat{192000, 1});
    EXPECT_EQ(huge.GetWindowSamples(), std::numeric_limits<int>::max());
}

TEST(AutoDucking, DefaultsAndSettings)
{
    CDplAudioFilter_AutoDucking ducking(10, CDplAudioFormat{48000, 2});
    EXPECT_DOUBLE_EQ(ducking.GetThreshold(), std::pow(10.0, -3.6));
    EXPECT_EQ(ducking.GetHoldSamples(), 2 * 1050 * 48);
    ducking.ChangeDuckingSettings(-20.0f, 100);
    EXPECT_DOUBLE_EQ(ducking.GetThreshold(), 0.01);
    EXPECT_EQ(ducking.GetHoldSamples(), 2 * 4800);
    EXPECT_EQ(ducking.Apply(0.7), 0.7);
}

TEST(AutoDucking, EngagesHoldsAndReleases)
{
    CDplAudioFilter_AutoDucking ducking(10, CDplAudioFormat{48000, 2});
    ducking.ChangeDuckingSettings(-36.0f, 100);  // hold 9600 samples
    const double threshold = ducking.GetThreshold();
    for (int i = 0; i < 480; ++i)
    {
        ducking.Apply(0.0);
    }
    EXPECT_EQ(ducking.GetDuckingState(), CDplAudioFilter_AutoDucking::DUCKING_OFF);

    // 0.02² × n / 480 first exceeds 10^-3.6 at n = 302.
    const double loud = 0.02;
    const int engageAt = static_cast<int>(std::floor(threshold * 480 / (loud * loud))) + 1;
    ASSERT_EQ(engageAt, 302);
    for (int n = 1; n < engageAt; ++n)
    {
        ducking.Apply(loud);
        ASSERT_EQ(ducking.GetDuckingState(), CDplAudioFilter_AutoDucking::DUCKING_OFF) << n;
    }
    ducking.Apply(loud);
    EXPECT_EQ(ducking.GetDuckingState(), CDplAudioFilter_AutoDucking::DUCKING_ON);
    for (int n = 0; n < 1000; ++n)
    {
        ducking.Apply(loud);
    }
    EXPECT_EQ(ducking.GetDuckingState(), CDplAudioFilter_AutoDucking::DUCKING_ON);

    // Falls to the threshold after 179 quiet samples: (480 - m) × 0.0004 / 480 <= 10^-3.6.
    for (int m = 1; m < 179; ++m)
    {
        ducking.Apply(0.0);
        ASSERT_EQ(ducking.GetDuckingState(), CDplAudioFilter_AutoDucking::DUCKING_ON) << m;
    }
    ducking.Apply(0.0);
    EXPECT_EQ(ducking.GetDuckingState(), CDplAudioFilter_AutoDucking::WAIT_FOR_DUCKING_OFF);
    EXPECT_EQ(ducking.GetHoldCounter(), 0);

    // Held for the hold time, then off.
    for (int k = 0; k < 9600; ++k)
    {
        ducking.Apply(0.0);
        ASSERT_EQ(ducking.GetDuckingState(), CDplAudioFilter_AutoDucking::WAIT_FOR_DUCKING_OFF) << k;
    }
    EXPECT_EQ(ducking.GetHoldCounter(), 9600);
    ducking.Apply(0.0);
    EXPECT_EQ(ducking.GetDuckingState(), CDplAudioFilter_AutoDucking::DUCKING_OFF);
    ducking.Apply(0.0);
    EXPECT_EQ(ducking.GetHoldCounter(), 0);
}

TEST(AutoDucking, ReturnAboveDuringTheHoldGoesBackOn)
{
    CDplAudioFilter_AutoDucking ducking(1, CDplAudioFormat{1000, 1});  // window of one sample
    ducking.ChangeDuckingSettings(-20.0f, 1000);                       // 0.01, hold 1000
    ducking.Apply(0.5);
    EXPECT_EQ(ducking.GetDuckingState(), CDplAudioFilter_AutoDucking::DUCKING_ON);
    ducking.Apply(0.0);
    EXPECT_EQ(ducking.GetDuckingState(), CDplAudioFilter_AutoDucking::WAIT_FOR_DUCKING_OFF);
    for (int i = 0; i < 50; ++i)
    {
        ducking.Apply(0.05);  // 0.0025, below the threshold
    }
    EXPECT_EQ(ducking.GetHoldCounter(), 50);
    ducking.Apply(0.5);
    EXPECT_EQ(ducking.GetDuckingState(), CDplAudioFilter_AutoDucking::DUCKING_ON);
    EXPECT_EQ(ducking.GetHoldCounter(), 50);  // unchanged on the way back
    ducking.Apply(0.0);
    EXPECT_EQ(ducking.GetDuckingState(), CDplAudioFilter_AutoDucking::WAIT_FOR_DUCKING_OFF);
    EXPECT_EQ(ducking.GetHoldCounter(), 0);  // a fresh hold
    // Exactly at the threshold is not above it.
    CDplAudioFilter_AutoDucking exact(1, CDplAudioFormat{1000, 1});
    exact.ChangeDuckingSettings(0.0f, 10);  // threshold 1.0
    exact.Apply(1.0);
    EXPECT_EQ(exact.GetDuckingState(), CDplAudioFilter_AutoDucking::DUCKING_OFF);
    exact.Apply(-1.0000001);
    EXPECT_EQ(exact.GetDuckingState(), CDplAudioFilter_AutoDucking::DUCKING_ON);
}

TEST(AutoDucking, StateNames)
{
    using D = CDplAudioFilter_AutoDucking;
    EXPECT_STREQ(D::DuckingStateToString(D::WAIT_FOR_DUCKING_OFF, false), "WAIT_FOR_DUCKING_OFF");
    EXPECT_STREQ(D::DuckingStateToString(D::WAIT_FOR_DUCKING_OFF, true), "WAIT FOR OFF");
    EXPECT_STREQ(D::DuckingStateToString(5, false), "???");
    EXPECT_STREQ(D::DuckingStateToString(-1, true), "???");
}
