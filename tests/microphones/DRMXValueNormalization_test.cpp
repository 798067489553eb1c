#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <list>

#include "microphones/DRMXMicrophoneScaling.h"
#include "microphones/DRMXValueNormalization.h"
#include "portable-core/BreakIntoDebugger.h"

namespace
{
const std::list<double>& Points()
{
    return DRMXMicrophoneScaling::OutputVolumeSamples();
}

TEST(DRMXValueNormalization, CheckSampleListComparesTruncatedIntegers)
{
    struct Case
    {
        std::list<double> samples;
        bool good;
    };
    const Case cases[] = {
        {{}, false},        {{5.0}, false},      {{0.2, 0.4}, false},  // both truncate to 0
        {{0.0, 1.0}, true}, {{3.0, 2.0}, false}, {{1.0, 2.0, 2.9}, false}, {{-2.5, -1.5}, true},  // -2 and -1
        {Points(), true},
    };
    for (const Case& c : cases)
    {
        EXPECT_EQ(DRMXBucketNormalizationService::CheckSampleList(c.samples), c.good) << c.samples.size();
    }
}

TEST(DRMXValueNormalization, BadBucketListIsTheLineFromZeroToOne)
{
    for (const std::list<double>& bad : {std::list<double>{7.0}, std::list<double>{4.0, 1.0}})
    {
        const uint64_t breaks = BreakIntoDebugger_GetCallCount();
        DRMXBucketNormalizationService line(bad);
        EXPECT_GT(BreakIntoDebugger_GetCallCount(), breaks);
        EXPECT_DOUBLE_EQ(line.GetNormalized(0.25), 0.25);
        EXPECT_DOUBLE_EQ(line.GetDeNormalized(0.75), 0.75);
        EXPECT_DOUBLE_EQ(line.GetNormalized(3.0), 1.0);
    }
}

TEST(DRMXValueNormalization, BucketPointsOfTheOutputVolume)
{
    const DRMXBucketNormalizationService buckets(Points());
    struct Case
    {
        double raw;
        double normalized;
    };
    const Case cases[] = {
        {-40000.0, 0.0},     {-32768.0, 0.0}, {-13824.0, 1.0 / 13}, {-3008.0, 0.5},
        {-384.0, 12.0 / 13}, {0.0, 1.0},      {500.0, 1.0},
    };
    for (const Case& c : cases)
    {
        EXPECT_NEAR(buckets.GetNormalized(c.raw), c.normalized, 1e-12) << c.raw;
    }
    EXPECT_DOUBLE_EQ(buckets.GetNormalized(std::nan("")), 0.0);
    // Every sample point survives the way there and back exactly.
    for (double point : Points())
    {
        EXPECT_EQ(buckets.GetDeNormalized(buckets.GetNormalized(point)), point) << point;
    }
    EXPECT_EQ(buckets.GetDeNormalized(-0.5), -32768.0);
    EXPECT_EQ(buckets.GetDeNormalized(1.5), 0.0);
    EXPECT_NEAR(buckets.GetDeNormalized(0.5), -3008.0, 1e-9);
    // Just below and just above a point's place: on the point.
    EXPECT_EQ(buckets.GetDeNormalized(7.0 / 13 - 0.00005), -2688.0);
    EXPECT_EQ(buckets.GetDeNormalized(7.0 / 13 + 0.00005), -2688.0);
    EXPECT_GT(buckets.GetDeNormalized(7.0 / 13 + 0.0002), -2688.0);
}

TEST(DRMXValueNormalization, LogarithmicScales)
{
    const uint64_t breaks = BreakIntoDebugger_GetCallCount();
    const DRMXLogarithmicNormalizationService fallback(0.0, 5.0, 3, 0, 0);
    EXPECT_GT(BreakIntoDebugger_GetCallCount(), breaks);
    EXPECT_DOUBLE_EQ(fallback.GetNormalized(1.0), 0.0);
    EXPECT_DOUBLE_EQ(fallback.GetNormalized(10.0), 1.0);
    EXPECT_DOUBLE_EQ(fallback.GetNormalized(-3.0), 0.0);
    EXPECT_DOUBLE_EQ(fallback.GetNormalized(1000.0), 1.0);
    EXPECT_NEAR(fallback.GetDeNormalized(0.5), std::sqrt(10.0), 1e-12);
    EXPECT_NEAR(fallback.GetDeNormalized(2.0), 10.0, 1e-12);

    const DRMXLogarithmicNormalizationService below(1.0, 100.0, 3, 1, 0);
    EXPECT_NEAR(below.LowerLog(), std::log(0.1), 1e-12);
    EXPECT_NEAR(below.GetNormalized(1.0), 1.0 / 3, 1e-12);
    EXPECT_NEAR(below.GetDeNormalized(1.0 / 3), 1.0, 1e-12);

    // Steps below 2 count as 2, negative steps beyond the ends as 0.
    const DRMXLogarithmicNormalizationService odd(1.0, 100.0, 0, -4, 1);
    EXPECT_NEAR(odd.LowerLog(), 0.0, 1e-12);
    EXPECT_NEAR(odd.UpperLog(), 2 * std::log(100.0), 1e-12);
}

TEST(DRMXValueNormalization, CutToNormalizedValue)
{
    EXPECT_EQ(cutToNormalizedValue(-0.1), 0.0);
    EXPECT_EQ(cutToNormalizedValue(0.3), 0.3);
    EXPECT_EQ(cutToNormalizedValue(1.7), 1.0);
    EXPECT_EQ(cutToNormalizedValue(std::numeric_limits<double>::quiet_NaN()), 0.0);
}
}  // namespace
