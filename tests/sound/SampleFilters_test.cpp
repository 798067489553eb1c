#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "sound/CInterleavedFilter.h"
#include "sound/CLinearFadeFilter.h"
#include "sound/DplAudioConverters.h"

namespace
{
class Recorder final : public CSampleFunnel::Filter
{
public:
    explicit Recorder(double factor = 1.0) : factor_(factor) {}
    double Apply(double x) override
    {
        seen.push_back(x);
        return x * factor_;
    }
    std::vector<double> seen;

private:
    double factor_;
};
}  // namespace

TEST(LinearFadeFilter, GainsRiseByTheStepAndStayAtOne)
{
    CCountedPtr<CLinearFadeFilter> fade(new CLinearFadeFilter(0.1, 0.0));
    std::vector<double> applied;
    for (int i = 0; i < 15; ++i)
    {
        applied.push_back(fade->Apply(1.0));
    }
    double expectedGain = 0.0;
    for (int i = 0; i < 15; ++i)
    {
        EXPECT_DOUBLE_EQ(applied[static_cast<size_t>(i)], std::min(expectedGain, 1.0)) << i;
        expectedGain += 0.1;
    }
    EXPECT_EQ(applied.back(), 1.0);  // exactly, not a sum of steps
    // The gain scales the sample; the limit is on the gain, not the product.
    CLinearFadeFilter loud(0.0, 3.0);
    EXPECT_EQ(loud.Apply(2.0), 2.0);
    CLinearFadeFilter down(-0.5, -0.5);
    EXPECT_EQ(down.Apply(0.5), -0.25);
    EXPECT_EQ(down.Apply(0.5), -0.5);
    EXPECT_EQ(down.Apply(0.5), -0.5);
}

TEST(InterleavedFilter, IndexOutOfRangeIsIgnored)
{
    // The routing of samples to channels and the reset to channel 0 are the
    // audio processor's tests, which meter through this filter.
    CCountedPtr<Recorder> left(new Recorder(2.0)), right(new Recorder(-1.0));
    CInterleavedFilter interleaved(
        {CCountedPtr<CSampleFunnel::Filter>(left), CCountedPtr<CSampleFunnel::Filter>(right)});
    interleaved.SetIndex(1);
    EXPECT_EQ(interleaved.Apply(9), -9.0);
    EXPECT_EQ(interleaved.GetIndex(), 0);
    interleaved.SetIndex(5);  // ignored
    EXPECT_EQ(interleaved.Apply(3), 6.0);
    EXPECT_EQ(right->seen, (std::vector<double>{9}));
}

TEST(InterleavedFilter, EmptyListAndNullEntriesPassThrough)
{
    CInterleavedFilter empty({});
    EXPECT_EQ(empty.Apply(0.25), 0.25);
    CCountedPtr<Recorder> second(new Recorder(0.5));
    CInterleavedFilter gap({nullptr, CCountedPtr<CSampleFunnel::Filter>(second)});
    EXPECT_EQ(gap.Apply(0.5), 0.5);
    EXPECT_EQ(gap.Apply(0.5), 0.25);
}

TEST(SampleFilter, OfferedForFiveTypesOnly)
{
    CCountedPtr<Recorder> filter(new Recorder());
    for (int type = -1; type <= 28; ++type)
    {
        const bool offered = type == 1 || type == 2 || type == 5 || type == 6 || type == 7;
        std::unique_ptr<CSampleFilterFunnel> funnel = DplAudio_CreateAudioProcessingFilter(type, filter);
        EXPECT_EQ(funnel != nullptr, offered) << type;
        if (funnel)
        {
            EXPECT_EQ(funnel->GetSourceType(), type);
            EXPECT_EQ(funnel->GetDestinationType(), type);
        }
    }
}

TEST(SampleFilter, WithoutFilterNothingHappens)
{
    std::unique_ptr<CSampleFilterFunnel> funnel = DplAudio_CreateAudioProcessingFilter(2, nullptr);
    int16_t in[2] = {100, -100};
    int16_t out[2] = {7, 7};
    EXPECT_EQ(funnel->FunnelBuffer(out, in, 2), 0);
    EXPECT_EQ(out[0], 7);
    EXPECT_EQ(funnel->ObserveBuffer(in, 2), 0);
}

TEST(SampleFilter, FloatAndDoubleApplyTheFilterDirectly)
{
    CCountedPtr<Recorder> halve(new Recorder(0.5));
    std::unique_ptr<CSampleFilterFunnel> floats = DplAudio_CreateAudioProcessingFilter(6, halve);
    float samples[3] = {1.0f, -0.5f, 3.0f};
    EXPECT_EQ(floats->FunnelBuffer(samples, samples, 3), 3);
    EXPECT_EQ(std::vector<float>(samples, samples + 3), (std::vector<float>{0.5f, -0.25f, 1.5f}));
    EXPECT_EQ(halve->seen, (std::vector<double>{1.0, -0.5, 3.0}));

    std::unique_ptr<CSampleFilterFunnel> doubles = DplAudio_CreateAudioProcessingFilter(7, halve);
    double d[2] = {0.1, 1e300};
    doubles->FunnelBuffer(d, d, 2);
    EXPECT_EQ(d[0], 0.05);
    EXPECT_EQ(d[1], 5e299);
}

TEST(SampleFilter, IntegersGoThroughTheNormalisedScale)
{
    CCountedPtr<Recorder> identity(new Recorder(1.0));
    std::unique_ptr<CSampleFilterFunnel> shorts = DplAudio_CreateAudioProcessingFilter(2, identity);
    int16_t samples[4] = {32767, -32768, 0, 1};
    shorts->FunnelBuffer(samples, samples, 4);
    ASSERT_EQ(identity->seen.size(), 4u);
    EXPECT_EQ(identity->seen[0], 1.0);
    EXPECT_EQ(identity->seen[1], -1.0);
    EXPECT_EQ(identity->seen[2], 1.0 / 65535.0);
    // Scaling back truncates: the ends and zero survive.
    EXPECT_EQ(std::vector<int16_t>(samples, samples + 3), (std::vector<int16_t>{32767, -32768, 0}));

    // Observing reads the same values and writes nothing.
    CCountedPtr<Recorder> watcher(new Recorder(0.0));
    std::unique_ptr<CSampleFilterFunnel> observer = DplAudio_CreateAudioProcessingFilter(1, watcher);
    const int8_t bytes[3] = {127, -128, 0};
    EXPECT_EQ(observer->ObserveBuffer(bytes, 3), 3);
    EXPECT_EQ(watcher->seen, (std::vector<double>{1.0, -1.0, 1.0 / 255.0}));

    // 32-bit with a gain of one half: 2^30 → x ≈ 0.5 → (x - c) × 2147483647.5 / 2.
    CCountedPtr<Recorder> half(new Recorder(0.5));
    std::unique_ptr<CSampleFilterFunnel> ints = DplAudio_CreateAudioProcessingFilter(5, half);
    int32_t value = 1 << 30;
    ints->FunnelBuffer(&value, &value, 1);
    const double x = (static_cast<double>(1 << 30) * (2.0 / 4294967295.0) + 1.0 / 4294967295.0) * 0.5;
    EXPECT_EQ(value, static_cast<int32_t>((x - 1.0 / 4294967295.0) * 2147483647.5));
}
