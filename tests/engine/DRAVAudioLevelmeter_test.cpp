#include "engine/filters/DRAVAudioLevelmeter.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "engine/media/DRAVAudioBuffer.h"
#include "support/UnitTestSupport.h"

using namespace unittest;

namespace
{
// An interleaved float frame of 960 * values.size() samples repeating `values`; as
// many channels as values unless `channels` says otherwise.
std::shared_ptr<DRAVAudioBuffer> ConstantFrame(const std::vector<float>& values, uint32_t channels = 0)
{
    std::vector<float> samples(960 * values.size());
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = values[i % values.size()];
    const auto size = static_cast<int64_t>(samples.size() * sizeof(float));
    const uint32_t formatChannels = channels != 0 ? channels : static_cast<uint32_t>(values.size());
    return DRAVAudioBuffer::GetAudioBuffer(
        "meter test", size, DRAVAudioFormat(48000, formatChannels, kDRAVAudioSampleTypeFloat, 0),
        samples.data(), size);
}

// A frame that is no audio.
class DataFrame : public DRAVMediaBuffer
{
public:
    DataFrame() : DRAVMediaBuffer("data", nullptr) {}
    DRAVMediaType GetMediaType() const override { return kDRAVMediaTypeData; }
};

// An audio-typed frame of another class.
class ForeignAudioFrame : public DRAVMediaBuffer
{
public:
    ForeignAudioFrame() : DRAVMediaBuffer("foreign", nullptr) {}
    DRAVMediaType GetMediaType() const override { return kDRAVMediaTypeAudio; }
};

class LevelmeterTest : public ::testing::Test
{
protected:
    std::shared_ptr<DRAVAudioLevelmeter> RunningMeter()
    {
        auto meter = std::make_shared<DRAVAudioLevelmeter>();
        EXPECT_EQ(meter->Init(), kDRAVResultOk);
        EXPECT_EQ(meter->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
        return meter;
    }

    EngineEnvironment environment_;
};
}  // namespace

// Zero before Init, before the first frame, while refusing frames and after Deinit.
TEST_F(LevelmeterTest, ReadsZeroAndRefusesFramesUnlessRunning)
{
    auto meter = std::make_shared<DRAVAudioLevelmeter>();
    auto frame = ConstantFrame({0.5f, 0.5f});
    meter->SetVUDecreaseValue(20.0);
    EXPECT_EQ(meter->GetVUDecreaseValue(), 0.0);
    EXPECT_EQ(meter->GetVULevelChannel1(), 0.0);
    EXPECT_EQ(meter->InputMediaBufferReceived(nullptr, 0, frame), kDRAVResultErrNotInitialized);

    ASSERT_EQ(meter->Init(), kDRAVResultOk);
    EXPECT_EQ(meter->GetVULevelChannel2(), 0.0);
    // Paused again after running: through the pin the frame is dropped too.
    ASSERT_EQ(meter->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    ASSERT_EQ(meter->SetUnitState(kDRAVUnitStatePaused), kDRAVResultOk);
    EXPECT_EQ(meter->InputMediaBufferReceived(nullptr, 0, frame), kDRAVResultErrInvalidState);
    meter->SendFrame(frame);
    EXPECT_EQ(meter->GetVULevelChannel1(), 0.0);

    ASSERT_EQ(meter->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    ASSERT_EQ(meter->SendFrame(frame), kDRAVResultOk);
    EXPECT_GT(meter->GetVULevelChannel1(), 0.0);
    meter->Deinit();
    EXPECT_EQ(meter->GetVULevelChannel1(), 0.0);
    EXPECT_EQ(meter->GetVUDecreaseValue(), 0.0);
}

TEST_F(LevelmeterTest, StereoLevelsAndOverloadReadOnce)
{
    auto meter = RunningMeter();
    ASSERT_EQ(meter->SendFrame(ConstantFrame({0.5f, -0.25f})), kDRAVResultOk);
    EXPECT_DOUBLE_EQ(meter->GetVULevelChannel1(), 0.5);
    EXPECT_DOUBLE_EQ(meter->GetVULevelChannel2(), 0.25);
    EXPECT_DOUBLE_EQ(meter->GetDoubleProperty(kPropertyAudioVULevelChannel1), 0.5);
    // The channel index is bounded by the meter's eight channels.
    EXPECT_EQ(meter->GetVULevelChannel(8), 0.0);
    EXPECT_EQ(meter->GetVULevelChannel(-1), 0.0);

    ASSERT_EQ(meter->SendFrame(ConstantFrame({1.5f, 0.5f})), kDRAVResultOk);
    EXPECT_DOUBLE_EQ(meter->GetVULevelChannel1(), 1.5);
    // The overload reset the whole meter: it starts from silence again.
    EXPECT_EQ(meter->GetVULevelChannel1(), 0.0);
    EXPECT_EQ(meter->GetVULevelChannel2(), 0.0);
    ASSERT_EQ(meter->SendFrame(ConstantFrame({0.125f, 0.75f})), kDRAVResultOk);
    EXPECT_DOUBLE_EQ(meter->GetVULevelChannel1(), 0.125);
    EXPECT_DOUBLE_EQ(meter->GetVULevelChannel2(), 0.75);
    meter->Deinit();
}

TEST_F(LevelmeterTest, MonoFramesSpreadOverTheMetersChannels)
{
    auto meter = RunningMeter();
    // A mono stream of alternating samples: the eight-channel meter sees the
    // even samples on channel 0 and the odd ones on channel 1.
    ASSERT_EQ(meter->SendFrame(ConstantFrame({0.3f, 0.6f}, 1)), kDRAVResultOk);
    EXPECT_NEAR(meter->GetVULevelChannel1(), 0.3, 1e-6);
    EXPECT_NEAR(meter->GetVULevelChannel2(), 0.6, 1e-6);
    meter->Deinit();
}

TEST_F(LevelmeterTest, OtherFramesAreLeftAloneAndNothingGoesOut)
{
    auto meter = RunningMeter();
    auto receiver = std::make_shared<RecordingReceiver>();
    ASSERT_EQ(meter->AddReceiver(0, receiver), kDRAVResultOk);

    EXPECT_EQ(meter->InputMediaBufferReceived(nullptr, 0, std::make_shared<DataFrame>()), kDRAVResultOk);
    EXPECT_EQ(meter->InputMediaBufferReceived(nullptr, 0, std::make_shared<ForeignAudioFrame>()),
              kDRAVResultErrNullPointer);
    EXPECT_EQ(meter->InputMediaBufferReceived(nullptr, 0, nullptr), kDRAVResultErrNullPointer);

    std::vector<int16_t> loud(1920, 30000);
    const auto size = static_cast<int64_t>(loud.size() * sizeof(int16_t));
    auto intFrame = DRAVAudioBuffer::GetAudioBuffer("int", size, kDefaultAudioFormatInt, loud.data(), size);
    ASSERT_NE(intFrame, nullptr);
    EXPECT_EQ(meter->SendFrame(intFrame), kDRAVResultOk);
    EXPECT_EQ(meter->GetVULevelChannel1(), 0.0);

    auto frame = ConstantFrame({0.5f, 0.5f});
    ASSERT_EQ(meter->SendFrame(frame), kDRAVResultOk);
    EXPECT_DOUBLE_EQ(meter->GetVULevelChannel1(), 0.5);
    EXPECT_TRUE(receiver->Timestamps().empty());
    // The frame was only read: no lock is left behind.
    EXPECT_EQ(frame->GetNumReaders(), 0);
    meter->Deinit();
}

TEST_F(LevelmeterTest, DecreaseValueIsAProperty)
{
    auto meter = RunningMeter();
    meter->SetDoubleProperty(kPropertyAudioVULevelDecreaseValue, 20.0);
    EXPECT_EQ(meter->GetVUDecreaseValue(), 20.0);
    // The processor refuses a fall that isn't positive.
    meter->SetVUDecreaseValue(-3.0);
    EXPECT_EQ(meter->GetDoubleProperty(kPropertyAudioVULevelDecreaseValue), 20.0);
    // A set of a read-only level changes nothing.
    ASSERT_EQ(meter->SendFrame(ConstantFrame({0.5f, 0.5f})), kDRAVResultOk);
    meter->SetDoubleProperty(kPropertyAudioVULevelChannel1, 0.0);
    EXPECT_DOUBLE_EQ(meter->GetVULevelChannel1(), 0.5);
    meter->Deinit();
}
