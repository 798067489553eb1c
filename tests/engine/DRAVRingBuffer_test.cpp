#include "engine/units/DRAVRingBuffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <random>
#include <utility>
#include <vector>

#include "engine/media/DRAVBufferRAM.h"
#include "support/UnitTestSupport.h"

using unittest::MakeFrame;

namespace
{
constexpr int64_t kBytesPerFrame = 8;  // stereo float

// Frames come from MakeFrame: left samples count up from `first`, right ones down, so
// every byte tells where in the stream it belongs.
std::vector<float> Samples(const std::shared_ptr<DRAVAudioBuffer>& frame)
{
    std::vector<float> samples(static_cast<size_t>(frame->GetUsedBufferSize() / 4));
    memcpy(samples.data(), frame->GetStorage()->GetData(), samples.size() * 4);
    return samples;
}

std::unique_ptr<DRAVRingBuffer> MakeRing(int capacityBytes)
{
    auto ring = std::make_unique<DRAVRingBuffer>("ring");
    ring->SetMaxTotalSizeMB(capacityBytes);
    ring->Init();
    return ring;
}

// Pulls by frame count and by duration; the model test below only pulls by frames.
TEST(DRAVRingBuffer, PullsByDurationAndKeepsTheWholeRingWhenLarge)
{
    auto ring = MakeRing(0x400000);
    ASSERT_TRUE(ring->AddBuffer(MakeFrame(0, 960, 0)).Succeeded());
    // Half a second or more: an overrun keeps the whole ring (smaller rings keep half, see the model).
    EXPECT_FALSE(ring->GetDropHalf());
    std::shared_ptr<DRAVAudioBuffer> out;
    ASSERT_TRUE(ring->PullAudioBuffer(DRAVTimestamp(0), &out, int64_t{480}).Succeeded());
    ASSERT_TRUE(ring->PullAudioBuffer(DRAVTimestamp(0), &out, DRAVDuration(10000)).Succeeded());
    EXPECT_EQ(out->GetTimestamp().Get(), 10000);
    EXPECT_EQ(out->GetDuration().Get(), 10000);
    EXPECT_EQ(Samples(out)[0], 480.0f);
    EXPECT_EQ(Samples(out)[959 * 2 - 480 * 2 + 1], -959.0f);
    EXPECT_EQ(ring->GetBytesInBuffer(), 0);
}

TEST(DRAVRingBuffer, RefusalsAndArguments)
{
    auto ring = MakeRing(0x400000);
    std::shared_ptr<DRAVAudioBuffer> out;
    EXPECT_EQ(ring->PullAudioBuffer(DRAVTimestamp(0), &out, DRAVDuration(10000)).GetCode(),
              kDRAVResultErrNoData);
    EXPECT_EQ(ring->AddBuffer(MakeFrame(-1, 10, 0)).GetCode(), kDRAVResultErrInvalidParameter);
    EXPECT_EQ(ring->GetBytesInBuffer(), 0);
    EXPECT_EQ(ring->AddBuffer(nullptr).GetCode(), kDRAVResultErrNullPointer);
    ring->AddBuffer(MakeFrame(0, 100, 0));
    EXPECT_EQ(ring->PullAudioBuffer(DRAVTimestamp(0), nullptr, int64_t{10}).GetCode(),
              kDRAVResultErrNullPointer);
    EXPECT_EQ(ring->PullAudioBuffer(DRAVTimestamp(0), &out, DRAVDuration(10)).GetCode(),
              kDRAVResultErrInvalidParameter);
    EXPECT_EQ(ring->PullAudioBuffer(DRAVTimestamp(0), &out, int64_t{0}).GetCode(),
              kDRAVResultErrInvalidParameter);
    std::shared_ptr<DRAVMediaBuffer> any;
    EXPECT_EQ(ring->PullBuffer(DRAVTimestamp(0), &any, true).GetCode(), kDRAVResultErrNotImplemented);
    EXPECT_EQ(ring->DropBuffersBetween(DRAVTimestamp(0), DRAVTimestamp(1)).GetCode(),
              kDRAVResultErrNotImplemented);
    EXPECT_EQ(ring->GetStatistics(nullptr).GetCode(), kDRAVResultErrNullPointer);
    DRAVQueueStatistics statistics;
    ASSERT_TRUE(ring->GetStatistics(&statistics).Succeeded());
    EXPECT_EQ(std::make_pair(statistics.bytes, statistics.maxBytes),
              std::make_pair(int64_t{800}, int64_t{0x400000}));
    EXPECT_EQ(ring->GetMaxTotalSizeMB(), 800) << "the bytes held";
}

TEST(DRAVRingBuffer, PreserveKeepsASmallReserve)
{
    auto ring = MakeRing(0x400000);
    ring->SetPreserveBuffer(true);
    ring->AddBuffer(MakeFrame(0, 2400, 0));  // 50 ms
    EXPECT_EQ(ring->DropBuffersBefore(DRAVTimestamp(40000)).GetCode(), kDRAVResultOk);
    EXPECT_EQ(ring->GetReadTimestamp().Get(), 0);
    EXPECT_EQ(ring->GetBytesInBuffer(), 2400 * kBytesPerFrame);
}

TEST(DRAVRingBuffer, MoveReadPointerRules)
{
    auto ring = MakeRing(38400);
    EXPECT_EQ(ring->MoveReadPointer(DRAVDuration(10000)).GetCode(), kDRAVResultErrNullPointer);
    EXPECT_EQ(ring->GetBufferDuration().Get(), -2);
    ring->AddBuffer(MakeFrame(1000000, 480, 0));
    EXPECT_EQ(ring->GetBufferDuration().Get(), 100000);
    EXPECT_EQ(ring->MoveReadPointer(DRAVDuration(100000)).GetCode(), kDRAVResultErrInvalidParameter);
    ASSERT_TRUE(ring->MoveReadPointer(DRAVDuration(40000)).Succeeded());
    EXPECT_EQ(ring->GetReadTimestamp().Get(), 1010000 - 40000);
    EXPECT_EQ(ring->GetBytesInBuffer(), 1920 * kBytesPerFrame);

    auto early = MakeRing(38400);
    early->AddBuffer(MakeFrame(0, 480, 0));
    EXPECT_EQ(early->MoveReadPointer(DRAVDuration(20000)).GetCode(), kDRAVResultErrInvalidState);
}

TEST(DRAVRingBuffer, CapacityChangesOnlyWhileLessIsHeld)
{
    auto ring = MakeRing(0x400000);
    ring->AddBuffer(MakeFrame(0, 960, 0));
    EXPECT_EQ(ring->SetMaxTotalSizeMB(4000).GetCode(), kDRAVResultOkNoDataChanged) << "7680 bytes held";
    EXPECT_EQ(ring->GetCapacity(), 0x400000);
    ASSERT_TRUE(ring->SetMaxTotalSizeMB(15360).Succeeded());
    EXPECT_EQ(ring->GetCapacity(), 15360);
    EXPECT_EQ(ring->GetBytesInBuffer(), 0) << "the content is lost";
    EXPECT_EQ(ring->GetReadTimestamp().Get(), -1);
    ring->AddBuffer(MakeFrame(0, 960, 0));
    ring->Flush();
    EXPECT_EQ(ring->GetBytesInBuffer(), 0);
    EXPECT_NE(ring->GetMediaFormat(), nullptr) << "a flush keeps the format";
    ring->Deinit();
    EXPECT_EQ(ring->GetMediaFormat(), nullptr);
    EXPECT_EQ(ring->AddBuffer(MakeFrame(0, 960, 0)).GetCode(), kDRAVResultOk);
    EXPECT_EQ(ring->GetBytesInBuffer(), 0) << "no storage after Deinit";
}

// Counts the formats it is told about.
class FormatWatcher : public DRAVMediaFormatChangeDelegate
{
public:
    int changes = 0;
    DRAVResult MediaFormatChanged(std::shared_ptr<DRAVObject>, std::shared_ptr<DRAVMediaBuffer>) override
    {
        ++changes;
        return DRAVResult();
    }
};

TEST(DRAVRingBuffer, FormatChangesAreTold)
{
    auto ring = MakeRing(0x400000);
    auto watcher = std::make_shared<FormatWatcher>();
    ring->SetFormatChangeDelegate(watcher);
    ring->AddBuffer(MakeFrame(0, 96, 0));
    ring->AddBuffer(MakeFrame(2000, 96, 96));
    EXPECT_EQ(watcher->changes, 1);
    const DRAVAudioFormat other(44100, 2, kDRAVAudioSampleTypeFloat, 0);
    auto changed = MakeFrame(4000, 96, 192);
    changed->SetMediaFormat(std::make_shared<DRAVAudioFormat>(other));
    ring->AddBuffer(changed);
    EXPECT_EQ(watcher->changes, 2);
    EXPECT_TRUE(ring->GetMediaFormat()->IsMediaFormat(std::make_shared<DRAVAudioFormat>(other)));
    EXPECT_EQ(ring->GetTotalBytesWritten(), 3 * 96 * kBytesPerFrame);
}

// What the ring should hold: the left samples in order (the right one is the negative).
class RingModel
{
public:
    explicit RingModel(int64_t capacityFrames) : capacity_(capacityFrames) {}

    void Push(int64_t firstIndex, int64_t frames, int64_t timestamp, bool dropHalf)
    {
        const bool wasEmpty = held_.empty();
        for (int64_t i = 0; i < frames; ++i)
            held_.push_back(static_cast<float>(firstIndex + i));
        write_ = timestamp + Usec(frames);
        if (HeldFrames() > capacity_)
        {
            const int64_t keep = !wasEmpty && dropHalf ? capacity_ / 2 : capacity_;
            held_.erase(held_.begin(), held_.end() - keep);
            read_ = write_ - Usec(HeldFrames());
        }
        else if (wasEmpty)
        {
            read_ = timestamp;
        }
    }

    // Result code of the pull; `out` gets the frames and their time stamp.
    int Pull(int64_t frames, std::vector<float>* out, int64_t* timestamp)
    {
        if (held_.empty())
            return kDRAVResultErrNoData;
        if (frames > HeldFrames())
            return kDRAVResultErrInsufficientMemory;
        out->assign(held_.begin(), held_.begin() + frames);
        held_.erase(held_.begin(), held_.begin() + frames);
        *timestamp = read_;
        read_ += Usec(frames);
        return kDRAVResultOk;
    }

    int DropBefore(int64_t t)
    {
        const int64_t drop = ((t - read_) * 48000 + 999999) / 1000000;
        if (held_.empty() || read_ / 1000 >= t / 1000 || Usec(drop) < 10000)
            return kDRAVResultOkNoDataChanged;
        if (drop >= HeldFrames())
        {
            // Past the end: the ring starts again with some silence behind the writer.
            const int64_t silence = std::min<int64_t>(capacity_ / 2, 4800);
            held_.assign(static_cast<size_t>(silence), 0.0f);
            read_ = write_ - Usec(silence);
            return kDRAVResultErrInsufficientMemory;
        }
        held_.erase(held_.begin(), held_.begin() + drop);
        read_ = t;
        return kDRAVResultOk;
    }

    int64_t HeldFrames() const { return static_cast<int64_t>(held_.size()); }
    int64_t Read() const { return read_; }
    int64_t Write() const { return write_; }

private:
    static int64_t Usec(int64_t frames) { return frames * 1000000 / 48000; }

    int64_t capacity_;
    std::deque<float> held_;
    int64_t read_ = -1;
    int64_t write_ = -1;
};

TEST(DRAVRingBufferProperty, RandomPushesPullsAndDropsMatchTheModel)
{
    // Everything moves in steps of 6 frames (125 microseconds), so that every
    // time stamp is exact and the ring and the model agree to the microsecond.
    constexpr int64_t kStep = 6;
    constexpr int64_t kCapacityFrames = 6000;  // 125 ms: overruns keep half the ring
    auto ring = MakeRing(static_cast<int>(kCapacityFrames * kBytesPerFrame));
    RingModel model(kCapacityFrames);
    std::mt19937 random(20261122);
    int64_t nextIndex = 1;
    int64_t nextTimestamp = 1000000;
    int pulls = 0;
    int overruns = 0;
    int refills = 0;
    int shortPulls = 0;
    for (int step = 0; step < 4000; ++step)
    {
        const int action = static_cast<int>(random() % 10);
        if (action < 4)
        {
            const int64_t frames = kStep * (1 + static_cast<int64_t>(random() % 400));
            if (random() % 20 == 0)
            {
                nextTimestamp += 125 * static_cast<int64_t>(random() % 200);  // a gap in the stream
            }
            const int64_t heldBefore = model.HeldFrames();
            ASSERT_TRUE(ring->AddBuffer(MakeFrame(nextTimestamp, frames, nextIndex)).Succeeded());
            model.Push(nextIndex, frames, nextTimestamp, step > 0);
            overruns += heldBefore > 0 && heldBefore + frames > kCapacityFrames;
            nextIndex += frames;
            nextTimestamp += frames * 1000000 / 48000;
        }
        else if (action < 8)
        {
            const int64_t frames = kStep * (1 + static_cast<int64_t>(random() % 300));
            std::shared_ptr<DRAVAudioBuffer> out;
            std::vector<float> expected;
            int64_t expectedTimestamp = -1;
            const int expectedCode = model.Pull(frames, &expected, &expectedTimestamp);
            shortPulls +=
                expectedCode == kDRAVResultErrInsufficientMemory || expectedCode == kDRAVResultErrNoData;
            ASSERT_EQ(ring->PullAudioBuffer(DRAVTimestamp(0), &out, frames).GetCode(), expectedCode) << step;
            if (expectedCode == kDRAVResultOk)
            {
                ++pulls;
                ASSERT_EQ(out->GetTimestamp().Get(), expectedTimestamp) << step;
                const auto samples = Samples(out);
                ASSERT_EQ(samples.size(), expected.size() * 2) << step;
                for (size_t i = 0; i < expected.size(); ++i)
                {
                    ASSERT_EQ(samples[2 * i], expected[i]) << step << " frame " << i;
                    ASSERT_EQ(samples[2 * i + 1], expected[i] == 0.0f ? 0.0f : -expected[i]) << step;
                }
            }
        }
        else
        {
            const int64_t t = model.Read() + 125 * (static_cast<int64_t>(random() % 1200) - 100);
            const int expectedCode = model.DropBefore(t);
            refills += expectedCode == kDRAVResultErrInsufficientMemory;
            ASSERT_EQ(ring->DropBuffersBefore(DRAVTimestamp(t)).GetCode(), expectedCode) << step;
        }
        ASSERT_EQ(ring->GetBytesInBuffer(), model.HeldFrames() * kBytesPerFrame) << step;
        ASSERT_LE(ring->GetBytesInBuffer(), kCapacityFrames * kBytesPerFrame) << step;
        ASSERT_EQ(ring->GetWriteTimestamp().Get(), model.Write()) << step;
        if (model.HeldFrames() > 0)
        {
            ASSERT_EQ(ring->GetReadTimestamp().Get(), model.Read()) << step;
        }
    }
    // The run went through every path.
    EXPECT_GT(pulls, 100);
    EXPECT_GT(overruns, 5);
    EXPECT_GT(refills, 5);
    // The counters that report drift count exactly these events.
    EXPECT_EQ(ring->GetOverrunCount(), overruns);
    EXPECT_EQ(ring->GetShortPullCount(), shortPulls);
    EXPECT_GT(shortPulls, 5);
}
}  // namespace
