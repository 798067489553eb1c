#include "engine/units/DRAVSource.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <memory>
#include <string>
#include <vector>

#include "engine/units/DRAVDevice.h"
#include "engine/units/DRAVSink.h"
#include "support/UnitTestSupport.h"

using namespace unittest;

namespace
{
class SourceTest : public ::testing::Test
{
protected:
    // Filters made by the factory, by type; removals by name.
    void InstallFilterFactory()
    {
        DRAVUnitFactory factory;
        factory.createFilter =
            [this](int32_t type, std::shared_ptr<DRAVUnit> owner, bool init, std::shared_ptr<DRAVUnit>* out)
        {
            if (type == DRAVSource::kFilterTypeAudioEncoder)
                return DRAVResult(kDRAVResultErrUnknownUnit);
            auto filter =
                std::make_shared<PassFilter>("filter " + std::to_string(type), DRAVFilterConfig{type, false});
            filter->SetOwner(owner);
            if (init)
                filter->Init();
            made_.push_back(filter);
            *out = filter;
            return DRAVResult();
        };
        factory.removeUnit = [this](const std::shared_ptr<DRAVUnit>& unit)
        { removed_.push_back(unit->GetFriendlyName()); };
        DRAVUnitFactory::Install(factory);
    }

    EngineEnvironment environment_;
    std::vector<std::shared_ptr<PassFilter>> made_;
    std::vector<std::string> removed_;
};

std::shared_ptr<PlainSource> RunningSource(int outputs = 1)
{
    auto source = std::make_shared<PlainSource>("source", outputs);
    EXPECT_EQ(source->InitSource(kDRAVPinTypePull), kDRAVResultOk);
    EXPECT_EQ(source->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    return source;
}
}  // namespace

// The first pin of a pulled source becomes a ring, the others keep their kind;
// a blocking pull keeps its own kind too.
TEST_F(SourceTest, AudioLeavesThroughARingUnlessBlocking)
{
    auto source = std::make_shared<PlainSource>("source", 2);
    ASSERT_EQ(source->InitSource(kDRAVPinTypePull), kDRAVResultOk);
    EXPECT_EQ(source->GetOutputPin(0)->GetPinType(), kDRAVPinTypePullRingBuffer);
    EXPECT_EQ(source->GetOutputPin(1)->GetPinType(), kDRAVPinTypePull);

    auto blocking = std::make_shared<PlainSource>("blocking");
    ASSERT_EQ(blocking->InitSource(kDRAVPinTypePullBlocking), kDRAVResultOk);
    EXPECT_EQ(blocking->GetOutputPin(0)->GetPinType(), kDRAVPinTypePullBlocking);
}

TEST_F(SourceTest, PullNeedsARunningSource)
{
    auto source = std::make_shared<PlainSource>("source");
    std::shared_ptr<DRAVAudioBuffer> out;
    EXPECT_EQ(source->RequestAudioFrame(DRAVTimestamp(0), DRAVDuration(20000), -1),
              kDRAVResultErrNotInitialized);
    EXPECT_EQ(source->PullAudioFrame(DRAVTimestamp(0), &out, DRAVDuration(20000), -1),
              kDRAVResultErrNotInitialized);
    ASSERT_EQ(source->InitSource(kDRAVPinTypePull), kDRAVResultOk);
    EXPECT_EQ(source->RequestAudioFrame(DRAVTimestamp(0), DRAVDuration(20000), -1),
              kDRAVResultErrInvalidState);
    EXPECT_EQ(source->PullAudioFrame(DRAVTimestamp(0), &out, DRAVDuration(20000), -1),
              kDRAVResultErrInvalidState);
    EXPECT_EQ(source->PullAudioFrame(DRAVTimestamp(0), &out, int64_t{960}, -1), kDRAVResultErrNoData);
    EXPECT_EQ(source->MediaBufferReceived(nullptr, MakeFrame(0, 960)), kDRAVResultErrInvalidState);
}

TEST_F(SourceTest, RequestDropsWhatLiesBeforeTheSpan)
{
    auto source = RunningSource();
    // Frames come in from the source's child filters while running.
    ASSERT_EQ(source->MediaBufferReceived(nullptr, MakeFrame(0, 960, 0.0f)), kDRAVResultOk);
    ASSERT_EQ(source->MediaBufferReceived(nullptr, MakeFrame(20000, 960, 960.0f)), kDRAVResultOk);

    ASSERT_TRUE(source->RequestAudioFrame(DRAVTimestamp(40000), DRAVDuration(20000), -1).Succeeded());
    std::shared_ptr<DRAVAudioBuffer> out;
    ASSERT_EQ(source->PullAudioFrame(DRAVTimestamp(40000), &out, DRAVDuration(20000), -1), kDRAVResultOk);
    EXPECT_EQ(out->GetTimestamp().Get(), 20000);
    const auto left = ChannelSamples(out, 0);
    ASSERT_EQ(left.size(), 960u);
    EXPECT_EQ(left.front(), 960.0f);
    EXPECT_EQ(left.back(), 1919.0f);
    EXPECT_EQ(source->RequestAudioFrame(DRAVTimestamp(0), DRAVDuration(0), 3), kDRAVResultErrNullPointer);
}

TEST_F(SourceTest, NegativePinMeansTheSecondPinWhenThereAreTwo)
{
    auto two = RunningSource(2);
    ASSERT_EQ(two->ProcessFrame(1, MakeFrame(500, 960)), kDRAVResultOk);
    ASSERT_EQ(two->ProcessFrame(0, MakeFrame(900, 960)), kDRAVResultOk);
    std::shared_ptr<DRAVAudioBuffer> out;
    ASSERT_EQ(two->PullAudioFrame(DRAVTimestamp(10000), &out, DRAVDuration(20000), -1), kDRAVResultOk);
    EXPECT_EQ(out->GetTimestamp().Get(), 500);

    auto one = RunningSource(1);
    ASSERT_EQ(one->ProcessFrame(0, MakeFrame(700, 960)), kDRAVResultOk);
    ASSERT_EQ(one->PullAudioFrame(DRAVTimestamp(10000), &out, DRAVDuration(20000), -1), kDRAVResultOk);
    EXPECT_EQ(out->GetTimestamp().Get(), 700);
}

TEST_F(SourceTest, AudioDelayEmptiesTheRingAndRestartsStatistics)
{
    auto source = RunningSource();
    ASSERT_EQ(source->ProcessFrame(0, MakeFrame(0, 960)), kDRAVResultOk);
    auto pin = source->GetOutputPin(0);
    auto ring = std::dynamic_pointer_cast<TestRingQueue>(pin->GetQueue());
    ASSERT_NE(ring, nullptr);
    ASSERT_GT(ring->GetBytesHeld(), 0);
    ASSERT_EQ(pin->GetStatistics().frames, 1);

    const int64_t before = DRAVGetHostTime().Get();
    source->SetIntProperty(kPropertySourceAudioDelay, 50);
    EXPECT_EQ(source->GetAudioDelayMsec(), 50);
    EXPECT_EQ(ring->GetBytesHeld(), 0);
    EXPECT_EQ(pin->GetStatistics().frames, 0);
    EXPECT_GE(source->GetStartTimeUsec(), before);
}

TEST_F(SourceTest, ResetCounterFiresOnceThenReloads)
{
    auto source = RunningSource();
    EXPECT_FALSE(source->NeedsReset(true));
    for (int64_t i = 0; i < DRAVSource::kResetCounterReload; ++i)
    {
        EXPECT_FALSE(source->NeedsReset(false));
        source->CountDownReset();
    }
    EXPECT_TRUE(source->NeedsReset(false));
    EXPECT_TRUE(source->NeedsReset(true));
    EXPECT_FALSE(source->NeedsReset(true));
}

TEST_F(SourceTest, ChildFiltersAndStatistics)
{
    auto source = RunningSource();
    DRAVQueueStatistics statistics;
    EXPECT_EQ(source->GetAudioStatistics(nullptr), kDRAVResultErrNullPointer);
    EXPECT_EQ(source->GetAudioStatistics(&statistics), kDRAVResultErrNoData);
    // Without a factory nothing starts and the source works on.
    EXPECT_EQ(source->StartAudioLevelmeter(), kDRAVResultErrUnknownUnit);
    EXPECT_EQ(source->GetAudioLevelmeter(), nullptr);

    InstallFilterFactory();
    ASSERT_EQ(source->StartAudioDelay(), kDRAVResultOk);
    ASSERT_EQ(source->StartAudioLevelmeter(), kDRAVResultOk);
    EXPECT_EQ(source->StartAudioEncoder(nullptr), kDRAVResultErrUnknownUnit);
    ASSERT_EQ(made_.size(), 2u);
    auto delay = made_[0];
    EXPECT_EQ(delay->GetOwner(), source);
    // The delay's output comes back into the source and out through its ring.
    delay->SetUnitState(kDRAVUnitStateRunning);
    ASSERT_EQ(delay->SendFrame(MakeFrame(100, 960)), kDRAVResultOk);
    std::shared_ptr<DRAVAudioBuffer> out;
    ASSERT_EQ(source->PullAudioFrame(DRAVTimestamp(100), &out, DRAVDuration(20000), 0), kDRAVResultOk);
    EXPECT_EQ(out->GetTimestamp().Get(), 100);
    // The first filter started carries the audio statistics.
    EXPECT_EQ(source->GetAudioStatistics(&statistics), kDRAVResultOk);
    EXPECT_TRUE(statistics.isInput);

    ASSERT_EQ(source->StartAudioConverter(), kDRAVResultOk);
    EXPECT_TRUE(source->GetAudioConverter()->GetPreserveBuffer());

    source->Deinit();
    EXPECT_EQ(removed_, (std::vector<std::string>{"filter 6", "filter 9", "filter 10"}));
    for (const auto& filter : made_)
        EXPECT_FALSE(filter->IsUnitInitialized());
}

TEST_F(SourceTest, SinkTakesAudioOnlyWhileRunning)
{
    auto sink =
        std::make_shared<RecordingSink>("sink", DRAVSinkConfig{DRAVSink::kTypePreview, 0, false, true}, 2);
    ASSERT_EQ(sink->Init(), kDRAVResultOk);
    EXPECT_EQ(sink->GetOutputPin(0), nullptr);
    EXPECT_EQ(sink->SendAudioFrame(MakeFrame(0, 960)), kDRAVResultErrInvalidState);
    ASSERT_EQ(sink->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    // With two inputs, audio goes to the second.
    EXPECT_EQ(sink->SendAudioFrame(MakeFrame(0, 960)), kDRAVResultOk);
    EXPECT_EQ(sink->PinsSeen(), std::vector<int>{1});

    auto single = std::make_shared<RecordingSink>("single", DRAVSinkConfig{});
    ASSERT_EQ(single->Init(), kDRAVResultOk);
    single->SetPause(false);
    EXPECT_EQ(single->SendAudioFrame(MakeFrame(0, 960)), kDRAVResultOk);
    EXPECT_EQ(single->PinsSeen(), std::vector<int>{0});
}

TEST_F(SourceTest, DeviceDescribesItselfAsJson)
{
    auto owner = RunningSource();
    auto device = std::make_shared<DRAVDevice>("USB Mic", nullptr, owner);
    ASSERT_EQ(device->InitUnit(kDRAVPinTypeThreaded, kDRAVPinTypePassthrough), kDRAVResultOk);
    EXPECT_EQ(device->GetInputPin(0), nullptr);
    EXPECT_EQ(device->GetOutputPin(0), nullptr);

    auto info = nlohmann::json::parse(device->GetJsonProperty(kPropertyCaptureDeviceDescription));
    EXPECT_EQ(info["Device Name"], "USB Mic");
    EXPECT_EQ(info["Device Path"], "");
    EXPECT_EQ(info["Device Present"], false);
    // Read-only: a set leaves the description as it is.
    device->SetJsonProperty(kPropertyCaptureDeviceDescription, R"({"Device Name":"x","Device Path":"1"})");
    EXPECT_EQ(device->GetDescription().name, "USB Mic");

    DRAVDeviceDescription description;
    EXPECT_EQ(description.FromJSON(R"({"Device Name":"Speakers"})"), kDRAVResultErrInvalidParameter);
    EXPECT_EQ(description.FromJSON("not json"), kDRAVResultErrInvalidParameter);
    EXPECT_FALSE(description.present);
    ASSERT_EQ(description.FromJSON(R"({"Device Name":"Speakers","Device Path":"73"})"), kDRAVResultOk);
    EXPECT_TRUE(description.present);
    device->SetDescription(description);
    info = nlohmann::json::parse(device->DeviceInfo());
    EXPECT_EQ(info["Device Path"], "73");
    EXPECT_EQ(info["Device Present"], true);
}
