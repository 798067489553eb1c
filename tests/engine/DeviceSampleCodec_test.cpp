#include "engine/devices/DeviceSampleCodec.h"

#include <gtest/gtest.h>

#include <cmath>
#include <iterator>
#include <limits>
#include <utility>
#include <vector>

namespace tidemix::engine
{
namespace
{

// 4-sample groups and the tail behind them must agree, and every input,
// including NaN and infinities, lands on a defined 16-bit value.
TEST(DeviceSampleCodec, FloatToInt16ClampsRoundsAndMapsNaNToZero)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const std::pair<float, int16_t> cases[] = {
        {nan, 0},      {inf, 32767},         {-inf, -32768},        {1.0f, 32767},   {-1.0f, -32767},
        {1.5f, 32767}, {-1.5f, -32768},      {0.5f, 16384},         {-0.5f, -16384}, {0.0f, 0},
        {1e-9f, 0},    {3.0f / 32767.0f, 3}, {-2.5f / 32767.0f, -2}};
    // Shifted through every position so each value goes through both paths.
    for (size_t shift = 0; shift < 4; ++shift)
    {
        std::vector<float> in(shift, 0.0f);
        for (const auto& c : cases)
            in.push_back(c.first);
        std::vector<int16_t> out(in.size(), 123);
        DeviceSampleCodec::FloatToInt16(in.data(), out.data(), static_cast<uint32_t>(in.size()));
        for (size_t i = 0; i < std::size(cases); ++i)
            EXPECT_EQ(out[shift + i], cases[i].second) << shift << ", " << i;
        for (size_t i = 0; i < shift; ++i)
            EXPECT_EQ(out[i], 0);
    }
}

TEST(DeviceSampleCodec, Int16RoundTripIsExact)
{
    std::vector<int16_t> in;
    for (int v = -32767; v <= 32767; v += 13)
        in.push_back(static_cast<int16_t>(v));
    std::vector<float> floats(in.size());
    DeviceSampleCodec::Int16ToFloat(in.data(), floats.data(), static_cast<uint32_t>(in.size()));
    EXPECT_EQ(floats.front(), -32767.0f / 32768.0f);
    // Back out with the 32767 scale: within one step, and equal for small values.
    std::vector<int16_t> back(in.size());
    DeviceSampleCodec::FloatToInt16(floats.data(), back.data(), static_cast<uint32_t>(floats.size()));
    for (size_t i = 0; i < in.size(); ++i)
        ASSERT_LE(std::abs(back[i] - in[i]), 1) << in[i];
}

}  // namespace
}  // namespace tidemix::engine
