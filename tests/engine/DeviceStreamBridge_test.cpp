#include "engine/devices/DeviceStreamBridge.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace
{
using tidemix::engine::AudioFormatConverter;
using tidemix::engine::DeviceStreamBridge;

constexpr size_t kCapacityFrames = 100;

// Planar stereo float on both sides: the converter passes samples unchanged,
// so what Render gives is exactly what the buffers held.
class Bridge
{
public:
    explicit Bridge(DeviceStreamBridge::ReadPolicy policy) : bridge_(policy, 960)
    {
        const auto format = AudioFormatConverter::MixFormat();
        CDplScopedLock guard(bridge_.DataLock());
        EXPECT_TRUE(
            bridge_.Open(format, kCapacityFrames, bridge_.CreateConverter(format, format, 1000, nullptr)));
    }

    // A ramp from `first`; the right channel is the left one plus 1000.
    bool Write(uint32_t frames, float first)
    {
        std::vector<float> left(frames);
        std::vector<float> right(frames);
        for (uint32_t i = 0; i < frames; ++i)
        {
            left[i] = first + static_cast<float>(i);
            right[i] = left[i] + 1000.0f;
        }
        const void* sources[2] = {left.data(), right.data()};
        CDplScopedLock guard(bridge_.DataLock());
        return bridge_.Write(sources, 2, size_t{frames} * sizeof(float));
    }

    std::vector<std::vector<float>> Render(uint32_t frames)
    {
        std::vector<std::vector<float>> channels(2, std::vector<float>(frames, -1.0f));
        void* targets[2] = {channels[0].data(), channels[1].data()};
        CDplScopedLock guard(bridge_.DataLock());
        bridge_.Render(targets, frames);
        return channels;
    }

    DeviceStreamBridge bridge_;
};

// Writes that don't fit, or don't match the buffers, are dropped whole:
// CaptureSource.PacketsThatDontFitAreDroppedWhole sees it through the source.
TEST(DeviceStreamBridge, ReadsStayInStepAcrossTheEndOfTheBuffers)
{
    Bridge bridge(DeviceStreamBridge::ReadPolicy::kWhatWaits);
    ASSERT_TRUE(bridge.Write(80, 0.0f));
    bridge.Render(70);
    // 60 frames don't fit after the 10 left at the end: they start over at
    // the front, and the next read joins the two parts.
    ASSERT_TRUE(bridge.Write(60, 80.0f));
    EXPECT_EQ(bridge.bridge_.QueuedFrames(), 70);
    const auto channels = bridge.Render(70);
    for (uint32_t i = 0; i < 70; ++i)
    {
        ASSERT_EQ(channels[0][i], 70.0f + static_cast<float>(i)) << i;
        ASSERT_EQ(channels[1][i], 1070.0f + static_cast<float>(i)) << i;
    }
    EXPECT_EQ(bridge.bridge_.FramesWritten(), 140);
    EXPECT_EQ(bridge.bridge_.FramesRead(), 140);
}

TEST(DeviceStreamBridge, ReadPoliciesForTooLittleWaiting)
{
    // Capture: what waits comes first, the rest is silence.
    Bridge capture(DeviceStreamBridge::ReadPolicy::kWhatWaits);
    ASSERT_TRUE(capture.Write(30, 1.0f));
    const auto partial = capture.Render(50);
    EXPECT_EQ(partial[0][29], 30.0f);
    EXPECT_EQ(partial[0][30], 0.0f);
    EXPECT_EQ(partial[1][49], 0.0f);
    EXPECT_EQ(capture.bridge_.QueuedFrames(), 0);

    // Playback: nothing is taken, and it all waits for a later request.
    Bridge playback(DeviceStreamBridge::ReadPolicy::kWholeOrNothing);
    ASSERT_TRUE(playback.Write(30, 1.0f));
    const auto silent = playback.Render(50);
    EXPECT_EQ(silent[0], std::vector<float>(50, 0.0f));
    EXPECT_EQ(playback.bridge_.QueuedFrames(), 30);
    EXPECT_EQ(playback.bridge_.FramesRead(), 0);
    EXPECT_EQ(playback.Render(30)[0][29], 30.0f);
}
}  // namespace
