// The vector conversions against the per-sample code they replace, bit for
// bit, at every alignment and with ragged tails.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "sound/DplAudioConverters.h"
#include "sound/JTXFFloatShortQuantizer.h"
#include "sound/SampleFastPaths.h"
#include "sound/TSampleTraits.h"

namespace
{
std::vector<uint8_t> Bytes(const void* data, size_t size, size_t offset)
{
    std::vector<uint8_t> bytes(offset + size);
    std::memcpy(bytes.data() + offset, data, size);
    return bytes;
}

// Every 16-bit value, then a ragged few, at byte offsets 0 to 3.
TEST(SampleFastPaths, Int16ToFloatMatchesTheFamilysPerSampleFormulaForEveryValue)
{
    std::vector<int16_t> values;
    for (int v = -32768; v <= 32767; ++v)
    {
        values.push_back(static_cast<int16_t>(v));
    }
    for (int v : {-32768, 32767, 0, -1, 1, 12345, -12345})
    {
        values.push_back(static_cast<int16_t>(v));
    }
    std::unique_ptr<CSampleFunnel> funnel = DplAudio_CreateSampleTypeConverter(2, 6, 2, nullptr);
    ASSERT_NE(funnel, nullptr);
    for (size_t offset = 0; offset < 4; ++offset)
    {
        for (size_t count : {values.size(), size_t{1}, size_t{7}, size_t{17}, size_t{33}})
        {
            const std::vector<uint8_t> source = Bytes(values.data(), count * 2, offset);
            std::vector<uint8_t> fast(offset + count * 4, 0xAB);
            ASSERT_EQ(
                funnel->FunnelBuffer(fast.data() + offset, source.data() + offset, static_cast<int>(count)),
                static_cast<int>(count));
            for (size_t i = 0; i < count; ++i)
            {
                uint8_t expected[4];
                SampleTraitsFloat::Denormalize(expected,
                                               SampleTraits16::Normalize(source.data() + offset + i * 2));
                ASSERT_EQ(std::memcmp(expected, fast.data() + offset + i * 4, 4), 0)
                    << "value " << values[i] << " offset " << offset << " count " << count;
            }
        }
    }
}

std::vector<float> QuantizerInputs()
{
    std::vector<float> inputs = {0.0f,
                                 -0.0f,
                                 1.0f,
                                 -1.0f,
                                 std::nextafter(1.0f, 2.0f),
                                 std::nextafter(1.0f, 0.0f),
                                 std::nextafter(-1.0f, -2.0f),
                                 std::nextafter(-1.0f, 0.0f),
                                 std::numeric_limits<float>::infinity(),
                                 -std::numeric_limits<float>::infinity(),
                                 std::numeric_limits<float>::quiet_NaN(),
                                 -std::numeric_limits<float>::quiet_NaN(),
                                 std::numeric_limits<float>::signaling_NaN(),
                                 std::numeric_limits<float>::denorm_min(),
                                 -std::numeric_limits<float>::denorm_min(),
                                 std::numeric_limits<float>::min(),
                                 std::numeric_limits<float>::max(),
                                 -std::numeric_limits<float>::max(),
                                 1.0f / 32767.0f,
                                 2.5f,
                                 -7.0f};
    // Where the product crosses each integer rounding decides the result:
    // k/32767 and its float neighbours, for every k.
    for (int k = -32767; k <= 32767; ++k)
    {
        const float at = static_cast<float>(k) / 32767.0f;
        inputs.push_back(at);
        inputs.push_back(std::nextafter(at, 2.0f));
        inputs.push_back(std::nextafter(at, -2.0f));
    }
    std::mt19937 random(7);
    std::uniform_real_distribution<float> nearRange(-1.5f, 1.5f);
    for (int i = 0; i < 20000; ++i)
    {
        inputs.push_back(nearRange(random));
        const uint32_t bits = random();
        float any;
        std::memcpy(&any, &bits, sizeof(any));
        inputs.push_back(any);
    }
    return inputs;
}

TEST(SampleFastPaths, QuantizerMatchesThePlainLoopAtTheEdgesAndBetween)
{
    RecordProperty("wide_vectors", SampleFastPaths::HasWideVectors() ? "yes" : "no");
    const std::vector<float> inputs = QuantizerInputs();
    for (bool swap : {false, true})
    {
        JTXFFloatShortQuantizer quantizer(1, swap);
        for (size_t offset = 0; offset < 4; ++offset)
        {
            for (size_t count : {inputs.size(), size_t{1}, size_t{15}, size_t{16}, size_t{31}})
            {
                const std::vector<uint8_t> source = Bytes(inputs.data(), count * 4, offset);
                std::vector<int16_t> expected(count);
                std::vector<float> aligned(count);
                std::memcpy(aligned.data(), source.data() + offset, count * 4);
                JTXFFloatShortQuantizer::QuantizeScalar(expected.data(), aligned.data(),
                                                        static_cast<int>(count), swap);
                std::vector<uint8_t> fast(offset + count * 2, 0xAB);
                ASSERT_EQ(quantizer.FunnelBuffer(fast.data() + offset, source.data() + offset,
                                                 static_cast<int>(count)),
                          static_cast<int>(count));
                for (size_t i = 0; i < count; ++i)
                {
                    int16_t got;
                    std::memcpy(&got, fast.data() + offset + i * 2, 2);
                    ASSERT_EQ(got, expected[i]) << "input " << aligned[i] << " swap " << swap << " offset "
                                                << offset << " count " << count;
                }
            }
        }
    }
}
}  // namespace
