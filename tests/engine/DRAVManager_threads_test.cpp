#include "engine/DRAVManager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/Platform.h"
#include "platform/sim/SimPlatform.h"
#include "support/ManagerTestSupport.h"
#include "support/ThreadsTestSupport.h"
#include "support/UnitTestSupport.h"

using namespace unittest;

namespace
{
using tidemix::platform::Platform;
using tidemix::platform::sim::SimPlatform;

constexpr int kWorkers = 4;
constexpr int kRounds = 40;

void InstallPlainSourceMaker()
{
    DRAVPlatformUnitMakers makers;
    makers.platformSource = [](const DRAVSourceConfig& config) -> std::shared_ptr<DRAVSource>
    { return config.type == 2 ? std::make_shared<PlainSource>("plain source") : nullptr; };
    DRAVPlatformUnitMakers::Install(makers);
}
}  // namespace

TEST(ManagerThreads, UnitsComeAndGoFromManyThreads)
{
    ManagerEnvironment environment;
    DRAVManager& manager = environment.Manager();
    InstallPlainSourceMaker();
    ASSERT_EQ(manager.Init(), kDRAVResultOk);

    std::atomic<bool> stop{false};
    std::atomic<int> failures{0};
    // A reader walks the registry the whole time: lists, dumps, properties.
    std::thread reader(
        [&]
        {
            while (!stop.load())
            {
                for (const auto& unit : manager.GetActiveUnitList())
                {
                    manager.GetIntProperty(unit->GetObjectID(), kPropertySourceAudioDelay);
                    manager.GetSiblings(unit->GetObjectID());
                }
                manager.GetActiveUnits(true);
                manager.DumpActiveUnitListGetString(true);
                std::this_thread::yield();
            }
        });

    std::vector<std::thread> workers;
    for (int worker = 0; worker < kWorkers; ++worker)
    {
        workers.emplace_back(
            [&]
            {
                for (int round = 0; round < kRounds; ++round)
                {
                    std::shared_ptr<DRAVSource> source;
                    if (!manager.CreateSource(DRAVSourceConfig{2, 1}, &source, nullptr, true).Succeeded())
                    {
                        failures.fetch_add(1);
                        continue;
                    }
                    source->StartAudioLevelmeter();
                    std::shared_ptr<DRAVFilter> delay;
                    manager.CreateFilter(DRAVFilterConfig{9, false}, &delay, source, true);
                    manager.SetUnitState(source->GetObjectID(), kDRAVUnitStateRunning);
                    std::shared_ptr<DRAVFilter> found;
                    if (!manager.FindFilter(9, &found, source).Succeeded() || found != delay)
                    {
                        failures.fetch_add(1);
                    }
                    if (!manager.IsActiveUnit(source->GetObjectID()))
                    {
                        failures.fetch_add(1);
                    }
                    if (delay && !manager.RemoveUnit(delay).Succeeded())
                    {
                        failures.fetch_add(1);
                    }
                    source->Deinit();
                    if (!manager.RemoveUnit(source).Succeeded())
                    {
                        failures.fetch_add(1);
                    }
                }
            });
    }
    for (auto& worker : workers)
    {
        worker.join();
    }
    stop.store(true);
    reader.join();

    EXPECT_EQ(failures.load(), 0);
    EXPECT_TRUE(manager.GetActiveUnitList().empty());
    manager.Deinit();
}

TEST(ManagerThreads, DeinitWhileUnitsRunThenInitAgain)
{
    ManagerEnvironment environment;
    DRAVManager& manager = environment.Manager();
    InstallPlainSourceMaker();
    ASSERT_EQ(manager.Init(), kDRAVResultOk);

    std::vector<std::shared_ptr<DRAVSource>> sources;
    for (int i = 0; i < 3; ++i)
    {
        std::shared_ptr<DRAVSource> source;
        ASSERT_EQ(manager.CreateSource(DRAVSourceConfig{2, 1}, &source, nullptr, true), kDRAVResultOk);
        ASSERT_EQ(source->StartAudioLevelmeter(), kDRAVResultOk);
        std::shared_ptr<DRAVFilter> delay;
        ASSERT_EQ(manager.CreateFilter(DRAVFilterConfig{9, false}, &delay, source, true), kDRAVResultOk);
        ASSERT_EQ(source->SetUnitState(kDRAVUnitStateRunning), kDRAVResultOk);
        sources.push_back(source);
    }
    // Frames keep arriving at the meters and delays while the engine goes down.
    std::atomic<bool> stop{false};
    std::thread sender(
        [&]
        {
            int64_t stamp = 0;
            while (!stop.load())
            {
                for (const auto& source : sources)
                {
                    if (auto meter = source->GetAudioLevelmeter())
                    {
                        meter->SendFrame(MakeFrame(stamp, 960, 0.1f));
                    }
                    for (const auto& child : source->GetChildren())
                    {
                        child->SendFrame(MakeFrame(stamp, 960, 0.1f));
                    }
                }
                stamp += 20000;
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    manager.Deinit();
    stop.store(true);
    sender.join();

    for (const auto& source : sources)
    {
        EXPECT_FALSE(source->IsUnitInitialized());
        EXPECT_TRUE(source->GetChildren().empty());
    }
    EXPECT_TRUE(manager.GetActiveUnitList().empty());

    ASSERT_EQ(manager.Init(), kDRAVResultOk);
    std::shared_ptr<DRAVSource> fresh;
    ASSERT_EQ(manager.CreateSource(DRAVSourceConfig{2, 1}, &fresh, nullptr, true), kDRAVResultOk);
    EXPECT_EQ(fresh->StartAudioLevelmeter(), kDRAVResultOk);
    EXPECT_EQ(manager.GetActiveUnitList().size(), 2u);
    manager.Deinit();
}

TEST(ManagerThreads, WaitingForALostSource)
{
    ManagerEnvironment environment;
    DRAVManager& manager = environment.Manager();
    auto platform = std::make_shared<SimPlatform>();
    Platform::Use(platform);
    auto subject = std::make_shared<TestDeviceSubject>();
    InstallPlainSourceMaker();
    DRAVPlatformUnitMakers makers = DRAVPlatformUnitMakers::Current();
    makers.deviceObserverSubjects = [subject]
    { return std::vector<std::shared_ptr<DRAVDeviceObserverSubjectInterface>>{subject}; };
    DRAVPlatformUnitMakers::Install(makers);
    ASSERT_EQ(manager.Init(), kDRAVResultOk);
    CountingObserver outside;
    ASSERT_EQ(manager.GetDeviceChangeHandler().AttachObserver(&outside, false), kDRAVResultOk);

    std::shared_ptr<DRAVSource> source;
    ASSERT_EQ(manager.CreateSource(DRAVSourceConfig{2, 1}, &source, nullptr, true), kDRAVResultOk);
    source->Deinit();
    const auto active = manager.GetActiveSources(false);
    ASSERT_EQ(active.size(), 1u);

    // The device never comes back: the others are told when time is up.
    manager.GetDeviceChangeHandler().WaitForReappearanceAsync(active[0], DRAVDuration(600000));
    EXPECT_TRUE(threads_test::WaitUntil([&] { return !manager.GetDeviceChangeHandler().IsWaiting(); }));
    EXPECT_EQ(outside.Count(), 1);
    EXPECT_FALSE(source->IsUnitInitialized());

    // It comes back: the source is made again.
    manager.GetDeviceChangeHandler().WaitForReappearanceAsync(active[0], DRAVDuration(20000000));
    subject->SetDevices({DRAVSourceDescriptor(2, 1, "Camera", "", "")});
    EXPECT_TRUE(threads_test::WaitUntil([&] { return !manager.GetDeviceChangeHandler().IsWaiting(); }));
    EXPECT_TRUE(source->IsUnitInitialized());
    EXPECT_EQ(outside.Count(), 1);

    // Deinit ends a wait at once.
    subject->SetDevices({});
    manager.GetDeviceChangeHandler().WaitForReappearanceAsync(active[0], DRAVDuration(60000000));
    EXPECT_TRUE(manager.GetDeviceChangeHandler().IsWaiting());
    ASSERT_EQ(manager.GetDeviceChangeHandler().DetachObserver(&outside, false), kDRAVResultOk);
    const auto start = std::chrono::steady_clock::now();
    manager.Deinit();
    EXPECT_LT(threads_test::SecondsSince(start), 10.0);
    EXPECT_FALSE(manager.GetDeviceChangeHandler().IsWaiting());
    Platform::Use(nullptr);
}
