#include "engine/units/DRAVUnit.h"

#include <gtest/gtest.h>

#include "engine/units/DRAVRingBuffer.h"

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "engine/units/DRAVUnitAutoState.h"
#include "portable-core/BreakIntoDebugger.h"
#include "support/UnitTestSupport.h"

using namespace unittest;

namespace
{
using CallLog = std::vector<std::string>;

// Records the order in which units are told of a new state.
template <class Base>
class Logged : public Base
{
public:
    template <class... Args>
    Logged(CallLog* log, Args&&... args) : Base(std::forward<Args>(args)...), log_(log)
    {
    }
    DRAVResult SetUnitState(DRAVUnitState state) override
    {
        log_->push_back(this->GetFriendlyName());
        return Base::SetUnitState(state);
    }

private:
    CallLog* log_;
};

// A plain unit that can be initialised with pins of chosen kinds.
class TestUnit : public DRAVUnit
{
public:
    TestUnit(const std::string& name, int inputs, int outputs, DRAVPinType in = kDRAVPinTypePassthrough,
             DRAVPinType out = kDRAVPinTypePassthrough)
        : DRAVUnit(name, nullptr, inputs, outputs), in_(in), out_(out)
    {
    }
    DRAVResult Init() override
    {
        if (failInit_)
            return DRAVResult(kDRAVResultErrInvalidFormat);
        DRAVResult result = InitUnit(in_, out_);
        SetUnitInitialized(result.Succeeded());
        return result;
    }
    void FailNextInit() { failInit_ = true; }

private:
    DRAVPinType in_;
    DRAVPinType out_;
    bool failInit_ = false;
};

std::shared_ptr<TestUnit> MakeUnit(const std::string& name, int inputs, int outputs,
                                   DRAVPinType in = kDRAVPinTypePassthrough,
                                   DRAVPinType out = kDRAVPinTypePassthrough)
{
    auto unit = std::make_shared<TestUnit>(name, inputs, outputs, in, out);
    EXPECT_TRUE(unit->Init().Succeeded());
    return unit;
}

class UnitTest : public ::testing::Test
{
protected:
    EngineEnvironment environment_;
};
}  // namespace

TEST_F(UnitTest, StateFollowsInitPauseAndDeinit)
{
    auto unit = std::make_shared<TestUnit>("u", 1, 1);
    EXPECT_FALSE(unit->GetPause());
    EXPECT_EQ(unit->SetUnitState(kDRAVUnitStateRunning), kDRAVResultErrNotInitialized);
    EXPECT_EQ(unit->SendFrame(MakeFrame(0, 960)), kDRAVResultErrNotInitialized);
    EXPECT_EQ(unit->ProcessFrame(0, MakeFrame(0, 960)), kDRAVResultErrNotInitialized);

    ASSERT_TRUE(unit->Init().Succeeded());
    EXPECT_TRUE(unit->GetPause());
    unit->SetPause(false);
    EXPECT_EQ(unit->GetUnitState(), kDRAVUnitStateRunning);
    unit->SetBoolProperty(kPropertyUnitPause, true);
    EXPECT_EQ(unit->GetUnitState(), kDRAVUnitStatePaused);
    EXPECT_TRUE(unit->GetBoolProperty(kPropertyUnitPause));

    unit->Deinit();
    EXPECT_EQ(unit->GetUnitState(), kDRAVUnitStateUninitialized);
    EXPECT_EQ(unit->GetInputPin(0), nullptr);
    EXPECT_EQ(unit->GetOutputPin(0), nullptr);
}

TEST_F(UnitTest, UnitNotHeldBySharedPointerCannotInit)
{
    TestUnit unit("stack", 1, 1);
    EXPECT_FALSE(unit.Init().Succeeded());
    EXPECT_EQ(unit.GetInputPin(0), nullptr);
}

TEST_F(UnitTest, ChildrenStartInRoleOrderAndPauseInReverse)
{
    CallLog log;
    auto parent = MakeUnit("parent", 0, 0);
    // Added in a mixed order: the roles decide, list order within a role.
    auto processor = std::make_shared<Logged<PassFilter>>(&log, "processor", DRAVFilterConfig{1, false});
    auto filterA = std::make_shared<Logged<PassFilter>>(&log, "filterA", DRAVFilterConfig{9, false});
    auto sink = std::make_shared<Logged<RecordingSink>>(&log, "sink", DRAVSinkConfig{});
    auto source = std::make_shared<Logged<PlainSource>>(&log, "source");
    auto filterB = std::make_shared<Logged<PassFilter>>(&log, "filterB", DRAVFilterConfig{10, false});
    auto plain = MakeUnit("plain", 0, 0);
    for (std::shared_ptr<DRAVUnit> child :
         std::vector<std::shared_ptr<DRAVUnit>>{processor, filterA, sink, source, filterB, plain})
    {
        ASSERT_TRUE(child->Init().Succeeded()) << child->GetFriendlyName();
        child->SetOwner(parent);
        parent->AddChild(child);
    }
    // A child that fails (never initialised) stops neither its siblings nor the parent.
    auto broken = std::make_shared<Logged<RecordingSink>>(&log, "broken", DRAVSinkConfig{});
    parent->AddChild(broken);

    EXPECT_EQ(parent->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    EXPECT_EQ(log, (std::vector<std::string>{"source", "sink", "broken", "filterA", "filterB", "processor"}));
    EXPECT_EQ(parent->GetUnitState(), kDRAVUnitStateRunning);
    EXPECT_EQ(source->GetUnitState(), kDRAVUnitStateRunning);
    EXPECT_EQ(processor->GetUnitState(), kDRAVUnitStateRunning);
    EXPECT_EQ(broken->GetUnitState(), kDRAVUnitStateUninitialized);
    // A child of no known role is left alone.
    EXPECT_EQ(plain->GetUnitState(), kDRAVUnitStatePaused);

    log.clear();
    EXPECT_EQ(parent->SetUnitState(kDRAVUnitStatePaused), kDRAVResultOk);
    EXPECT_EQ(log, (std::vector<std::string>{"processor", "filterB", "filterA", "broken", "sink", "source"}));

    log.clear();
    EXPECT_EQ(parent->SetUnitState(kDRAVUnitStatePaused), kDRAVResultOkNoDataChanged);
    EXPECT_TRUE(log.empty());
}

TEST_F(UnitTest, OwnerChainAndNames)
{
    auto grand = MakeUnit("grand", 0, 0);
    auto owner = MakeUnit("owner", 0, 0);
    auto unit = MakeUnit("unit", 1, 1);
    EXPECT_EQ(unit->GetOwnerName(), "(not owned)");
    EXPECT_EQ(unit->GetOwnerID(), "");
    owner->SetOwner(grand);
    unit->SetOwner(owner);
    EXPECT_EQ(unit->GetOwnerName(), "owner");
    EXPECT_TRUE(unit->IsChildOf(grand->GetObjectID()));
    EXPECT_TRUE(unit->IsChildOf(std::shared_ptr<const DRAVUnit>(owner)));
    EXPECT_FALSE(grand->IsChildOf(unit->GetObjectID()));

    owner.reset();
    EXPECT_EQ(unit->GetOwnerName(), "(not owned)");
    EXPECT_FALSE(unit->IsChildOf(grand->GetObjectID()));
}

TEST_F(UnitTest, FramesThroughPassthroughPins)
{
    auto producer = MakeUnit("producer", 0, 1);
    auto consumer = std::make_shared<PassFilter>("consumer", DRAVFilterConfig{9, false});
    ASSERT_TRUE(consumer->InitFilter(kDRAVPinTypePassthrough, kDRAVPinTypePassthrough).Succeeded());
    consumer->SetUnitInitialized(true);
    auto receiver = std::make_shared<RecordingReceiver>("end");

    ASSERT_EQ(producer->AddReceiver(0, consumer->GetInputPin(0)), kDRAVResultOk);
    ASSERT_EQ(consumer->AddReceiver(0, receiver), kDRAVResultOk);
    EXPECT_EQ(producer->AddReceiver(1, receiver), kDRAVResultErrNullPointer);
    EXPECT_EQ(producer->GetConnectedPin(false, 0), "consumer-In 0");
    EXPECT_EQ(consumer->GetStringProperty(kPropertyPinOut0ConnectedTo), "end");

    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(producer->ProcessFrame(0, MakeFrame(i * 20000, 960)), kDRAVResultOk);
    // Passthrough all the way: delivered before ProcessFrame returned, on this thread.
    EXPECT_EQ(receiver->Timestamps(), (std::vector<int64_t>{0, 20000, 40000}));
    EXPECT_EQ(receiver->LastThread(), std::this_thread::get_id());
    EXPECT_EQ(receiver->LastSender().get(), consumer.get());
    EXPECT_EQ(consumer->Received(), 3);

    // The output pin reports a receiver's failure (the queue in front of it
    // keeps the producer apart from its consumers' results).
    receiver->SetResult(kDRAVResultErrNoData);
    EXPECT_EQ(consumer->GetOutputPin(0)->MediaBufferReceived(nullptr, MakeFrame(60000, 960)),
              kDRAVResultErrNoData);
    EXPECT_EQ(receiver->Timestamps().back(), 60000);

    EXPECT_EQ(producer->SendFrame(MakeFrame(0, 960)), kDRAVResultErrNullPointer);
    EXPECT_EQ(producer->ProcessFrame(1, MakeFrame(0, 960)), kDRAVResultErrNullPointer);
    EXPECT_EQ(consumer->SendFrame(3, MakeFrame(0, 960)), kDRAVResultErrNullPointer);
}

TEST_F(UnitTest, BaseUnitDoesNotImplementInput)
{
    auto unit = MakeUnit("base", 1, 0);
    EXPECT_EQ(unit->GetInputPin(0)->MediaBufferReceived(nullptr, MakeFrame(0, 960)),
              kDRAVResultErrNotImplemented);
    // An input pin whose unit has gone has nobody to hand to.
    auto pin = unit->GetInputPin(0);
    unit.reset();
    EXPECT_EQ(pin->MediaBufferReceived(nullptr, MakeFrame(0, 960)), kDRAVResultErrNullPointer);
}

TEST_F(UnitTest, PullPinsStoreFramesForTheConsumer)
{
    auto unit = MakeUnit("puller", 0, 2, kDRAVPinTypeNone, kDRAVPinTypePull);
    auto receiver = std::make_shared<RecordingReceiver>();
    unit->AddReceiver(0, receiver);
    ASSERT_EQ(unit->ProcessFrame(0, MakeFrame(1000, 960)), kDRAVResultOk);
    ASSERT_EQ(unit->ProcessFrame(0, MakeFrame(21000, 960)), kDRAVResultOk);
    // No receiver is served by a pull pin.
    EXPECT_TRUE(receiver->Timestamps().empty());

    auto pin = unit->GetOutputPin(0);
    std::shared_ptr<DRAVMediaBuffer> pulled;
    ASSERT_EQ(pin->PullBuffer(DRAVTimestamp(30000), &pulled, true), kDRAVResultOk);
    EXPECT_EQ(pulled->GetTimestamp().Get(), 1000);
    std::shared_ptr<DRAVAudioBuffer> audio;
    ASSERT_EQ(pin->PullAudioBuffer(DRAVTimestamp(30000), &audio, DRAVDuration(20000)), kDRAVResultOk);
    EXPECT_EQ(audio->GetTimestamp().Get(), 21000);
    EXPECT_EQ(pin->PullBuffer(DRAVTimestamp(30000), &pulled, true), kDRAVResultErrNoData);

    // The None pin refuses frames; a passthrough pin refuses pulls.
    auto passthrough = MakeUnit("pass", 1, 1);
    EXPECT_EQ(passthrough->GetOutputPin(0)->PullBuffer(DRAVTimestamp(0), &pulled, true),
              kDRAVResultErrInvalidState);
    EXPECT_EQ(passthrough->GetOutputPin(0)->PullAudioBuffer(DRAVTimestamp(0), &audio, int64_t{960}),
              kDRAVResultErrInvalidState);
    auto none = MakeUnit("none", 1, 0, kDRAVPinTypeNone, kDRAVPinTypeNone);
    EXPECT_EQ(none->SendFrame(MakeFrame(0, 960)), kDRAVResultErrInvalidState);
}

TEST_F(UnitTest, ChangePinTypeReplacesTheQueue)
{
    auto unit = MakeUnit("changer", 0, 1);
    auto pin = unit->GetOutputPin(0);
    auto former = pin->GetQueue();
    ASSERT_EQ(pin->ChangePinType(kDRAVPinTypePullRingBuffer), kDRAVResultOk);
    EXPECT_EQ(pin->GetPinType(), kDRAVPinTypePullRingBuffer);
    auto ring = std::dynamic_pointer_cast<TestRingQueue>(pin->GetQueue());
    ASSERT_NE(ring, nullptr);
    EXPECT_NE(pin->GetQueue(), former);

    // Without a test ring the pin gets the engine's time-stamped ring.
    auto installed = DRAVUnitPin::InstallRingQueueFactory(nullptr);
    EXPECT_EQ(pin->ChangePinType(kDRAVPinTypePullRingBuffer), kDRAVResultOk);
    EXPECT_NE(std::dynamic_pointer_cast<DRAVRingBuffer>(pin->GetQueue()), nullptr);
    EXPECT_EQ(unit->ProcessFrame(0, MakeFrame(0, 960)), kDRAVResultOk);
    DRAVUnitPin::InstallRingQueueFactory(installed);
}

TEST_F(UnitTest, ReceiverListKeepsOrderAndForgetsTheGone)
{
    auto unit = MakeUnit("unit", 0, 1);
    EXPECT_EQ(unit->GetConnectedPin(true, 0), "(no receiver)");
    EXPECT_EQ(unit->GetConnectedPinOut1(), "(no pin)");
    auto pin = unit->GetOutputPin(0);
    auto kept = std::make_shared<RecordingReceiver>("kept");
    auto gone = std::make_shared<RecordingReceiver>("gone");
    auto stranger = std::make_shared<RecordingReceiver>("stranger");
    pin->AddReceiver(gone);
    pin->AddReceiver(kept);
    gone.reset();
    // An expired receiver is skipped on delivery but stays until a removal.
    EXPECT_EQ(unit->ProcessFrame(0, MakeFrame(0, 960)), kDRAVResultOk);
    EXPECT_EQ(kept->Timestamps().size(), 1u);
    EXPECT_EQ(pin->GetNumReceivers(), 2);
    EXPECT_EQ(unit->GetConnectedPinOut0(), "(no receiver)");

    EXPECT_EQ(unit->RemoveReceiver(0, stranger), kDRAVResultOk);
    EXPECT_EQ(pin->GetNumReceivers(), 1);
    EXPECT_EQ(unit->GetConnectedPinOut0(), "kept");
    EXPECT_EQ(unit->RemoveReceiver(0, kept), kDRAVResultOk);
    EXPECT_EQ(pin->GetNumReceivers(), 0);
    EXPECT_EQ(unit->RemoveReceiver(2, kept), kDRAVResultErrNullPointer);

    // More receivers than expected is flagged for the debugger, and still served.
    const uint64_t breaksBefore = BreakIntoDebugger_GetCallCount();
    std::vector<std::shared_ptr<RecordingReceiver>> many;
    for (size_t i = 0; i <= DRAVUnitOutputPin::kExpectedMaxReceivers; ++i)
    {
        many.push_back(std::make_shared<RecordingReceiver>());
        pin->AddReceiver(many.back());
    }
    EXPECT_EQ(BreakIntoDebugger_GetCallCount(), breaksBefore + 1);
    unit->ProcessFrame(0, MakeFrame(0, 960));
    for (const auto& receiver : many)
        EXPECT_EQ(receiver->Timestamps().size(), 1u);
    pin->RemoveAllReceivers();
    EXPECT_EQ(pin->GetNumReceivers(), 0);
}

TEST_F(UnitTest, ReinitKeepsStateAndLiveReceivers)
{
    auto unit = MakeUnit("rebuilt", 0, 2);
    auto live = std::make_shared<RecordingReceiver>("live");
    auto expiring = std::make_shared<RecordingReceiver>("expiring");
    auto second = std::make_shared<RecordingReceiver>("second");
    unit->AddReceiver(0, expiring);
    unit->AddReceiver(0, live);
    unit->AddReceiver(1, second);
    ASSERT_EQ(unit->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
    auto formerPin = unit->GetOutputPin(0);
    expiring.reset();

    ASSERT_EQ(unit->Reinit(), kDRAVResultOk);
    EXPECT_EQ(unit->GetUnitState(), kDRAVUnitStateRunning);
    EXPECT_NE(unit->GetOutputPin(0), formerPin);
    EXPECT_EQ(unit->GetOutputPin(0)->GetNumReceivers(), 1);
    EXPECT_EQ(unit->GetConnectedPinOut0(), "live");
    EXPECT_EQ(unit->GetConnectedPinOut1(), "second");
    unit->ProcessFrame(1, MakeFrame(5, 960));
    EXPECT_EQ(second->Timestamps(), std::vector<int64_t>{5});

    // A failing Init is reported; putting back "Running" is then refused: the unit has no pins.
    unit->FailNextInit();
    EXPECT_EQ(unit->Reinit(), kDRAVResultErrInvalidFormat);
    EXPECT_EQ(unit->GetUnitState(), kDRAVUnitStateUninitialized);
    EXPECT_EQ(unit->GetOutputPin(0), nullptr);
}

TEST_F(UnitTest, ReinitAsyncFinishesAndKeepsTheUnitAlive)
{
    auto receiver = std::make_shared<RecordingReceiver>("kept");
    std::weak_ptr<DRAVUnit> watch;
    {
        auto unit = MakeUnit("async", 0, 1);
        unit->AddReceiver(0, receiver);
        unit->SetUnitState(kDRAVUnitStateRunning);
        watch = unit;
        ASSERT_EQ(unit->ReinitAsync(), kDRAVResultOk);
    }
    ASSERT_TRUE(DRAVUnit::WaitForPendingReinits(30000));
    EXPECT_TRUE(watch.expired());

    auto unit = MakeUnit("async2", 0, 1);
    unit->AddReceiver(0, receiver);
    unit->SetUnitState(kDRAVUnitStateRunning);
    ASSERT_EQ(unit->ReinitAsync(), kDRAVResultOk);
    ASSERT_TRUE(DRAVUnit::WaitForPendingReinits(30000));
    EXPECT_EQ(unit->GetUnitState(), kDRAVUnitStateRunning);
    EXPECT_EQ(unit->ProcessFrame(0, MakeFrame(7, 960)), kDRAVResultOk);
    EXPECT_EQ(receiver->Timestamps(), std::vector<int64_t>{7});
}

TEST_F(UnitTest, AutoStateRestoresTheSavedState)
{
    auto unit = MakeUnit("auto", 0, 0);
    unit->SetUnitState(kDRAVUnitStateRunning);
    {
        DRAVUnitAutoState saved(unit, true);
        unit->SetUnitState(kDRAVUnitStatePaused);
        EXPECT_EQ(saved.GetSavedState(), kDRAVUnitStateRunning);
    }
    EXPECT_EQ(unit->GetUnitState(), kDRAVUnitStateRunning);
    DRAVUnitAutoState empty(nullptr, false);
    EXPECT_EQ(empty.RestoreState(), kDRAVResultErrInvalidState);
}

TEST_F(UnitTest, PinStatisticsCountFramesAndGaps)
{
    DRAVUnitPinStatistics statistics;
    statistics.Reset();
    // 960 frames last 20000 us: back to back, then within a microsecond, then a 5 ms gap.
    statistics.AnalyzeFrame(MakeFrame(0, 960));
    statistics.AnalyzeFrame(MakeFrame(20000, 960));
    statistics.AnalyzeFrame(MakeFrame(40001, 960));
    EXPECT_EQ(statistics.discontinuities, 0);
    statistics.AnalyzeFrame(MakeFrame(65001, 960));
    EXPECT_EQ((std::vector<int64_t>{statistics.frames, statistics.bytes, statistics.discontinuities,
                                    statistics.discontinuitySum.Get(), statistics.nextExpectedTimestamp.Get(),
                                    statistics.lastTimestamp.Get()}),
              (std::vector<int64_t>{4, 4 * 960 * 8, 1, -5000, 85001, 65001}));
    statistics.AnalyzeFrame(nullptr);
    EXPECT_EQ(statistics.frames, 4);

    auto unit = MakeUnit("stats", 0, 1, kDRAVPinTypeNone, kDRAVPinTypePull);
    auto pin = unit->GetOutputPin(0);
    DRAVQueueStatistics queueStatistics;
    EXPECT_EQ(pin->GetQueueStatistics(&queueStatistics), kDRAVResultErrNoData);
    unit->ProcessFrame(0, MakeFrame(0, 960));
    EXPECT_TRUE(pin->IsActive());
    EXPECT_EQ(pin->GetQueueStatistics(&queueStatistics), kDRAVResultOk);
    EXPECT_EQ(queueStatistics.pinType, kDRAVPinTypePull);
    EXPECT_EQ(pin->GetStatistics().frames, 1);
    unit->ExecuteCommandProperty(kPropertyUnitResetPinStatistics);
    EXPECT_FALSE(pin->IsActive());
    EXPECT_EQ(pin->GetStatistics().frames, 0);

    auto none = MakeUnit("none", 0, 1, kDRAVPinTypeNone, kDRAVPinTypeNone);
    EXPECT_EQ(none->GetOutputPin(0)->GetQueueStatistics(&queueStatistics), kDRAVResultErrInvalidState);
}

TEST_F(UnitTest, ChildUnitsComeFromTheInstalledFactory)
{
    auto owner = MakeUnit("owner", 0, 0);
    std::vector<std::string> removed;
    std::vector<std::shared_ptr<PassFilter>> made;
    DRAVUnitFactory factory;
    factory.createFilter =
        [&](int32_t type, std::shared_ptr<DRAVUnit> unitOwner, bool init, std::shared_ptr<DRAVUnit>* out)
    {
        auto filter =
            std::make_shared<PassFilter>("filter " + std::to_string(type), DRAVFilterConfig{type, false});
        filter->SetOwner(unitOwner);
        if (init)
            filter->Init();
        made.push_back(filter);
        *out = filter;
        return DRAVResult();
    };
    factory.removeUnit = [&](const std::shared_ptr<DRAVUnit>& unit)
    { removed.push_back(unit->GetFriendlyName()); };
    DRAVUnitFactory::Install(factory);

    DRAVUnit::ChildUnit holder;
    auto receiver = std::make_shared<RecordingReceiver>();
    EXPECT_EQ(holder.StartUnit({5, 1}, owner, receiver, true), kDRAVResultErrInvalidParameter);
    EXPECT_EQ(holder.StartUnit({DRAVUnit::ChildUnitType::kCategorySink, 1}, owner, receiver, true),
              kDRAVResultErrUnknownUnit);
    ASSERT_EQ(holder.StartUnit({DRAVUnit::ChildUnitType::kCategoryFilter, 9}, owner, receiver, true),
              kDRAVResultOk);
    auto child = holder.GetUnit();
    ASSERT_NE(child, nullptr);
    child->SetUnitState(kDRAVUnitStateRunning);
    child->SendFrame(MakeFrame(3, 960));
    EXPECT_EQ(receiver->Timestamps(), std::vector<int64_t>{3});

    // A second start replaces the first child, which is removed and stopped.
    ASSERT_EQ(holder.StartUnit({DRAVUnit::ChildUnitType::kCategoryFilter, 10}, owner, nullptr, true),
              kDRAVResultOk);
    EXPECT_EQ(removed, std::vector<std::string>{"filter 9"});
    EXPECT_FALSE(made[0]->IsUnitInitialized());
    EXPECT_EQ(holder.StopUnit(owner), kDRAVResultOk);
    EXPECT_EQ(removed, (std::vector<std::string>{"filter 9", "filter 10"}));
    EXPECT_EQ(holder.GetUnit(), nullptr);

    // Deinit of an owner hands its owned children back to the factory.
    auto owned = std::make_shared<PassFilter>("owned", DRAVFilterConfig{9, false});
    owned->Init();
    owned->SetOwner(owner);
    owner->AddChild(owned);
    owner->Deinit();
    EXPECT_EQ(removed.back(), "owned");
    EXPECT_FALSE(owned->IsUnitInitialized());
}
