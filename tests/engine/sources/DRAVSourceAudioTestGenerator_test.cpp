#include "engine/sources/DRAVSourceAudioTestGenerator.h"
#include "engine/sources/DRAVSourceTest.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <tuple>
#include <vector>

#include "support/SimAudioAnalysis.h"
#include "support/UnitTestSupport.h"

using namespace unittest;

namespace
{
// The generator's phase advances by pi (not 2 pi) times the pitch per second,
// so every tone sounds an octave below the pitch it is given.
constexpr double kSounding = 0.5;

using tidemix::test::Peak;
using tidemix::test::Rms;
using tidemix::test::ZeroCrossingFrequency;

class GeneratorTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        generator_ = std::make_shared<DRAVSourceAudioTestGenerator>();
        ASSERT_EQ(generator_->Init(), kDRAVResultOk);
        ASSERT_EQ(generator_->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    }

    // Requests and pulls one frame of `duration` at `time`.
    std::shared_ptr<DRAVAudioBuffer> Produce(int64_t time, int64_t duration)
    {
        std::shared_ptr<DRAVAudioBuffer> out;
        EXPECT_EQ(generator_->RequestAudioFrame(DRAVTimestamp(time), DRAVDuration(duration), -1),
                  kDRAVResultOk);
        EXPECT_EQ(generator_->PullAudioFrame(DRAVTimestamp(time), &out, DRAVDuration(duration), -1),
                  kDRAVResultOk);
        return out;
    }

    EngineEnvironment environment_;
    std::shared_ptr<DRAVSourceAudioTestGenerator> generator_;
};
}  // namespace

TEST_F(GeneratorTest, ToneHasTheFrequencyAndLevelAsked)
{
    std::vector<float> left;
    std::vector<float> right;
    int64_t time = 0;
    for (int i = 0; i < 10; ++i, time += 20000)
    {
        auto frame = Produce(time, 20000);
        ASSERT_NE(frame, nullptr);
        EXPECT_EQ(std::make_tuple(frame->GetTimestamp().Get(), frame->GetDuration().Get(),
                                  frame->GetUsedBufferSize()),
                  std::make_tuple(time, int64_t{20000}, int64_t{960 * 2 * 4}));
        const auto l = ChannelSamples(frame, 0);
        const auto r = ChannelSamples(frame, 1);
        left.insert(left.end(), l.begin(), l.end());
        right.insert(right.end(), r.begin(), r.end());
    }
    ASSERT_EQ(left.size(), 9600u);
    // The first channel plays the frequency, the next half of it.
    EXPECT_NEAR(ZeroCrossingFrequency(left, 48000.0), 880.0 * kSounding, 880.0 * kSounding * 0.005);
    EXPECT_NEAR(ZeroCrossingFrequency(right, 48000.0), 440.0 * kSounding, 440.0 * kSounding * 0.005);
    // A sine of amplitude 0.2, with no jump between frames.
    EXPECT_NEAR(Rms(left), 0.2 / std::sqrt(2.0), 0.002);
    EXPECT_NEAR(Peak(left), 0.2, 0.002);
    const double maxStep = 0.2 * 2.0 * 3.14159265 * 880.0 * kSounding / 48000.0;
    for (size_t i = 1; i < left.size(); ++i)
    {
        ASSERT_LE(std::fabs(left[i] - left[i - 1]), maxStep * 1.01) << "at sample " << i;
    }
}

TEST_F(GeneratorTest, FrequencyFollowsTheProperty)
{
    generator_->SetIntProperty(kPropertyTestSignalFrequencyHz, 1000);
    auto frame = Produce(0, 100000);
    EXPECT_NEAR(ZeroCrossingFrequency(ChannelSamples(frame, 0), 48000.0), 1000.0 * kSounding, 2.5);
    EXPECT_NEAR(ZeroCrossingFrequency(ChannelSamples(frame, 1), 48000.0), 500.0 * kSounding, 1.25);
}

TEST_F(GeneratorTest, EachNewSecondTicksLouderAndHigherThenWraps)
{
    Produce(500000, 100000);
    // Steps 1 to 4 raise the pitch by half each; step 0 again after that.
    const double factors[] = {1.5, 2.0, 2.5, 3.0, 1.0};
    int64_t second = 1;
    for (double factor : factors)
    {
        auto tick = Produce(second * 1000000, 100000);
        const auto left = ChannelSamples(tick, 0);
        EXPECT_NEAR(Peak(left), 0.8, 0.01) << "second " << second;
        EXPECT_NEAR(Rms(left), 0.8 / std::sqrt(2.0), 0.01) << "second " << second;
        const double tone = 880.0 * factor * kSounding;
        EXPECT_NEAR(ZeroCrossingFrequency(left, 48000.0), tone, tone * 0.005) << "second " << second;
        EXPECT_NEAR(ZeroCrossingFrequency(ChannelSamples(tick, 1), 48000.0), tone / 2.0, tone / 2.0 * 0.005);
        // The rest of the second is the plain tone again.
        auto plain = Produce(second * 1000000 + 100000, 100000);
        EXPECT_NEAR(Peak(ChannelSamples(plain, 0)), 0.2, 0.005);
        EXPECT_NEAR(ZeroCrossingFrequency(ChannelSamples(plain, 0), 48000.0), 880.0 * kSounding,
                    880.0 * kSounding * 0.005);
        ++second;
    }
}

TEST_F(GeneratorTest, RefusesWhenMutedPausedOrUninitialised)
{
    std::shared_ptr<DRAVAudioBuffer> out;
    generator_->SetAudioMute(true);
    EXPECT_EQ(generator_->RequestAudioFrame(DRAVTimestamp(0), DRAVDuration(20000), -1), kDRAVResultErrNoData);
    EXPECT_EQ(generator_->PullAudioFrame(DRAVTimestamp(0), &out, DRAVDuration(20000), -1),
              kDRAVResultErrNoData);
    generator_->SetAudioMute(false);
    EXPECT_EQ(generator_->PullAudioFrame(DRAVTimestamp(0), nullptr, DRAVDuration(20000), -1),
              kDRAVResultErrNullPointer);
    generator_->SetPause(true);
    EXPECT_EQ(generator_->RequestAudioFrame(DRAVTimestamp(0), DRAVDuration(20000), -1),
              kDRAVResultErrInvalidState);
    EXPECT_EQ(generator_->PullAudioFrame(DRAVTimestamp(0), &out, DRAVDuration(20000), -1),
              kDRAVResultErrInvalidState);
    generator_->Deinit();
    EXPECT_EQ(generator_->RequestAudioFrame(DRAVTimestamp(0), DRAVDuration(20000), -1),
              kDRAVResultErrNotInitialized);
    std::shared_ptr<DRAVAudioBuffer> made;
    EXPECT_EQ(generator_->CreateNewAudioBuffer(DRAVTimestamp(0), DRAVDuration(20000), nullptr),
              kDRAVResultErrNullPointer);
}

TEST_F(GeneratorTest, WithoutRingThePullCopiesTheLastFrame)
{
    generator_->SetBoolProperty(kPropertyTestAudioRingbuffer, false);
    std::shared_ptr<DRAVAudioBuffer> out;
    EXPECT_EQ(generator_->PullAudioFrame(DRAVTimestamp(0), &out, DRAVDuration(20000), -1),
              kDRAVResultErrNoData);
    ASSERT_EQ(generator_->RequestAudioFrame(DRAVTimestamp(40000), DRAVDuration(20000), -1), kDRAVResultOk);
    // Nothing went into the ring.
    auto ring = std::dynamic_pointer_cast<TestRingQueue>(generator_->GetOutputPin(0)->GetQueue());
    ASSERT_NE(ring, nullptr);
    EXPECT_EQ(ring->GetBytesHeld(), 0);
    ASSERT_EQ(generator_->PullAudioFrame(DRAVTimestamp(40000), &out, DRAVDuration(20000), -1), kDRAVResultOk);
    std::shared_ptr<DRAVAudioBuffer> again;
    ASSERT_EQ(generator_->PullAudioFrame(DRAVTimestamp(40000), &again, DRAVDuration(20000), -1),
              kDRAVResultOk);
    EXPECT_NE(out, again);
    EXPECT_EQ(ChannelSamples(out, 0), ChannelSamples(again, 0));
    EXPECT_NEAR(Peak(ChannelSamples(out, 0)), 0.2, 0.01);
}

TEST(GeneratorMeterTest, LevelMeterChildSeesEveryFrame)
{
    EngineEnvironment environment;
    std::shared_ptr<PassFilter> meter;
    DRAVUnitFactory factory;
    factory.createFilter =
        [&](int32_t type, std::shared_ptr<DRAVUnit> owner, bool init, std::shared_ptr<DRAVUnit>* out)
    {
        meter = std::make_shared<PassFilter>("meter", DRAVFilterConfig{type, false});
        meter->SetOwner(owner);
        if (init)
        {
            meter->Init();
        }
        *out = meter;
        return DRAVResult();
    };
    DRAVUnitFactory::Install(factory);

    auto generator = std::make_shared<DRAVSourceAudioTestGenerator>();
    ASSERT_EQ(generator->Init(), kDRAVResultOk);
    ASSERT_NE(meter, nullptr);
    EXPECT_EQ(meter->GetFilterConfig().type, DRAVSource::kFilterTypeAudioLevelmeter);
    EXPECT_EQ(generator->GetAudioLevelmeter(), meter);
    generator->SetPause(false);
    for (int i = 0; i < 3; ++i)
    {
        ASSERT_EQ(generator->RequestAudioFrame(DRAVTimestamp(i * 20000), DRAVDuration(20000), -1),
                  kDRAVResultOk);
    }
    EXPECT_EQ(meter->Received(), 3);
    generator.reset();
    // The generator's end stops its meter.
    EXPECT_FALSE(meter->IsUnitInitialized());
}

TEST(CompositeTestSourceTest, WrapsAnAudioGeneratorMadeByTheFactory)
{
    EngineEnvironment environment;
    auto source = std::make_shared<DRAVSourceTest>();
    std::shared_ptr<DRAVAudioBuffer> out;
    // The system's own factory makes no generators.
    EXPECT_EQ(source->Init(), kDRAVResultErrUnknownUnit);
    EXPECT_FALSE(source->IsUnitInitialized());
    EXPECT_EQ(source->RequestAudioFrame(DRAVTimestamp(0), DRAVDuration(20000), 0),
              kDRAVResultErrNotInitialized);

    std::vector<std::pair<int32_t, int32_t>> asked;
    int removed = 0;
    DRAVUnitFactory factory;
    factory.createSource = [&](int32_t type, int32_t usage, std::shared_ptr<DRAVUnit> owner, bool init,
                               std::shared_ptr<DRAVUnit>* made)
    {
        asked.emplace_back(type, usage);
        std::shared_ptr<DRAVSource> child;
        if (type == DRAVSourceTest::kAudioGeneratorType)
        {
            child = std::make_shared<DRAVSourceAudioTestGenerator>();
        }
        else
        {
            child = std::make_shared<PlainSource>("video stand-in");
        }
        child->SetOwner(owner);
        owner->AddChild(child);
        if (init)
        {
            child->Init();
        }
        *made = child;
        return DRAVResult();
    };
    factory.removeUnit = [&](const std::shared_ptr<DRAVUnit>&) { ++removed; };
    DRAVUnitFactory::Install(factory);

    const double formerSine = gTestSineHz;
    gTestSineHz = 1000.0;
    ASSERT_EQ(source->Init(), kDRAVResultOk);
    gTestSineHz = formerSine;
    EXPECT_EQ(asked, (std::vector<std::pair<int32_t, int32_t>>{{7, 4}, {6, 4}}));
    EXPECT_EQ(source->GetType(), DRAVSourceTest::kSourceType);
    EXPECT_EQ(source->GetOutputPin(0)->GetPinType(), kDRAVPinTypePullRingBuffer);
    auto generator = source->GetAudioGenerator();
    ASSERT_NE(generator, nullptr);
    EXPECT_EQ(generator->GetIntProperty(kPropertyTestSignalFrequencyHz), 1000);

    // Starting the composite starts its children.
    ASSERT_EQ(source->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    EXPECT_EQ(generator->GetUnitState(), kDRAVUnitStateRunning);
    ASSERT_EQ(source->RequestAudioFrame(DRAVTimestamp(0), DRAVDuration(100000), 0), kDRAVResultOk);
    ASSERT_EQ(source->PullAudioFrame(DRAVTimestamp(0), &out, DRAVDuration(100000), 0), kDRAVResultOk);
    EXPECT_NEAR(ZeroCrossingFrequency(ChannelSamples(out, 0), 48000.0), 1000.0 * kSounding, 2.5);
    EXPECT_EQ(source->GetAudioBufferSizeMsec(), 100);

    source->SetAudioMute(true);
    EXPECT_TRUE(generator->GetAudioMute());
    EXPECT_EQ(source->RequestAudioFrame(DRAVTimestamp(0), DRAVDuration(20000), 0), kDRAVResultErrNoData);

    source->Deinit();
    EXPECT_EQ(removed, 2);
    EXPECT_FALSE(generator->IsUnitInitialized());
    EXPECT_EQ(source->PullAudioFrame(DRAVTimestamp(0), &out, DRAVDuration(20000), 0),
              kDRAVResultErrNotInitialized);
}
