#include "engine/DRAVManager.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "engine/filters/DRAVAudioLevelmeter.h"
#include "engine/filters/DRAVFilterDelay.h"
#include "engine/media/DRAVAudioBuffer.h"
#include "engine/sinks/DRAVSinkAudioRendererAudioUnit.h"
#include "engine/sinks/DRAVSinkMakers.h"
#include "engine/sinks/DRAVSinkPreview.h"
#include "platform/Platform.h"
#include "platform/sim/SimPlatform.h"
#include "portable-core/KVCMapBuilder.h"
#include "support/ManagerTestSupport.h"
#include "support/UnitTestSupport.h"

using namespace unittest;

namespace
{
using tidemix::platform::Platform;
using tidemix::platform::sim::SimDeviceSpec;
using tidemix::platform::sim::SimPlatform;

constexpr DRAVSourceConfig kPlainSourceConfig{2, 1};

// A filter whose class lets observers hear of every property change.
class ObservableFilter : public DRAVFilter
{
public:
    explicit ObservableFilter(const DRAVFilterConfig& config)
        : DRAVFilter("ObservableFilter", ObservableFilter::GetMyObjectProperties(), config, 1, 1)
    {
    }
    static KVCMap* GetMyObjectProperties()
    {
        static KVCMap* const sMap =
            KVCMapBuilder<ObservableFilter>(DRAVUnit::GetMyObjectProperties())
                .Int(kPropertySourceAudioDelay, &ObservableFilter::SetValue, &ObservableFilter::GetValue)
                .CommonObserver()
                .Build();
        return sMap;
    }
    void SetValue(int64_t value) { value_ = value; }
    int64_t GetValue() { return value_; }

private:
    int64_t value_ = 0;
};

class ManagerTest : public ::testing::Test
{
protected:
    // Platform makers for a plain source (type 2), a recording sink (type 5)
    // and an observable filter (type 20).
    static void InstallTestMakers()
    {
        DRAVPlatformUnitMakers makers;
        makers.platformSource = [](const DRAVSourceConfig& config) -> std::shared_ptr<DRAVSource> {
            return config.type == kPlainSourceConfig.type ? std::make_shared<PlainSource>("plain source")
                                                          : nullptr;
        };
        makers.platformSink = [](const DRAVSinkConfig& config) -> std::shared_ptr<DRAVSink>
        {
            return config.type == DRAVSink::kTypeAudioRenderer
                       ? std::make_shared<RecordingSink>("recording sink", config)
                       : nullptr;
        };
        makers.platformFilter = [](const DRAVFilterConfig& config) -> std::shared_ptr<DRAVFilter>
        { return config.type == 20 ? std::make_shared<ObservableFilter>(config) : nullptr; };
        DRAVPlatformUnitMakers::Install(makers);
    }

    std::shared_ptr<DRAVSource> MakeSource()
    {
        std::shared_ptr<DRAVSource> source;
        EXPECT_EQ(manager_.CreateSource(kPlainSourceConfig, &source, nullptr, true), kDRAVResultOk);
        return source;
    }

    std::shared_ptr<DRAVFilter> MakeFilter(DRAVFilterType type, std::shared_ptr<DRAVUnit> owner = nullptr,
                                           bool init = true)
    {
        std::shared_ptr<DRAVFilter> filter;
        EXPECT_EQ(manager_.CreateFilter(DRAVFilterConfig{type, false}, &filter, std::move(owner), init),
                  kDRAVResultOk);
        return filter;
    }

    std::shared_ptr<DRAVSink> MakeRendererSink(bool useDefaultRouting = false)
    {
        DRAVSinkConfig renderer;
        renderer.type = DRAVSink::kTypeAudioRenderer;
        renderer.useDefaultRouting = useDefaultRouting;
        std::shared_ptr<DRAVSink> sink;
        EXPECT_EQ(manager_.CreateSink(renderer, &sink, nullptr, true), kDRAVResultOk);
        return sink;
    }

    ManagerEnvironment environment_;
    DRAVManager& manager_ = environment_.Manager();
};

// The test makers installed and the manager initialised.
class ReadyManagerTest : public ManagerTest
{
protected:
    void SetUp() override
    {
        InstallTestMakers();
        ASSERT_EQ(manager_.Init(), kDRAVResultOk);
    }
};
}  // namespace

TEST_F(ManagerTest, SinksComeFromThePlatformThenTheDefaults)
{
    DRAVPlatformUnitMakers::Install(DRAVPlatformUnitMakers{});
    ASSERT_EQ(manager_.Init(), kDRAVResultOk);
    DRAVSinkConfig preview;
    preview.type = DRAVSink::kTypePreview;
    std::shared_ptr<DRAVSink> sink;
    EXPECT_EQ(manager_.CreateSink(preview, &sink, nullptr, false), kDRAVResultErrUnknownUnit);
    EXPECT_EQ(sink, nullptr);

    DRAVInstallSinkMakers();
    ASSERT_EQ(manager_.CreateSink(preview, &sink, nullptr, false), kDRAVResultOk);
    ASSERT_NE(std::dynamic_pointer_cast<DRAVSinkPreview>(sink), nullptr);
    EXPECT_FALSE(sink->IsUnitInitialized());
    EXPECT_TRUE(manager_.IsActiveUnit(sink->GetObjectID()));

    // A type nobody makes leaves `out` alone.
    std::shared_ptr<DRAVSink> untouched = sink;
    DRAVSinkConfig unknown;
    unknown.type = 3;
    EXPECT_EQ(manager_.CreateSink(unknown, &untouched, nullptr, true), kDRAVResultErrUnknownUnit);
    EXPECT_EQ(untouched, sink);
    // The preview sink's own renderers have no class here, so its Init fails
    // and the caller gets nothing.
    std::shared_ptr<DRAVSink> failed;
    EXPECT_EQ(manager_.CreateSink(preview, &failed, nullptr, true), kDRAVResultErrUnknownUnit);
    EXPECT_EQ(failed, nullptr);

    DRAVSinkConfig audioRenderer;
    audioRenderer.type = DRAVSink::kTypeAudioRenderer;
    ASSERT_EQ(manager_.CreateSink(audioRenderer, &sink, nullptr, false), kDRAVResultOk);
    EXPECT_NE(std::dynamic_pointer_cast<DRAVSinkAudioRendererAudioUnit>(sink), nullptr);
    EXPECT_EQ(manager_.GetActiveSinks(false).size(), 2u);
    ASSERT_EQ(manager_.RemoveUnit(sink), kDRAVResultOk);  // out of the way of the next FindSink

    // A platform maker installed later serves its type; the default stays.
    DRAVPlatformUnitMakers makers = DRAVPlatformUnitMakers::Current();
    makers.platformSink = [](const DRAVSinkConfig& config) -> std::shared_ptr<DRAVSink>
    { return config.type == 5 ? std::make_shared<RecordingSink>("renderer", config) : nullptr; };
    DRAVPlatformUnitMakers::Install(makers);
    DRAVSinkConfig renderer;
    renderer.type = 5;
    std::shared_ptr<DRAVSink> rendererSink;
    ASSERT_EQ(manager_.CreateSink(renderer, &rendererSink, nullptr, true), kDRAVResultOk);
    EXPECT_EQ(rendererSink->GetFriendlyName(), "renderer");
    EXPECT_TRUE(rendererSink->IsUnitInitialized());
    std::shared_ptr<DRAVSink> found;
    ASSERT_EQ(manager_.FindSink(5, &found), kDRAVResultOk);
    EXPECT_EQ(found, rendererSink);
    EXPECT_EQ(manager_.FindSink(5, &found, nullptr, "other"), kDRAVResultErrNotFound);
}

TEST_F(ManagerTest, SourcesNeedAPlatformMaker)
{
    DRAVPlatformUnitMakers::Install(DRAVPlatformUnitMakers{});
    ASSERT_EQ(manager_.Init(), kDRAVResultOk);
    std::shared_ptr<DRAVSource> source;
    EXPECT_EQ(manager_.CreateSource(DRAVSourceConfig{2, 1}, &source, nullptr, true), kDRAVResultErrUnknown);
    EXPECT_EQ(source, nullptr);
    EXPECT_EQ(manager_.CreateSource(DRAVSourceConfig{2, 1}, nullptr, nullptr, true),
              kDRAVResultErrNullPointer);

    InstallTestMakers();
    source = MakeSource();
    ASSERT_NE(source, nullptr);
    EXPECT_TRUE(source->IsUnitInitialized());
    // Initialised for pulling: the audio leaves through a ring.
    EXPECT_EQ(source->GetOutputPin(0)->GetPinType(), kDRAVPinTypePullRingBuffer);

    std::shared_ptr<DRAVSource> found;
    EXPECT_EQ(manager_.FindSource(0, 0, &found), kDRAVResultOk);
    EXPECT_EQ(found, source);
    EXPECT_EQ(manager_.FindSource(2, 1, &found), kDRAVResultOk);
    EXPECT_EQ(manager_.FindSource(3, 0, &found), kDRAVResultErrNotFound);
    EXPECT_EQ(manager_.FindSource(2, 4, &found), kDRAVResultErrNotFound);
    auto stranger = std::make_shared<PlainSource>("stranger");
    EXPECT_EQ(manager_.FindSource(2, 1, &found, stranger), kDRAVResultErrNotFound);
}

TEST_F(ReadyManagerTest, FiltersWithAnOwnerAreItsSiblings)
{
    std::shared_ptr<DRAVSource> owner = MakeSource();
    ASSERT_NE(owner, nullptr);
    std::shared_ptr<DRAVFilter> delay = MakeFilter(DRAVFilterDelay::kFilterType, owner, false);
    ASSERT_NE(delay, nullptr);
    EXPECT_FALSE(delay->IsUnitInitialized());
    EXPECT_TRUE(owner->HasChild(delay->GetObjectID()));
    EXPECT_EQ(delay->GetOwner(), owner);

    const std::vector<DRAVUnitDescriptor> siblings = manager_.GetSiblings(owner->GetObjectID());
    ASSERT_EQ(siblings.size(), 1u);
    const DRAVUnitDescriptor& s = siblings[0];
    EXPECT_EQ(std::make_tuple(s.objectId, s.unitKind, s.hasOwner, s.ownerId, s.ownerName),
              std::make_tuple(delay->GetObjectID(), DRAVUnitDescriptor::kUnitKindFilter, true,
                              owner->GetObjectID(), std::string("plain source")));
    EXPECT_EQ(manager_.GetUnitDescriptor(owner).GetSiblings(), siblings);

    std::shared_ptr<DRAVFilter> found;
    EXPECT_EQ(manager_.FindFilter(9, &found, owner), kDRAVResultOk);
    EXPECT_EQ(found, delay);
    EXPECT_EQ(manager_.FindFilter(9, &found, owner, "DRAVFilterDelay"), kDRAVResultOk);
    EXPECT_EQ(manager_.FindFilter(9, &found, owner, "another"), kDRAVResultErrNotFound);
    EXPECT_EQ(manager_.FindFilter(10, &found), kDRAVResultErrNotFound);

    // Types without a class here make nothing.
    std::shared_ptr<DRAVFilter> none;
    for (int type : {1, 6, 7, 8})
    {
        EXPECT_EQ(manager_.CreateFilter(DRAVFilterConfig{type, false}, &none, owner, true),
                  kDRAVResultErrUnknownUnit);
    }
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(owner->GetChildren().size(), 1u);
}

TEST_F(ReadyManagerTest, RemoveUnitLeavesTheOwnerEvenWhenNotRegistered)
{
    std::shared_ptr<DRAVSource> owner = MakeSource();
    std::shared_ptr<DRAVFilter> loose;
    ASSERT_EQ(DRAVManager::CreateFilterStatic(DRAVFilterConfig{10, false}, &loose, owner, true),
              kDRAVResultOk);
    EXPECT_TRUE(owner->HasChild(loose->GetObjectID()));
    EXPECT_FALSE(manager_.IsActiveUnit(loose->GetObjectID()));
    EXPECT_EQ(manager_.RemoveUnit(loose), kDRAVResultErrNotFound);
    EXPECT_FALSE(owner->HasChild(loose->GetObjectID()));

    std::shared_ptr<DRAVFilter> meter = MakeFilter(10, owner);
    ASSERT_EQ(manager_.RemoveUnit(meter), kDRAVResultOk);
    EXPECT_FALSE(manager_.IsActiveUnit(meter->GetObjectID()));
    EXPECT_FALSE(owner->HasChild(meter->GetObjectID()));
    // Removal is no Deinit.
    EXPECT_TRUE(meter->IsUnitInitialized());
    EXPECT_EQ(manager_.RemoveUnit(meter), kDRAVResultErrNotFound);
    EXPECT_EQ(manager_.RemoveUnit(nullptr), kDRAVResultErrNullPointer);
}

TEST_F(ReadyManagerTest, UnitsMadeByUnitsAreRegistered)
{
    std::shared_ptr<DRAVSource> source = MakeSource();
    ASSERT_EQ(source->StartAudioLevelmeter(), kDRAVResultOk);
    std::shared_ptr<DRAVUnit> meter = source->GetAudioLevelmeter();
    ASSERT_NE(std::dynamic_pointer_cast<DRAVAudioLevelmeter>(meter), nullptr);
    EXPECT_TRUE(manager_.IsActiveUnit(meter->GetObjectID()));
    EXPECT_EQ(manager_.GetSiblings(source->GetObjectID()).size(), 1u);

    ASSERT_EQ(manager_.SetUnitState(source->GetObjectID(), kDRAVUnitStateRunning), kDRAVResultOk);
    EXPECT_EQ(manager_.GetUnitState(meter->GetObjectID()), kDRAVUnitStateRunning);
    EXPECT_EQ(meter->SendFrame(MakeFrame(0, 960, 0.0f)), kDRAVResultOk);

    // A source's Deinit stops its children and takes them out of the registry.
    source->Deinit();
    EXPECT_FALSE(meter->IsUnitInitialized());
    EXPECT_FALSE(manager_.IsActiveUnit(meter->GetObjectID()));
    EXPECT_TRUE(manager_.IsActiveUnit(source->GetObjectID()));

    manager_.Deinit();
    // The former factory is back: nothing makes filters for units any more.
    auto orphan = std::make_shared<PlainSource>("orphan");
    ASSERT_EQ(orphan->InitSource(kDRAVPinTypePull), kDRAVResultOk);
    EXPECT_EQ(orphan->StartAudioLevelmeter(), kDRAVResultErrUnknownUnit);
}

TEST_F(ReadyManagerTest, ListsAndDescriptorsFollowKindOrderAndOwnership)
{
    std::shared_ptr<DRAVSink> sink = MakeRendererSink(true);
    std::shared_ptr<DRAVFilter> delay = MakeFilter(9);
    std::shared_ptr<DRAVSource> source = MakeSource();
    std::shared_ptr<DRAVFilter> meter = MakeFilter(10, delay);

    EXPECT_EQ(manager_.GetActiveUnitList(),
              (std::vector<std::shared_ptr<DRAVUnit>>{source, delay, meter, sink}));

    std::vector<decltype(DRAVUnitDescriptor::unitKind)> kinds;
    for (const auto& root : manager_.GetActiveUnits(false))
        kinds.push_back(root.unitKind);
    EXPECT_EQ(kinds,
              (decltype(kinds){DRAVUnitDescriptor::kUnitKindSource, DRAVUnitDescriptor::kUnitKindFilter,
                               DRAVUnitDescriptor::kUnitKindSink}));
    const auto all = manager_.GetActiveUnits(true);
    ASSERT_EQ(all.size(), 4u);
    EXPECT_EQ(all[2].objectId, meter->GetObjectID());
    EXPECT_EQ(manager_.GetActiveUnits(true, delay->GetObjectID()).size(), 1u);
    EXPECT_TRUE(manager_.GetActiveUnits(true, std::string("no such id")).empty());

    const auto sinks = manager_.GetActiveSinks(true);
    ASSERT_EQ(sinks.size(), 1u);
    EXPECT_EQ(sinks[0].type, 5);
    EXPECT_TRUE(sinks[0].useDefaultRouting);
    const auto filters = manager_.GetActiveFilters(true);
    ASSERT_EQ(filters.size(), 2u);
    EXPECT_EQ(std::make_pair(filters[0].type, filters[1].type), std::make_pair(9, 10));
    EXPECT_EQ(manager_.GetActiveFilters(false).size(), 1u);
    const auto sources = manager_.GetActiveSources(true);
    ASSERT_EQ(sources.size(), 1u);
    EXPECT_EQ(std::make_tuple(sources[0].type, sources[0].usage, sources[0].objectId),
              std::make_tuple(2, 1, source->GetObjectID()));
}

TEST_F(ReadyManagerTest, PropertiesByObjectId)
{
    auto delay = std::dynamic_pointer_cast<DRAVFilterDelay>(MakeFilter(9));
    ASSERT_NE(delay, nullptr);
    const std::string id = delay->GetObjectID();

    manager_.SetIntProperty(id, kPropertySourceAudioDelay, 500);
    EXPECT_EQ(delay->GetAudioDelayMsec(), 500);
    EXPECT_EQ(manager_.GetIntProperty(id, kPropertySourceAudioDelay), 500);
    EXPECT_TRUE(manager_.HasProperty(id, kPropertySourceAudioDelay));
    EXPECT_FALSE(manager_.IsReadOnlyProperty(id, kPropertySourceAudioDelay));
    EXPECT_EQ(manager_.GetObjectProperties(id), delay->GetPropertyMap());
    manager_.SetStringProperty(id, kPropertyFriendlyName, "renamed");
    EXPECT_EQ(delay->GetFriendlyName(), "renamed");

    // An unknown id: nothing happens and getters give empty values.
    manager_.SetIntProperty("no such id", kPropertySourceAudioDelay, 700);
    manager_.SetIntProperty(id, nullptr, 700);
    EXPECT_EQ(delay->GetAudioDelayMsec(), 500);
    EXPECT_EQ(manager_.GetIntProperty("no such id", kPropertySourceAudioDelay), 0);
    EXPECT_EQ(manager_.GetStringProperty("no such id", kPropertyFriendlyName), "");
    EXPECT_EQ(manager_.GetObjectProperties("no such id"), nullptr);
    EXPECT_EQ(manager_.GetUnitState("no such id"), 0);
    EXPECT_EQ(manager_.SetUnitState("no such id", kDRAVUnitStateRunning), kDRAVResultErrNotFound);

    // Statistics only of an initialised unit, with the pins named.
    const auto statistics = manager_.GetUnitStatistics(id);
    ASSERT_EQ(statistics.first.size(), 1u);
    ASSERT_EQ(statistics.second.size(), 1u);
    EXPECT_TRUE(statistics.first[0].isInput);
    EXPECT_FALSE(statistics.second[0].isInput);
    EXPECT_EQ(statistics.second[0].pinNumber, 0);
    delay->Deinit();
    EXPECT_TRUE(manager_.GetUnitStatistics(id).first.empty());
}

TEST_F(ReadyManagerTest, ObserversWithoutANameGoToTheCommonObserver)
{
    std::shared_ptr<DRAVFilter> observable = MakeFilter(20);
    std::shared_ptr<DRAVFilter> meter = MakeFilter(10);
    ASSERT_NE(observable, nullptr);
    ASSERT_EQ(meter->FindProperty(kPropertyCommonObserver), nullptr);

    CountingObserver observer;
    manager_.AddObserver(&observer, "");
    EXPECT_TRUE(observable->HasObserver(kPropertyCommonObserver));
    observable->SetIntProperty(kPropertySourceAudioDelay, 5);
    meter->SetDoubleProperty(kPropertyAudioVULevelDecreaseValue, 12.0);
    EXPECT_EQ(observer.Keys(), std::vector<std::string>{kPropertySourceAudioDelay});

    manager_.RemoveObserver(&observer, nullptr);
    EXPECT_FALSE(observable->HasObserver(kPropertyCommonObserver));
    observable->SetIntProperty(kPropertySourceAudioDelay, 6);
    EXPECT_EQ(observer.Count(), 1);

    // A named property reaches every unit that has it.
    manager_.AddObserver(&observer, kPropertyAudioVULevelDecreaseValue);
    meter->SetDoubleProperty(kPropertyAudioVULevelDecreaseValue, 20.0);
    EXPECT_EQ(observer.Count(), 2);
    manager_.RemoveObserver(&observer, kPropertyAudioVULevelDecreaseValue);
    manager_.AddObserver(nullptr, "");
}

TEST_F(ManagerTest, AvailableSourcesAreCachedUntilReloadOrChange)
{
    auto platform = std::make_shared<SimPlatform>();
    Platform::Use(platform);
    auto addMic = [&platform](const char* uid, const char* name)
    {
        SimDeviceSpec mic;
        mic.uid = uid;
        mic.name = name;
        mic.inputStreams = 1;
        platform->World().AddDevice(mic);
    };
    addMic("mic-a", "Mic A");

    const auto first = manager_.GetAvailableSources(0, 0, true);
    ASSERT_EQ(first.size(), 3u);
    EXPECT_EQ(first[0].friendlyName, "Mic A");
    EXPECT_EQ(first[1].friendlyName, "A/V Test Generator");
    EXPECT_EQ(first[1].devicePath, "AVTESTGEN_1");
    EXPECT_EQ(first[2].friendlyName, "A/V Test Generator (2)");

    addMic("mic-b", "Mic B");
    EXPECT_EQ(manager_.GetAvailableSources(0, 0, false), first);
    const auto reloaded = manager_.GetAvailableSources(0, 0, true);
    EXPECT_EQ(reloaded.size(), 4u);
    EXPECT_EQ(manager_.GetAllSources(), reloaded);

    addMic("mic-c", "Mic C");
    manager_.SetAllowAllSources(true);
    EXPECT_EQ(manager_.GetAvailableSources(0, 0, false).size(), 5u);

    const auto tests = manager_.GetAvailableSources(1, 0, false);
    ASSERT_EQ(tests.size(), 2u);
    EXPECT_EQ(tests[0].usage, 4);
    EXPECT_EQ(manager_.GetAvailableSources(0, 4, false).size(), 2u);
    EXPECT_EQ(manager_.GetAvailableSources(1, 3, false).size(), 0u);
    Platform::Use(nullptr);
}

TEST_F(ManagerTest, SourceDescriptorsCompareByPathAndType)
{
    const DRAVSourceDescriptor a(2, 1, "Cam", "usb#vid_046d&pid_0825&mi_00", "hw");
    const DRAVSourceDescriptor renamed(2, 1, "Camera", "usb#vid_046d&pid_0825&mi_00", "hw");
    EXPECT_EQ(a.unitKind, DRAVUnitDescriptor::kUnitKindSource);
    EXPECT_EQ(a.objectId, std::to_string(a.hashString(false)));
    EXPECT_NE(a.objectId, renamed.objectId);
    EXPECT_EQ(a.hashString(true), renamed.hashString(true));
    EXPECT_TRUE(a.IsUsbDevice(0x046d, 0x0825));
    EXPECT_FALSE(a.IsUsbDevice(0x046d, 0x0826));
    EXPECT_EQ(a.toString(), "AudioDevice: Cam <usb#vid_046d&pid_0825&mi_00>");
    const DRAVSourceDescriptor longOne(2, 1, std::string(200, 'x'), "p", "");
    EXPECT_EQ(longOne.toString().size(), 127u);
}

TEST_F(ManagerTest, PoolOutlivesDeinitForFramesStillHeld)
{
    const auto formerPool = DRAVMemoryPoolRAM::Shared();
    ASSERT_EQ(manager_.Init(), kDRAVResultOk);
    std::shared_ptr<DRAVMemoryPoolRAM> pool = manager_.GetMemoryPool();
    ASSERT_NE(pool, nullptr);
    EXPECT_EQ(DRAVMemoryPoolRAM::Shared(), pool);
    std::weak_ptr<DRAVMemoryPoolRAM> weakPool = pool;
    pool.reset();

    auto held = MakeFrame(1000, 960, 0.25f);
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(manager_.GetMemoryPoolStatistics(true).first, 1);
    EXPECT_EQ(manager_.GetMemoryPoolStatistics(false), (std::pair<int64_t, int64_t>{0, 0}));

    manager_.Deinit();
    EXPECT_EQ(manager_.GetMemoryPool(), nullptr);
    EXPECT_EQ(DRAVMemoryPoolRAM::Shared(), formerPool);
    // The frame still reads what it held; its storage keeps the old pool.
    EXPECT_FALSE(weakPool.expired());
    EXPECT_EQ(ChannelSamples(held, 0)[3], 3.25f);

    ASSERT_EQ(manager_.Init(), kDRAVResultOk);
    EXPECT_NE(manager_.GetMemoryPool(), weakPool.lock());
    auto fresh = MakeFrame(2000, 960, 0.5f);
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(manager_.GetMemoryPool()->GetNumItemsInUse(), 1);
    held.reset();
    EXPECT_TRUE(weakPool.expired());
    manager_.Deinit();
}

// Running sources with children, and Init after Deinit, are the threaded
// test's (DeinitWhileUnitsRunThenInitAgain); here the other kinds of unit.
TEST_F(ManagerTest, DeinitTakesDownLooseFiltersAndSinks)
{
    InstallTestMakers();
    ASSERT_EQ(manager_.Init(), kDRAVResultOk);
    // A second Init changes nothing.
    auto pool = manager_.GetMemoryPool();
    ASSERT_EQ(manager_.Init(), kDRAVResultOk);
    EXPECT_EQ(manager_.GetMemoryPool(), pool);

    std::shared_ptr<DRAVFilter> delay = MakeFilter(9);
    std::shared_ptr<DRAVSink> sink = MakeRendererSink();
    ASSERT_NE(sink, nullptr);
    manager_.Deinit();
    EXPECT_FALSE(manager_.IsInitialized());
    EXPECT_TRUE(manager_.GetActiveUnitList().empty());
    EXPECT_FALSE(delay->IsUnitInitialized());
    EXPECT_FALSE(sink->IsUnitInitialized());
}

TEST_F(ManagerTest, DeviceChangesTakeDownSourcesWhoseDevicesWent)
{
    auto platform = std::make_shared<SimPlatform>();
    Platform::Use(platform);
    auto subject = std::make_shared<TestDeviceSubject>();
    const DRAVSourceDescriptor camera(2, 1, "Camera", "", "");
    subject->SetDevices({camera});
    InstallTestMakers();
    DRAVPlatformUnitMakers makers = DRAVPlatformUnitMakers::Current();
    makers.deviceObserverSubjects = [subject]
    { return std::vector<std::shared_ptr<DRAVDeviceObserverSubjectInterface>>{subject}; };
    DRAVPlatformUnitMakers::Install(makers);

    ASSERT_EQ(manager_.Init(), kDRAVResultOk);
    EXPECT_TRUE(manager_.GetDeviceChangeHandler().IsInitialized());
    CountingObserver outside;
    ASSERT_EQ(manager_.GetDeviceChangeHandler().AttachObserver(&outside, false), kDRAVResultOk);
    const auto known = manager_.GetAvailableSources(0, 0, true);
    ASSERT_EQ(known.size(), 3u);
    EXPECT_EQ(known[2], camera);

    // A source whose device (empty path, type 2) is the camera.
    std::shared_ptr<DRAVSource> source = MakeSource();
    ASSERT_TRUE(source->IsUnitInitialized());

    // Nothing changed: the subject's other observers aren't told.
    subject->NotifyChanges(true);
    EXPECT_EQ(outside.Count(), 0);
    EXPECT_TRUE(source->IsUnitInitialized());

    subject->SetDevices({});
    subject->NotifyChanges(true);
    EXPECT_FALSE(source->IsUnitInitialized());
    EXPECT_EQ(outside.Keys(), std::vector<std::string>{kPropertyDeviceObserverChange});
    EXPECT_EQ(manager_.GetAvailableSources(0, 0, false).size(), 2u);

    ASSERT_EQ(manager_.GetDeviceChangeHandler().DetachObserver(&outside, false), kDRAVResultOk);
    manager_.Deinit();
    EXPECT_FALSE(manager_.GetDeviceChangeHandler().IsInitialized());
    // The handler let go of the subject: a change reaches no one.
    subject->SetDevices({camera});
    subject->NotifyChanges(true);
    EXPECT_EQ(outside.Count(), 1);
    Platform::Use(nullptr);
}

TEST_F(ManagerTest, SubjectsTellOnlyTheirAttachedObserversOfRealChanges)
{
    auto subject = std::make_shared<DRAVDeviceObserverSubject>("subject");
    auto bare = std::make_shared<DRAVDeviceObserverSubject>("bare", DRAVUnit::GetMyObjectProperties());
    CountingObserver observer;
    EXPECT_EQ(bare->AttachObserver(&observer, true), kDRAVResultErrNotFound);
    EXPECT_EQ(subject->AttachObserver(nullptr, true), kDRAVResultErrNullPointer);
    ASSERT_EQ(subject->AttachObserver(&observer, true), kDRAVResultOk);
    subject->NotifyChanges(true);
    subject->NotifyChanges(false);
    EXPECT_EQ(observer.Keys(), std::vector<std::string>{kPropertyDeviceObserverChangeInternal});
    EXPECT_EQ(subject->DetachObserver(&observer, true), kDRAVResultOk);
    subject->NotifyChanges(true);
    EXPECT_EQ(observer.Count(), 1);
}

TEST_F(ManagerTest, ResetKeepsTheFolders)
{
    DRAVEngineSettings settings = manager_.GetEngineSettings();
    const DRAVEngineSettings original = settings;
    settings.logFolder = "/tmp/drav-log";
    settings.tmpFolder = "/tmp/drav-tmp";
    settings.audioMute = true;
    settings.maxNumberLogFiles = 3;
    manager_.SetEngineSettings(settings, false, false);
    // No settings path: the save has nowhere to go, but the values are set.
    EXPECT_EQ(manager_.ResetEngineSettings(), kDRAVResultErrInvalidState);
    const DRAVEngineSettings reset = manager_.GetEngineSettings();
    EXPECT_EQ(reset.logFolder, "/tmp/drav-log");
    EXPECT_EQ(reset.tmpFolder, "/tmp/drav-tmp");
    EXPECT_FALSE(reset.audioMute);
    EXPECT_EQ(reset.maxNumberLogFiles, 10);
    manager_.SetEngineSettings(original, false, false);
}
