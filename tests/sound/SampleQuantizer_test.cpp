#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "sound/DplAudioConverters.h"
#include "sound/JTXFFloatShortQuantizer.h"

namespace
{
// Written from the rule: clamp at ±1 to the ends, else truncate s × 32767.
int16_t Expected(float s)
{
    if (std::isnan(s))
    {
        return 0;
    }
    if (s <= -1.0f)
    {
        return -32768;
    }
    if (s > 1.0f)
    {
        return 32767;
    }
    return static_cast<int16_t>(std::trunc(static_cast<long double>(s) * 32767.0L));
}

int16_t Quantize(float s)
{
    JTXFFloatShortQuantizer quantizer(1, false);
    int16_t out = 0x5555;
    EXPECT_EQ(quantizer.FunnelBuffer(&out, &s, 1), 1);
    return out;
}
}  // namespace

TEST(FloatShortQuantizer, HandWorkedValues)
{
    // Checks the rule the differential test below uses, by values worked out by hand.
    const std::pair<float, int16_t> cases[] = {{1.5f, 32767},
                                               {-1.5f, -32768},
                                               {-1.0f, -32768},
                                               {std::nextafter(-1.0f, 0.0f), -32766},
                                               {0.5f, 16383},
                                               {-0.5f, -16383},
                                               {-std::numeric_limits<float>::quiet_NaN(), 0}};
    for (const auto& [in, out] : cases)
    {
        EXPECT_EQ(Quantize(in), out) << in;
        EXPECT_EQ(Expected(in), out) << in;
    }
}

TEST(FloatShortQuantizer, SampleCountMustBeWholeFrames)
{
    JTXFFloatShortQuantizer stereo(2, false);
    float in[4] = {0.1f, 0.2f, 0.3f, 0.4f};
    int16_t out[4] = {};
    try
    {
        stereo.FunnelBuffer(out, in, 3);
        FAIL() << "no throw";
    }
    catch (int error)
    {
        EXPECT_EQ(error, -50);
    }
    EXPECT_EQ(out[0], 0);  // nothing written before the throw
    EXPECT_EQ(stereo.FunnelBuffer(out, in, 4), 2);
    EXPECT_EQ(stereo.FunnelBuffer(out, in, 0), 0);
    EXPECT_THROW(stereo.FunnelBuffer(out, in, -2), int);
    EXPECT_THROW(stereo.FunnelBuffer(nullptr, in, 2), int);
    // A quantizer without channels can take no samples at all.
    JTXFFloatShortQuantizer none(0, false);
    EXPECT_THROW(none.FunnelBuffer(out, in, 0), int);
    JTXFFloatShortQuantizer negative(-2, false);
    EXPECT_THROW(negative.FunnelBuffer(out, in, 2), int);
}

TEST(FloatShortQuantizer, FourAtATimeEqualsThePlainLoop)
{
    // Specials, the region around the clamps and every rounding corner, then
    // random values and random bit patterns; lengths that leave every tail.
    using L = std::numeric_limits<float>;
    std::vector<float> input = {0.0f,           -0.0f,          1.0f,     -1.0f,       L::infinity(),
                                -L::infinity(), L::quiet_NaN(), L::max(), L::lowest(), L::denorm_min()};
    for (float end : {1.0f, -1.0f})
    {
        input.push_back(std::nextafter(end, 0.0f));
        input.push_back(std::nextafter(end, 2.0f * end));
    }
    for (int k = -32768; k <= 32767; k += 7)
    {
        const float exact = static_cast<float>(k) / 32767.0f;
        input.push_back(exact);
        input.push_back(std::nextafter(exact, 2.0f));
        input.push_back(std::nextafter(exact, -2.0f));
    }
    std::mt19937 rng(1234);
    std::uniform_real_distribution<float> unit(-1.2f, 1.2f);
    for (int i = 0; i < 20000; ++i)
    {
        input.push_back(unit(rng));
        const uint32_t bits = rng();
        float f;
        std::memcpy(&f, &bits, 4);
        input.push_back(f);
    }
    for (bool swap : {false, true})
    {
        for (int tail = 0; tail < 4; ++tail)
        {
            const int count = static_cast<int>(input.size()) - tail;
            std::vector<int16_t> plain(static_cast<size_t>(count)), fours(static_cast<size_t>(count)),
                viaFunnel(static_cast<size_t>(count));
            JTXFFloatShortQuantizer::QuantizeScalar(plain.data(), input.data(), count, swap);
            JTXFFloatShortQuantizer::QuantizeFourAtATime(fours.data(), input.data(), count, swap);
            JTXFFloatShortQuantizer quantizer(1, swap);
            quantizer.FunnelBuffer(viaFunnel.data(), input.data(), count);
            ASSERT_EQ(std::memcmp(plain.data(), fours.data(), plain.size() * 2), 0) << "tail " << tail;
            ASSERT_EQ(std::memcmp(plain.data(), viaFunnel.data(), plain.size() * 2), 0) << "tail " << tail;
            for (int i = 0; i < count; ++i)
            {
                const int16_t value = swap ? static_cast<int16_t>(__builtin_bswap16(
                                                 static_cast<uint16_t>(plain[static_cast<size_t>(i)])))
                                           : plain[static_cast<size_t>(i)];
                ASSERT_EQ(value, Expected(input[static_cast<size_t>(i)]))
                    << "value " << input[static_cast<size_t>(i)];
            }
        }
    }
}

TEST(FloatShortQuantizer, FactoryGivesItForFloatToSixteenBitAndIgnoresTheFilter)
{
    class Doubler final : public CSampleFunnel::Filter
    {
    public:
        double Apply(double x) override { return 2.0 * x; }
    };
    std::unique_ptr<CSampleFunnel> native = DplAudio_CreateSampleTypeConverter(6, 2, 2, new Doubler());
    std::unique_ptr<CSampleFunnel> swapped = DplAudio_CreateSampleTypeConverter(6, 14, 2, new Doubler());
    auto* q = dynamic_cast<JTXFFloatShortQuantizer*>(native.get());
    auto* qs = dynamic_cast<JTXFFloatShortQuantizer*>(swapped.get());
    ASSERT_NE(q, nullptr);
    ASSERT_NE(qs, nullptr);
    EXPECT_FALSE(q->GetSwap());
    EXPECT_TRUE(qs->GetSwap());
    const float in[2] = {0.25f, -0.25f};
    int16_t out[2];
    EXPECT_EQ(native->FunnelBuffer(out, in, 2), 1);
    EXPECT_EQ(out[0], 8191);  // 8191.75 truncated, not doubled
    EXPECT_EQ(out[1], -8191);
}

TEST(FloatShortQuantizer, UnalignedBuffers)
{
    std::vector<uint8_t> source(4 * 9 + 1), dest(2 * 9 + 1);
    const float values[9] = {0.1f, -0.2f, 0.3f, -0.4f, 0.5f, -0.6f, 0.7f, -0.8f, 2.0f};
    std::memcpy(source.data() + 1, values, sizeof(values));
    JTXFFloatShortQuantizer quantizer(1, false);
    EXPECT_EQ(quantizer.FunnelBuffer(dest.data() + 1, source.data() + 1, 9), 9);
    for (int i = 0; i < 9; ++i)
    {
        int16_t v;
        std::memcpy(&v, dest.data() + 1 + 2 * i, 2);
        EXPECT_EQ(v, Expected(values[i]));
    }
}
