#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <thread>
#include <vector>

#include "sound/CDplAudioProcessor.h"

// An audio thread measures blocks while a control thread reads and changes
// the processor, as the engine's meter and its readers do.
TEST(AudioProcessorThreads, MeasuringAndControlMeetSafely)
{
    CDplAudioProcessor processor(6, 2, 48000);
    std::atomic<bool> stop{false};
    std::atomic<int> blocks{0};

    std::thread audio(
        [&]
        {
            std::vector<float> block(2 * 960);
            while (!stop.load())
            {
                for (size_t i = 0; i < block.size(); ++i)
                {
                    block[i] = (i % 2 == 0) ? 0.5f : -0.25f;
                }
                processor.MeasureAudioLevel(block.data(), static_cast<int>(block.size() * sizeof(float)));
                blocks.fetch_add(1);
            }
        });

    int readings = 0;
    for (int round = 0; round < 2000 || blocks.load() < 50; ++round)
    {
        const double left = processor.GetAudioLevel(0);
        const double all = processor.GetAudioLevel(-1);
        ASSERT_GE(left, 0.0);
        ASSERT_LE(left, 0.5);
        ASSERT_LE(all, 0.5);
        ASSERT_FALSE(std::isnan(processor.GetAudioLevelDecibel(1)));
        switch (round % 5)
        {
            case 0:
                processor.SetGainNorm(0.5, 0);
                break;
            case 1:
                processor.SetGainNorm(1.0, -1);
                break;
            case 2:
                processor.SetDecreaseDbPerSecond(48.0 + round % 3);
                break;
            case 3:
                processor.Reset();
                break;
            default:
                (void)processor.GetGainNorm(0);
                (void)processor.GetGainDB(1);
                double value = 0.0;
                processor.GetDecreaseDbPerSecond(&value);
                break;
        }
        ++readings;
        if (round > 1000000)
        {
            break;
        }
    }
    stop.store(true);
    audio.join();
    EXPECT_GE(blocks.load(), 50);
    EXPECT_GT(readings, 0);
}
