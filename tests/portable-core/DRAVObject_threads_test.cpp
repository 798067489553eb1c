#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <latch>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "PropertyTestObjects.h"
#include "portable-core/DRAVObject.h"
#include "portable-core/KVCMapBuilder.h"
#include "portable-core/KVObserverDelegate.h"

using namespace property_test;

namespace
{
std::atomic<int> gLateBaseBuilds{0};
std::atomic<int> gLateDerivedBuilds{0};

// Counts how often a class map is built, and takes its time doing so, so that
// every thread arrives while the first build is still under way.
KVCProperty* SlowlyMadeDescriptor(std::atomic<int>& builds, const char* name)
{
    ++builds;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return new KVOProperty(name);
}

class LateBase : public DRAVObject
{
public:
    explicit LateBase(KVCMap* map = nullptr)
        : DRAVObject("late", map != nullptr ? map : GetMyObjectProperties())
    {
    }
    static KVCMap* GetMyObjectProperties()
    {
        static KVCMap* const sClassProperties =
            KVCMapBuilder<LateBase>(DRAVObject::GetMyObjectProperties())
                .Add(SlowlyMadeDescriptor(gLateBaseBuilds, "Late Base Marker"))
                .Int(kPropertyAudioBufferSizeFrameCount, &LateBase::SetFrames, &LateBase::GetFrames)
                .Build();
        return sClassProperties;
    }
    void SetFrames(int64_t frames) { frames_ = frames; }
    int64_t GetFrames() const { return frames_; }

private:
    std::atomic<int64_t> frames_{0};
};

class LateDerived : public LateBase
{
public:
    LateDerived() : LateBase(GetMyObjectProperties()) {}
    static KVCMap* GetMyObjectProperties()
    {
        static KVCMap* const sClassProperties =
            KVCMapBuilder<LateDerived>(LateBase::GetMyObjectProperties())
                .Add(SlowlyMadeDescriptor(gLateDerivedBuilds, "Late Derived Marker"))
                .CommonObserver()
                .Build();
        return sClassProperties;
    }
};

TEST(DRAVObjectThreadsTest, ConcurrentFirstUseBuildsEachClassMapOnceAndIdsStayDistinct)
{
    constexpr int kThreads = 8;
    std::latch start(kThreads);
    std::vector<KVCMap*> baseMaps(kThreads, nullptr);
    std::vector<KVCMap*> derivedMaps(kThreads, nullptr);
    std::vector<size_t> baseSizes(kThreads, 0);
    std::vector<size_t> derivedSizes(kThreads, 0);
    std::vector<int64_t> frames(kThreads, -1);
    std::vector<std::vector<std::string>> ids(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
    {
        threads.emplace_back(
            [&, i]
            {
                start.arrive_and_wait();
                // Half the threads come in through the subclass, half through the base.
                if (i % 2 == 0)
                {
                    derivedMaps[i] = LateDerived::GetMyObjectProperties();
                    derivedSizes[i] = derivedMaps[i]->size();
                    baseMaps[i] = LateBase::GetMyObjectProperties();
                }
                else
                {
                    baseMaps[i] = LateBase::GetMyObjectProperties();
                    derivedMaps[i] = LateDerived::GetMyObjectProperties();
                    derivedSizes[i] = derivedMaps[i]->size();
                }
                baseSizes[i] = baseMaps[i]->size();
                LateDerived object;
                object.SetIntProperty(kPropertyAudioBufferSizeFrameCount, 100 + i);
                frames[i] = object.GetIntProperty(kPropertyAudioBufferSizeFrameCount);
                for (int n = 0; n < 200; ++n)
                {
                    ids[i].push_back(std::make_shared<DRAVObject>("o")->GetObjectID());
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(gLateBaseBuilds, 1);
    EXPECT_EQ(gLateDerivedBuilds, 1);
    for (int i = 0; i < kThreads; ++i)
    {
        EXPECT_EQ(baseMaps[i], baseMaps[0]);
        EXPECT_EQ(derivedMaps[i], derivedMaps[0]);
        EXPECT_EQ(baseSizes[i], 4u);     // Object ID, Friendly Name, marker, buffer size
        EXPECT_EQ(derivedSizes[i], 6u);  // and the marker and the common observer
        EXPECT_EQ(frames[i], 100 + i);
    }
    EXPECT_EQ(derivedMaps[0]->Find(kPropertyAudioBufferSizeFrameCount),
              baseMaps[0]->Find(kPropertyAudioBufferSizeFrameCount));
    // Objects made on many threads at once have distinct ids.
    std::set<std::string> all;
    for (const auto& list : ids)
    {
        all.insert(list.begin(), list.end());
    }
    EXPECT_EQ(all.size(), static_cast<size_t>(kThreads * 200));
}

// Thread-safe tally of what it is told.
class CountingObserver : public KVObserver
{
public:
    using KVObserver::UpdateObserver;
    void UpdateObserver(const std::string& objectId, DRAVPropertyKVPair pair, KVCProperty*) override
    {
        ++calls;
        if (pair.GetDouble() < 0.0)
        {
            ++badValues;
        }
        std::lock_guard<std::mutex> lock(mutex_);
        ids_.insert(objectId);
    }
    std::set<std::string> Ids() const
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return ids_;
    }
    std::atomic<int> calls{0};
    std::atomic<int> badValues{0};

private:
    mutable std::mutex mutex_;
    std::set<std::string> ids_;
};

TEST(DRAVObjectThreadsTest, ConcurrentSetsWithObservers)
{
    constexpr int kSetters = 4;
    constexpr int kSetsEach = 400;
    std::vector<std::shared_ptr<TestMixer>> mixers;
    for (int i = 0; i < kSetters; ++i)
    {
        mixers.push_back(std::make_shared<TestMixer>("mixer " + std::to_string(i)));
    }
    auto counter = std::make_shared<CountingObserver>();
    auto common = std::make_shared<CountingObserver>();
    auto churned = std::make_shared<CountingObserver>();
    mixers[0]->AddObserver(KVOItem::Weak(counter), kPropertyNodeGain);
    mixers[0]->AddObserver(KVOItem::Shared(common), "");

    std::atomic<bool> settersDone{false};
    std::latch start(kSetters + 2);
    std::vector<std::thread> threads;
    for (int t = 0; t < kSetters; ++t)
    {
        threads.emplace_back(
            [&, t]
            {
                start.arrive_and_wait();
                for (int i = 1; i <= kSetsEach; ++i)
                {
                    // Each value differs from the last, so every set notifies.
                    mixers[t]->SetDoubleProperty(kPropertyNodeGain, i * 0.001);
                    // A property shared by all threads' sets, where equal values race.
                    mixers[0]->SetBoolProperty(kPropertyNodeMute, (i + t) % 2 == 0);
                }
            });
    }
    // Observers come and go while the sets run.
    threads.emplace_back(
        [&]
        {
            start.arrive_and_wait();
            while (!settersDone)
            {
                mixers[1]->AddObserver(KVOItem::Weak(churned), kPropertyNodeGain);
                mixers[2]->RemoveObserver(KVOItem::Weak(churned), kPropertyNodeGain);
                std::this_thread::yield();
            }
        });
    // Readers: values, listings and observer queries from yet another thread.
    threads.emplace_back(
        [&]
        {
            start.arrive_and_wait();
            while (!settersDone)
            {
                for (const auto& mixer : mixers)
                {
                    EXPECT_GE(mixer->GetDoubleProperty(kPropertyNodeGain), 0.0);
                    (void)mixer->HasObserver(kPropertyNodeGain);
                }
                (void)mixers[3]->GetPropertyMap()->GetContentString(mixers[3], "");
                std::this_thread::yield();
            }
        });
    for (int t = 0; t < kSetters; ++t)
    {
        threads[t].join();
    }
    settersDone = true;
    for (size_t t = kSetters; t < threads.size(); ++t)
    {
        threads[t].join();
    }

    EXPECT_EQ(counter->calls, kSetters * kSetsEach);
    EXPECT_EQ(counter->badValues, 0);
    EXPECT_EQ(counter->Ids().size(), static_cast<size_t>(kSetters));
    // The common observer hears every gain change plus the mute changes that
    // weren't equal to the value just before.
    EXPECT_GE(common->calls, kSetters * kSetsEach);
    for (const auto& mixer : mixers)
    {
        EXPECT_DOUBLE_EQ(mixer->GetDoubleProperty(kPropertyNodeGain), kSetsEach * 0.001);
    }

    // The observer lists are class-wide: leave them as found.
    mixers[0]->RemoveObserver(KVOItem::Weak(counter), kPropertyNodeGain);
    mixers[0]->RemoveObserver(KVOItem::Shared(common), "");
    mixers[0]->RemoveObserver(KVOItem::Weak(churned), kPropertyNodeGain);
}

TEST(DRAVObjectThreadsTest, DelegateFunctionSwappedWhileNotifying)
{
    auto node = std::make_shared<TestNode>("node");
    auto delegate = std::make_shared<KVObserverDelegate>();
    std::atomic<int> firstCalls{0};
    std::atomic<int> secondCalls{0};
    node->AddObserver(KVOItem::Weak(delegate), kPropertyAudioBufferSizeFrameCount);
    delegate->SetCallback([&](void*, const std::string&, DRAVPropertyKVPair, KVCProperty*) { ++secondCalls; },
                          nullptr);
    std::atomic<bool> done{false};
    std::thread setter(
        [&]
        {
            for (int i = 1; i <= 2000; ++i)
            {
                node->SetIntProperty(kPropertyAudioBufferSizeFrameCount, i);
            }
            done = true;
        });
    for (bool useFirst = true; !done; useFirst = !useFirst)
    {
        std::atomic<int>& target = useFirst ? firstCalls : secondCalls;
        delegate->SetCallback(
            [&target](void*, const std::string&, DRAVPropertyKVPair, KVCProperty*) { ++target; }, nullptr);
        std::this_thread::yield();
    }
    setter.join();
    // Every change reached exactly one of the two functions.
    EXPECT_EQ(firstCalls + secondCalls, 2000);
    node->RemoveObserver(KVOItem::Weak(delegate), kPropertyAudioBufferSizeFrameCount);
}

TEST(DRAVObjectThreadsTest, ObserverListStaysLockedForTheWholeWalk)
{
    auto node = std::make_shared<TestNode>("node");
    KVCProperty* gain = node->FindProperty(kPropertyNodeGain);
    ASSERT_NE(gain, nullptr);
    std::latch inCallback(1);
    std::latch release(1);
    std::atomic<int> calls{0};
    KVObserverDelegate blocker(
        [&](void*, const std::string&, DRAVPropertyKVPair, KVCProperty*)
        {
            if (calls++ == 0)
            {
                inCallback.count_down();
                release.wait();
            }
        },
        nullptr);
    KVObserverDelegate latecomer;
    node->AddObserver(KVOItem::Raw(&blocker), kPropertyNodeGain);

    std::thread setter([&] { node->SetDoubleProperty(kPropertyNodeGain, 0.5); });
    inCallback.wait();
    // While an observer runs, another thread can neither change the list nor
    // start a walk of its own.
    // Runs `call` on a thread of its own and notes when it is over.
    auto inBackground = [](std::atomic<bool>& done, std::function<void()> call)
    {
        return std::thread(
            [&done, call]
            {
                call();
                done = true;
            });
    };
    std::atomic<bool> added{false};
    std::atomic<bool> secondSetDone{false};
    std::thread adder =
        inBackground(added, [&] { node->AddObserver(KVOItem::Raw(&latecomer), kPropertyNodeGain); });
    std::thread secondSetter =
        inBackground(secondSetDone, [&] { node->SetDoubleProperty(kPropertyNodeGain, 0.75); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(added);
    EXPECT_FALSE(secondSetDone);
    EXPECT_EQ(calls, 1);
    release.count_down();
    setter.join();
    adder.join();
    secondSetter.join();
    EXPECT_TRUE(added);
    EXPECT_EQ(calls, 2);

    // A caller may hold the list itself: a set then waits to notify.
    gain->LockObserver();
    std::atomic<bool> thirdSetDone{false};
    std::thread thirdSetter =
        inBackground(thirdSetDone, [&] { node->SetDoubleProperty(kPropertyNodeGain, 0.25); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(thirdSetDone);
    EXPECT_EQ(calls, 2);
    gain->UnLockObserver();
    thirdSetter.join();
    EXPECT_EQ(calls, 3);

    node->RemoveObserver(KVOItem::Raw(&blocker), kPropertyNodeGain);
    node->RemoveObserver(KVOItem::Raw(&latecomer), kPropertyNodeGain);
}

}  // namespace
