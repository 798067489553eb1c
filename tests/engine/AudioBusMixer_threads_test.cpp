#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <thread>
#include <vector>

#include "engine/devices/AudioBusMixer.h"

namespace tidemix::engine
{
namespace
{

// An audio thread renders while a control thread moves the gains and a meter
// thread reads the levels: each block sees one gain throughout, and every
// level read is one the signal can produce.
TEST(AudioBusMixerThreads, GainsAndLevelsCrossThreadsWhileRendering)
{
    constexpr uint32_t kBlock = 960;
    AudioBusMixer mixer(kBlock);
    ASSERT_TRUE(mixer.SetBusCount(2).Succeeded());
    ASSERT_TRUE(mixer
                    .SetBusCallback(0,
                                    [](float* l, float* r, uint32_t n)
                                    {
                                        for (uint32_t i = 0; i < n; ++i)
                                            l[i] = r[i] = 0.5f;
                                        return true;
                                    })
                    .Succeeded());
    ASSERT_TRUE(mixer.SetBusGain(0, 1.0f).Succeeded());

    std::atomic<bool> done{false};
    std::atomic<int> badBlocks{0};
    std::atomic<int> badLevels{0};
    std::atomic<int> rendered{0};

    std::thread audio(
        [&]
        {
            std::vector<float> left(kBlock), right(kBlock);
            for (int block = 0; block < 3000; ++block)
            {
                mixer.Render(left.data(), right.data(), kBlock);
                const float first = left[0];
                bool consistent = first == 0.5f || first == 0.125f || first == 0.0625f || first == 0.25f;
                for (uint32_t i = 0; i < kBlock && consistent; ++i)
                    consistent = left[i] == first && right[i] == first;
                if (!consistent)
                    badBlocks.fetch_add(1);
                rendered.fetch_add(1);
            }
            done.store(true);
        });
    std::thread control(
        [&]
        {
            for (int i = 0; !done.load(); ++i)
            {
                (void)mixer.SetBusGain(0, (i & 1) != 0 ? 0.25f : 1.0f);
                mixer.SetOutputGain((i & 2) != 0 ? 0.5f : 1.0f);
                std::this_thread::yield();
            }
        });
    std::thread meter(
        [&]
        {
            const float expected[] = {AudioBusMixer::kLevelFloorDecibels, 20.0f * std::log10(0.5f),
                                      20.0f * std::log10(0.125f), 20.0f * std::log10(0.0625f),
                                      20.0f * std::log10(0.25f)};
            while (!done.load())
            {
                // The pre-fader level doesn't depend on the gains.
                const float bus = mixer.BusLevelDecibels(0, 0);
                if (bus != AudioBusMixer::kLevelFloorDecibels && std::fabs(bus - expected[1]) > 0.01f)
                    badLevels.fetch_add(1);
                const float out = mixer.OutputLevelDecibels(1);
                bool known = false;
                for (float e : expected)
                    known = known || std::fabs(out - e) < 0.01f;
                if (!known)
                    badLevels.fetch_add(1);
                std::this_thread::yield();
            }
        });
    audio.join();
    control.join();
    meter.join();

    EXPECT_EQ(rendered.load(), 3000);
    EXPECT_EQ(badBlocks.load(), 0);
    EXPECT_EQ(badLevels.load(), 0);
}

}  // namespace
}  // namespace tidemix::engine
