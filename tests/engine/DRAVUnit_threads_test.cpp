#include "engine/units/DRAVUnit.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/UnitTestSupport.h"

using namespace unittest;

namespace
{
class UnitThreadsTest : public ::testing::Test
{
protected:
    void TearDown() override { EXPECT_TRUE(DRAVUnit::WaitForPendingReinits(60000)); }

    EngineEnvironment environment_;
};

// Remembers the name of the thread each frame came on.
class NamingReceiver : public RecordingReceiver
{
public:
    DRAVResult MediaBufferReceived(std::shared_ptr<DRAVObject> sender,
                                   std::shared_ptr<DRAVMediaBuffer> frame) override
    {
        char name[32] = {};
        pthread_getname_np(pthread_self(), name, sizeof(name));
        {
            std::lock_guard<std::mutex> lock(nameMutex_);
            lastName_ = name;
        }
        if (slowdown_.count() > 0)
            std::this_thread::sleep_for(slowdown_);
        return RecordingReceiver::MediaBufferReceived(std::move(sender), std::move(frame));
    }
    std::string LastName()
    {
        std::lock_guard<std::mutex> lock(nameMutex_);
        return lastName_;
    }
    std::chrono::milliseconds slowdown_{0};

private:
    std::mutex nameMutex_;
    std::string lastName_;
};
}  // namespace

TEST_F(UnitThreadsTest, ThreadedInputPinDeliversOnItsWorker)
{
    auto filter = std::make_shared<PassFilter>("worker", DRAVFilterConfig{9, false}, kDRAVPinTypeThreaded);
    ASSERT_EQ(filter->Init(), kDRAVResultOk);
    auto receiver = std::make_shared<NamingReceiver>();
    filter->AddReceiver(0, receiver);
    std::vector<int64_t> expected;
    for (int64_t stamp = 0; stamp < 20 * 20000; stamp += 20000)
    {
        ASSERT_EQ(filter->SendFrame(MakeFrame(stamp, 960)), kDRAVResultOk);
        expected.push_back(stamp);
    }
    ASSERT_TRUE(receiver->WaitFor(20, 30000));
    EXPECT_EQ(receiver->Timestamps(), expected);
    EXPECT_NE(receiver->LastThread(), std::this_thread::get_id());
    EXPECT_EQ(receiver->LastName().rfind("TBQ - ", 0), 0u) << receiver->LastName();
    filter->Deinit();
}

TEST_F(UnitThreadsTest, BlockingPinLosesNothingToASlowConsumer)
{
    auto sink = std::make_shared<PassFilter>("slow", DRAVFilterConfig{9, true}, kDRAVPinTypeThreadedBlocking);
    ASSERT_EQ(sink->Init(), kDRAVResultOk);
    auto receiver = std::make_shared<NamingReceiver>();
    receiver->slowdown_ = std::chrono::milliseconds(1);
    sink->AddReceiver(0, receiver);
    // Far more than the queue holds: the producer waits for room instead of dropping.
    constexpr int kFrames = 100;
    for (int i = 0; i < kFrames; ++i)
        ASSERT_EQ(sink->SendFrame(MakeFrame(i, 960)), kDRAVResultOk);
    ASSERT_TRUE(receiver->WaitFor(kFrames, 60000));
    const auto stamps = receiver->Timestamps();
    ASSERT_EQ(stamps.size(), static_cast<size_t>(kFrames));
    for (int i = 0; i < kFrames; ++i)
        ASSERT_EQ(stamps[i], i);
    sink->Deinit();
}

TEST_F(UnitThreadsTest, ThreadedOutputPinServesItsReceivers)
{
    auto sink = std::make_shared<RecordingSink>("end", DRAVSinkConfig{}, 1, kDRAVPinTypePassthrough);
    ASSERT_EQ(sink->Init(), kDRAVResultOk);
    auto producer = std::make_shared<PlainSource>("producer", 2);
    ASSERT_EQ(producer->InitSource(kDRAVPinTypeThreaded), kDRAVResultOk);
    // Pin 0 became the ring; pin 1 kept its worker.
    ASSERT_EQ(producer->GetOutputPin(1)->GetPinType(), kDRAVPinTypeThreaded);
    producer->AddReceiver(1, sink->GetInputPin(0));
    for (int i = 0; i < 5; ++i)
        ASSERT_EQ(producer->ProcessFrame(1, MakeFrame(i * 20000, 960)), kDRAVResultOk);
    ASSERT_TRUE(sink->WaitFor(5, 30000));
    producer->Deinit();
}

// Frames keep coming from two producer threads while a control thread pauses,
// resumes, rebuilds and de-initialises the unit. Nothing may crash, hang or
// deliver into a unit after it has let go of its pins.
TEST_F(UnitThreadsTest, FramesDuringStateChangesAndTeardown)
{
    for (DRAVPinType input : {kDRAVPinTypeThreaded, kDRAVPinTypePassthrough, kDRAVPinTypeThreadedBlocking})
    {
        auto parent = std::make_shared<PassFilter>("parent", DRAVFilterConfig{9, false}, input);
        ASSERT_EQ(parent->Init(), kDRAVResultOk);
        auto child = std::make_shared<PassFilter>("child", DRAVFilterConfig{10, false}, input);
        ASSERT_EQ(child->Init(), kDRAVResultOk);
        child->SetOwner(parent);
        parent->AddChild(child);
        parent->AddReceiver(0, child->GetInputPin(0));
        auto receiver = std::make_shared<NamingReceiver>();
        child->AddReceiver(0, receiver);

        std::atomic<bool> stop{false};
        std::atomic<int64_t> accepted{0};
        std::atomic<int64_t> refused{0};
        std::vector<std::thread> producers;
        for (int p = 0; p < 2; ++p)
        {
            producers.emplace_back(
                [&, p]
                {
                    int64_t stamp = p;
                    while (!stop.load())
                    {
                        DRAVResult result = parent->SendFrame(MakeFrame(stamp, 960));
                        stamp += 2;
                        if (result.Succeeded())
                            ++accepted;
                        else
                        {
                            // The only refusals allowed while the unit is rebuilt.
                            EXPECT_TRUE(result == kDRAVResultErrNotInitialized ||
                                        result == kDRAVResultErrNullPointer)
                                << result.toString();
                            ++refused;
                        }
                    }
                });
        }

        std::thread control(
            [&]
            {
                for (int round = 0; round < 30; ++round)
                {
                    parent->SetUnitState(kDRAVUnitStateRunning);
                    parent->SetUnitState(kDRAVUnitStatePaused);
                    if (round % 3 == 0)
                    {
                        parent->Reinit();
                        child->Reinit();
                    }
                    if (round % 5 == 0)
                        parent->ReinitAsync();
                    if (round % 7 == 6)
                    {
                        child->Deinit();
                        child->Init();
                        child->AddReceiver(0, receiver);
                    }
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                }
            });
        control.join();
        ASSERT_TRUE(DRAVUnit::WaitForPendingReinits(60000));
        // Teardown while the producers still send.
        parent->Deinit();
        EXPECT_FALSE(parent->IsUnitInitialized());
        EXPECT_EQ(parent->SendFrame(MakeFrame(0, 960)), kDRAVResultErrNotInitialized);
        stop.store(true);
        for (auto& producer : producers)
            producer.join();
        EXPECT_GT(accepted.load(), 0) << DRAVPinTypeString(input);
        // A rebuild of the parent let go of its children; this one is ended here.
        EXPECT_FALSE(parent->HasChild(child->GetObjectID()));
        child->Deinit();
        EXPECT_FALSE(child->IsUnitInitialized());
    }
}

// The last owner lets go of a unit while its pin worker is busy with a frame:
// the worker keeps the unit alive for the call, and no worker outlives it.
TEST_F(UnitThreadsTest, UnitReleasedWhileItsWorkerDelivers)
{
    for (int round = 0; round < 20; ++round)
    {
        auto receiver = std::make_shared<NamingReceiver>();
        receiver->slowdown_ = std::chrono::milliseconds(2);
        std::weak_ptr<DRAVUnit> watch;
        {
            auto filter =
                std::make_shared<PassFilter>("released", DRAVFilterConfig{9, false}, kDRAVPinTypeThreaded);
            ASSERT_EQ(filter->Init(), kDRAVResultOk);
            filter->AddReceiver(0, receiver);
            for (int i = 0; i < 5; ++i)
                filter->SendFrame(MakeFrame(i, 960));
            watch = filter;
        }
        // The unit ends with the last reference, on this thread or the worker's.
        for (int wait = 0; wait < 3000 && !watch.expired(); ++wait)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        EXPECT_TRUE(watch.expired());
    }
}

// Two threads change a parent's state while a third de-initialises it.
TEST_F(UnitThreadsTest, StateChangesRacingDeinitEndUninitialised)
{
    for (int round = 0; round < 50; ++round)
    {
        auto parent = std::make_shared<PassFilter>("racer", DRAVFilterConfig{9, false});
        ASSERT_EQ(parent->Init(), kDRAVResultOk);
        for (int c = 0; c < 3; ++c)
        {
            auto child = std::make_shared<PassFilter>("kid", DRAVFilterConfig{9, false});
            child->Init();
            parent->AddChild(child);
        }
        std::atomic<bool> go{false};
        std::thread a(
            [&]
            {
                while (!go.load())
                {
                }
                for (int i = 0; i < 20; ++i)
                    parent->SetUnitState(i % 2 ? kDRAVUnitStatePaused : kDRAVUnitStateRunning);
            });
        std::thread b(
            [&]
            {
                while (!go.load())
                {
                }
                parent->Deinit();
            });
        go.store(true);
        a.join();
        b.join();
        // A state change never brings a de-initialised unit back to life.
        EXPECT_EQ(parent->GetUnitState(), kDRAVUnitStateUninitialized);
        EXPECT_EQ(parent->GetInputPin(0), nullptr);
    }
}
