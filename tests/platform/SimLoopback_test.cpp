#include "platform/sim/SimLoopback.h"

#include <gtest/gtest.h>

#include <vector>

namespace tidemix::platform::sim
{
namespace
{
std::vector<std::vector<float>> ReadPlanar(SimLoopback& loopback, uint32_t channels, uint32_t frames)
{
    std::vector<std::vector<float>> out(channels, std::vector<float>(frames, -9.0f));
    std::vector<float*> pointers;
    for (auto& channel : out)
    {
        pointers.push_back(channel.data());
    }
    loopback.Read(pointers.data(), channels, frames);
    return out;
}
}  // namespace

TEST(SimLoopback, ReadsWhatWasWrittenThenSilence)
{
    SimLoopback loopback(2, 100);
    const std::vector<float> frames = {1, -1, 2, -2, 3, -3};
    loopback.Write(frames.data(), 3);
    const auto out = ReadPlanar(loopback, 3, 5);
    EXPECT_EQ(out[0], (std::vector<float>{1, 2, 3, 0, 0}));
    EXPECT_EQ(out[1], (std::vector<float>{-1, -2, -3, 0, 0}));
    EXPECT_EQ(out[2], out[1]);  // a channel past the loopback's repeats its last
    EXPECT_EQ(ReadPlanar(loopback, 1, 2)[0], (std::vector<float>{0, 0}));
}

TEST(SimLoopback, WrapsAroundAndDropsWhatDoesntFit)
{
    SimLoopback loopback(1, 8);
    std::vector<float> ramp(6);
    for (int round = 0; round < 5; ++round)
    {
        for (int i = 0; i < 6; ++i)
        {
            ramp[i] = static_cast<float>(round * 6 + i);
        }
        loopback.Write(ramp.data(), 6);
        EXPECT_EQ(ReadPlanar(loopback, 1, 6)[0], ramp);
    }
    EXPECT_EQ(loopback.DroppedFrames(), 0u);
    std::vector<float> many(12, 1.0f);
    loopback.Write(many.data(), 12);
    EXPECT_EQ(loopback.DroppedFrames(), 4u);
}

TEST(SimLoopback, ALateReaderSkipsToKeepTheDelayShort)
{
    SimLoopback loopback(1, 400);
    std::vector<float> ramp(400);
    for (int i = 0; i < 400; ++i)
    {
        ramp[i] = static_cast<float>(i);
    }
    loopback.Write(ramp.data(), 400);
    // A quarter of the room (100) plus the packet (10) is kept: reading
    // starts 110 frames before the newest.
    const auto out = ReadPlanar(loopback, 1, 10);
    EXPECT_EQ(out[0].front(), 290.0f);
    EXPECT_EQ(out[0].back(), 299.0f);
}

}  // namespace tidemix::platform::sim
