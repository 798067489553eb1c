#include "engine/filters/DRAVFilterDelay.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "engine/media/DRAVAudioBuffer.h"
#include "engine/units/DRAVThreadedBufferQueue.h"
#include "support/UnitTestSupport.h"

using namespace unittest;

namespace
{
constexpr int kGenerousWaitMs = 10000;

class FilterDelayTest : public ::testing::Test
{
protected:
    std::shared_ptr<DRAVFilterDelay> RunningDelay()
    {
        auto delay = std::make_shared<DRAVFilterDelay>();
        EXPECT_EQ(delay->Init(), kDRAVResultOk);
        EXPECT_EQ(delay->AddReceiver(0, receiver_), kDRAVResultOk);
        EXPECT_EQ(delay->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
        return delay;
    }

    static std::shared_ptr<DRAVThreadedBufferQueue> InputQueue(const std::shared_ptr<DRAVFilterDelay>& delay)
    {
        return std::dynamic_pointer_cast<DRAVThreadedBufferQueue>(delay->GetInputPin(0)->GetQueue());
    }

    // A stamp well in the past, so that the worker never has to wait for it.
    static int64_t PastStamp() { return DRAVGetHostTime().Get() - 5000000; }

    EngineEnvironment environment_;
    std::shared_ptr<RecordingReceiver> receiver_ = std::make_shared<RecordingReceiver>();
};
}  // namespace

TEST_F(FilterDelayTest, DelaySizesTheQueueInFortyMillisecondItems)
{
    auto delay = RunningDelay();
    auto queue = InputQueue(delay);
    ASSERT_NE(queue, nullptr);

    delay->SetIntProperty(kPropertySourceAudioDelay, 500);
    EXPECT_EQ(queue->GetMaxNumItems(), 12);
    EXPECT_EQ(queue->GetDelayMsec(), 500);

    // Shorter than one item: the queue keeps room for a few frames rather
    // than dropping them all.
    ASSERT_EQ(delay->SetAudioDelayMsec(10), kDRAVResultOk);
    EXPECT_EQ(queue->GetMaxNumItems(), DRAVFilterDelay::kMinQueueItems);
    ASSERT_EQ(delay->SetAudioDelayMsec(0), kDRAVResultOk);
    EXPECT_EQ(queue->GetMaxNumItems(), DRAVFilterDelay::kMinQueueItems);
    EXPECT_EQ(queue->GetDelayMsec(), 0);

    EXPECT_EQ(delay->SetAudioDelayMsec(-1), kDRAVResultErrInvalidParameter);
    EXPECT_EQ(delay->SetAudioDelayMsec(DRAVFilterDelay::kMaxDelayMsec + 1), kDRAVResultErrInvalidParameter);
    EXPECT_EQ(delay->GetAudioDelayMsec(), 0);
    delay->Deinit();
}

TEST_F(FilterDelayTest, FramesLeaveStampedLater)
{
    auto delay = RunningDelay();
    ASSERT_EQ(delay->SetAudioDelayMsec(500), kDRAVResultOk);
    const int64_t past = PastStamp();
    ASSERT_EQ(delay->SendFrame(MakeFrame(past, 960)), kDRAVResultOk);
    ASSERT_TRUE(receiver_->WaitFor(1, kGenerousWaitMs));
    EXPECT_EQ(receiver_->Timestamps(), (std::vector<int64_t>{past + 500000}));

    // A frame of the present is held until its delay has passed.
    const int64_t now = DRAVGetHostTime().Get();
    ASSERT_EQ(delay->SendFrame(MakeFrame(now, 960)), kDRAVResultOk);
    ASSERT_TRUE(receiver_->WaitFor(2, kGenerousWaitMs));
    EXPECT_GE(DRAVGetHostTime().Get(), now + 500000);
    EXPECT_EQ(receiver_->Timestamps().back(), now + 500000);
    delay->Deinit();
}

// No delay passes the stamps through; a delay shorter than a frame still passes every frame.
TEST_F(FilterDelayTest, ZeroAndSubFrameDelaysPassEveryFrame)
{
    for (const int64_t delayMs : {0, 5})
    {
        SCOPED_TRACE(delayMs);
        receiver_ = std::make_shared<RecordingReceiver>();
        auto delay = RunningDelay();
        ASSERT_EQ(delay->SetAudioDelayMsec(300), kDRAVResultOk);  // a former delay leaves nothing behind
        ASSERT_EQ(delay->SetAudioDelayMsec(delayMs), kDRAVResultOk);
        const int64_t past = PastStamp();
        ASSERT_EQ(delay->SendFrame(MakeFrame(past, 960)), kDRAVResultOk);
        ASSERT_EQ(delay->SendFrame(MakeFrame(past + 20000, 960)), kDRAVResultOk);
        ASSERT_TRUE(receiver_->WaitFor(2, kGenerousWaitMs));
        EXPECT_EQ(receiver_->Timestamps(),
                  (std::vector<int64_t>{past + delayMs * 1000, past + 20000 + delayMs * 1000}));
        delay->Deinit();
    }
}

TEST_F(FilterDelayTest, RefusesFramesUnlessRunning)
{
    auto delay = std::make_shared<DRAVFilterDelay>();
    auto frame = MakeFrame(PastStamp(), 960);
    EXPECT_EQ(delay->InputMediaBufferReceived(nullptr, 0, frame), kDRAVResultErrNotInitialized);
    ASSERT_EQ(delay->Init(), kDRAVResultOk);
    const int64_t stamp = frame->GetTimestamp().Get();
    EXPECT_EQ(delay->InputMediaBufferReceived(nullptr, 0, frame), kDRAVResultErrInvalidState);
    // A refused frame keeps its stamp.
    EXPECT_EQ(frame->GetTimestamp().Get(), stamp);
    delay->Deinit();
}

TEST_F(FilterDelayTest, WithoutPinTheDelayIsOnlyStored)
{
    auto delay = std::make_shared<DRAVFilterDelay>();
    EXPECT_EQ(delay->SetAudioDelayMsec(300), kDRAVResultOk);
    EXPECT_EQ(delay->GetAudioDelayMsec(), 300);
    EXPECT_EQ(delay->AdjustQueueByDelayMsec(300), kDRAVResultErrNullPointer);
    // Init starts again from no delay.
    ASSERT_EQ(delay->Init(), kDRAVResultOk);
    EXPECT_EQ(delay->GetAudioDelayMsec(), 0);
    delay->Deinit();
}

TEST_F(FilterDelayTest, TakesOnTheFormatOfItsFrames)
{
    auto delay = RunningDelay();
    const DRAVAudioFormat mono(48000, 1, kDRAVAudioSampleTypeFloat, 0);
    std::vector<float> samples(960, 0.25f);
    const auto size = static_cast<int64_t>(samples.size() * sizeof(float));
    auto frame = DRAVAudioBuffer::GetAudioBuffer("mono", size, mono, samples.data(), size);
    ASSERT_NE(frame, nullptr);
    frame->SetTimestamp(DRAVTimestamp(PastStamp()));
    ASSERT_EQ(delay->SendFrame(frame), kDRAVResultOk);
    ASSERT_TRUE(receiver_->WaitFor(1, kGenerousWaitMs));
    auto held = std::dynamic_pointer_cast<DRAVAudioFormat>(delay->GetFormat());
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(held->GetNumChannels(), 1u);
    ASSERT_EQ(delay->SetAudioDelayMsec(500), kDRAVResultOk);
    EXPECT_EQ(InputQueue(delay)->GetMaxNumItems(), 12);

    // A format without frame size cannot size the queue: a clear error, and
    // the queue stays as it was.
    auto empty = DRAVAudioBuffer::GetAudioBuffer(
        "empty", 64, DRAVAudioFormat(48000, 0, kDRAVAudioSampleTypeFloat, 0), nullptr, 0);
    ASSERT_NE(empty, nullptr);
    empty->SetTimestamp(DRAVTimestamp(PastStamp()));
    ASSERT_EQ(delay->SendFrame(empty), kDRAVResultOk);
    ASSERT_TRUE(receiver_->WaitFor(2, kGenerousWaitMs));
    EXPECT_EQ(delay->SetAudioDelayMsec(1000), kDRAVResultErrInvalidParameter);
    EXPECT_EQ(delay->GetAudioDelayMsec(), 500);
    EXPECT_EQ(InputQueue(delay)->GetMaxNumItems(), 12);
    delay->Deinit();
}
