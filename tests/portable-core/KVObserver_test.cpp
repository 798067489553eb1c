#include "portable-core/KVObserver.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "PropertyTestObjects.h"
#include "portable-core/DRAVLog.h"
#include "portable-core/KVObserverDelegate.h"
#include "support/LogCapture.h"

using namespace property_test;

namespace
{
// Takes back every item it registered, so the class-wide lists are clean for the next test even when one
// fails.
struct ObserverCleanup
{
    ~ObserverCleanup()
    {
        for (auto& [property, item] : added)
        {
            property->RemoveObserver(item);
        }
    }
    void Add(DRAVObject& object, const KVOItem& item, const std::string& name)
    {
        object.AddObserver(item, name);
        if (KVCProperty* property = object.FindProperty(name.empty() ? kPropertyCommonObserver : name))
        {
            added.emplace_back(property, item);
        }
    }
    std::vector<std::pair<KVCProperty*, KVOItem>> added;
};

// Observers share one log, so the order between them shows.
class KVObserverTest : public ::testing::Test
{
protected:
    ObserverCleanup cleanup;
    std::shared_ptr<std::vector<Notification>> log = std::make_shared<std::vector<Notification>>();
    TestNode node{"node"};
};

TEST_F(KVObserverTest, ClassWideListTellsTheChangingInstance)
{
    auto first = std::make_shared<TestNode>("first");
    auto second = std::make_shared<TestNode>("second");
    auto observer = std::make_shared<RecordingObserver>("o");
    cleanup.Add(*first, KVOItem::Weak(observer), kPropertyNodeGain);
    EXPECT_TRUE(second->HasObserver(kPropertyNodeGain));

    second->SetDoubleProperty(kPropertyNodeGain, 0.3);
    first->SetDoubleProperty(kPropertyNodeGain, 0.6);
    const std::vector<Notification> seen = observer->Mine();
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].objectId, second->GetObjectID());
    EXPECT_DOUBLE_EQ(seen[0].pair.GetDouble(), 0.3);
    EXPECT_EQ(seen[1].objectId, first->GetObjectID());
}

TEST_F(KVObserverTest, PropertyObserversBeforeCommonObservers)
{
    auto common1 = std::make_shared<RecordingObserver>("common1", log);
    auto property1 = std::make_shared<RecordingObserver>("property1", log);
    auto common2 = std::make_shared<RecordingObserver>("common2", log);
    auto property2 = std::make_shared<RecordingObserver>("property2", log);
    TestMixer mixer("mixer");
    EXPECT_FALSE(mixer.HasObserver(""));
    // Common observers registered first still come after the property's own.
    cleanup.Add(mixer, KVOItem::Weak(common1), "");
    cleanup.Add(mixer, KVOItem::Weak(property1), kPropertyNodeMute);
    cleanup.Add(mixer, KVOItem::Weak(common2), kPropertyCommonObserver);
    cleanup.Add(mixer, KVOItem::Weak(property2), kPropertyNodeMute);

    mixer.SetBoolProperty(kPropertyNodeMute, true);
    EXPECT_EQ(Tags(*log), (std::vector<std::string>{"property1", "property2", "common1", "common2"}));
    // Common observers are handed the descriptor that changed.
    for (const Notification& n : *log)
    {
        EXPECT_EQ(n.property, mixer.FindProperty(kPropertyNodeMute));
        EXPECT_EQ(n.objectId, mixer.GetObjectID());
        EXPECT_EQ(n.pair.key, kPropertyNodeMute);
    }

    // A change of a property without own observers reaches the common ones only.
    log->clear();
    mixer.SetStringProperty(kPropertyFriendlyName, "renamed");
    EXPECT_EQ(Tags(*log), (std::vector<std::string>{"common1", "common2"}));
    EXPECT_EQ((*log)[0].property, mixer.FindProperty(kPropertyFriendlyName));
    EXPECT_TRUE(mixer.HasObserver(""));
    mixer.RemoveObserver(KVOItem::Weak(common1), "");
    mixer.RemoveObserver(KVOItem::Weak(common2), "");
    EXPECT_FALSE(mixer.HasObserver(kPropertyCommonObserver));

    // A class without common observers ignores the empty name, as it does unknown names.
    RecordingObserver ignored("ignored");
    node.AddObserver(KVOItem::Raw(&ignored), "");
    node.AddObserver(KVOItem::Raw(&ignored), "No Such Property");
    EXPECT_FALSE(node.HasObserver(""));
    EXPECT_FALSE(node.HasObserver(kPropertyCommonObserver));
    EXPECT_FALSE(node.HasObserver("No Such Property"));
    node.SetDoubleProperty(kPropertyNodeGain, 0.7);
    EXPECT_EQ(ignored.Count(), 0u);
    node.RemoveObserver(KVOItem::Raw(&ignored), "");  // harmless too
}

TEST_F(KVObserverTest, ObserversAreHeldOnceByKindAndIdentity)
{
    RecordingObserver raw("raw", log);
    std::weak_ptr<RecordingObserver> watchShared;
    auto weak = std::make_shared<RecordingObserver>("weak", log);
    {
        auto shared = std::make_shared<RecordingObserver>("shared", log);
        watchShared = shared;
        for (int twice = 0; twice < 2; ++twice)
        {
            node.AddObserver(KVOItem::Raw(&raw), kPropertyNodeGain);
            node.AddObserver(KVOItem::Shared(shared), kPropertyNodeGain);
            node.AddObserver(KVOItem::Weak(weak), kPropertyNodeGain);
        }
    }
    EXPECT_EQ(node.FindProperty(kPropertyNodeGain)->GetObservers().size(), 3u);
    node.SetDoubleProperty(kPropertyNodeGain, 0.4);
    // Called in the order of registration; raw and shared items get the two-argument form.
    ASSERT_EQ(Tags(*log), (std::vector<std::string>{"raw", "shared", "weak"}));
    EXPECT_TRUE((*log)[0].viaTwoArgumentForm);
    EXPECT_TRUE((*log)[1].viaTwoArgumentForm);
    EXPECT_FALSE((*log)[2].viaTwoArgumentForm);
    EXPECT_EQ((*log)[2].property, node.FindProperty(kPropertyNodeGain));
    // The shared item alone keeps its observer alive, until removed.
    ASSERT_FALSE(watchShared.expired());
    node.RemoveObserver(KVOItem::Shared(watchShared.lock()), kPropertyNodeGain);
    EXPECT_TRUE(watchShared.expired());
    node.RemoveObserver(KVOItem::Raw(&raw), kPropertyNodeGain);
    node.RemoveObserver(KVOItem::Weak(weak), kPropertyNodeGain);
    EXPECT_FALSE(node.HasObserver(kPropertyNodeGain));
    node.SetDoubleProperty(kPropertyNodeGain, 0.5);
    EXPECT_EQ(log->size(), 3u);
    // An item naming no observer is not kept.
    node.AddObserver(KVOItem(), kPropertyNodeGain);
    EXPECT_FALSE(node.HasObserver(kPropertyNodeGain));

    // Same kind and observer match (the adds above); different kinds never
    // match, nor do empty items or two expired weak ones.
    auto a = std::make_shared<RecordingObserver>("a");
    EXPECT_FALSE(KVCProperty::ObserverEquals(KVOItem::Weak(a), KVOItem::Raw(a.get())));
    EXPECT_FALSE(KVCProperty::ObserverEquals(KVOItem::Shared(a), KVOItem::Weak(a)));
    EXPECT_FALSE(KVCProperty::ObserverEquals(KVOItem(), KVOItem()));
    const KVOItem expired = KVOItem::Weak(std::make_shared<RecordingObserver>("gone"));
    EXPECT_FALSE(KVCProperty::ObserverEquals(expired, expired));
}

TEST_F(KVObserverTest, ExpiredWeakObserverIsSkippedAndStays)
{
    auto doomed = std::make_shared<RecordingObserver>("doomed", log);
    auto survivor = std::make_shared<RecordingObserver>("survivor", log);
    cleanup.Add(node, KVOItem::Weak(doomed), kPropertyNodeMute);
    cleanup.Add(node, KVOItem::Weak(survivor), kPropertyNodeMute);
    doomed.reset();

    node.SetBoolProperty(kPropertyNodeMute, true);
    EXPECT_EQ(Tags(*log), (std::vector<std::string>{"survivor"}));
    EXPECT_EQ(node.FindProperty(kPropertyNodeMute)->GetObservers().size(), 2u);
    EXPECT_TRUE(node.HasObserver(kPropertyNodeMute));

    // The expired entry stays harmless through further changes.
    node.RemoveObserver(KVOItem::Weak(survivor), kPropertyNodeMute);
    node.SetBoolProperty(kPropertyNodeMute, false);
    EXPECT_EQ(log->size(), 1u);
    const KVOList items = node.FindProperty(kPropertyNodeMute)->GetObservers();
    ASSERT_EQ(items.size(), 1u);
    EXPECT_TRUE(items.front().weakObserver.expired());
    // A weak pointer to another observer doesn't take it away; the
    // registrant's own weak pointer still can.
    node.RemoveObserver(KVOItem::Weak(std::make_shared<RecordingObserver>("other")), kPropertyNodeMute);
    EXPECT_TRUE(node.HasObserver(kPropertyNodeMute));
    node.RemoveObserver(items.front(), kPropertyNodeMute);
    EXPECT_FALSE(node.HasObserver(kPropertyNodeMute));
}

TEST_F(KVObserverTest, ObserversRemovedOrAddedDuringTheWalk)
{
    RecordingObserver selfRemover("selfRemover", log);
    RecordingObserver remover("remover", log);
    RecordingObserver victim("victim", log);
    RecordingObserver last("last", log);
    cleanup.Add(node, KVOItem::Raw(&selfRemover), kPropertyNodeGain);
    cleanup.Add(node, KVOItem::Raw(&remover), kPropertyNodeGain);
    cleanup.Add(node, KVOItem::Raw(&victim), kPropertyNodeGain);
    cleanup.Add(node, KVOItem::Raw(&last), kPropertyNodeGain);
    selfRemover.onUpdate = [&](const DRAVPropertyKVPair&)
    { node.RemoveObserver(KVOItem::Raw(&selfRemover), kPropertyNodeGain); };
    remover.onUpdate = [&](const DRAVPropertyKVPair&)
    { node.RemoveObserver(KVOItem::Raw(&victim), kPropertyNodeGain); };

    node.SetDoubleProperty(kPropertyNodeGain, 0.11);
    EXPECT_EQ(Tags(*log), (std::vector<std::string>{"selfRemover", "remover", "last"}));
    log->clear();
    node.SetDoubleProperty(kPropertyNodeGain, 0.12);
    EXPECT_EQ(Tags(*log), (std::vector<std::string>{"remover", "last"}));
    EXPECT_EQ(node.FindProperty(kPropertyNodeGain)->GetObservers().size(), 2u);

    // One added during the walk is called from the next change on.
    RecordingObserver late("late", log);
    RecordingObserver lateOnMute("lateOnMute", log);
    last.onUpdate = [&](const DRAVPropertyKVPair&)
    {
        cleanup.Add(node, KVOItem::Raw(&late), kPropertyNodeGain);
        cleanup.Add(node, KVOItem::Raw(&lateOnMute), kPropertyNodeMute);
    };
    log->clear();
    node.SetDoubleProperty(kPropertyNodeGain, 0.21);
    EXPECT_EQ(Tags(*log), (std::vector<std::string>{"remover", "last"}));
    last.onUpdate = nullptr;
    node.SetDoubleProperty(kPropertyNodeGain, 0.22);
    node.SetBoolProperty(kPropertyNodeMute, true);
    EXPECT_EQ(Tags(*log),
              (std::vector<std::string>{"remover", "last", "remover", "last", "late", "lateOnMute"}));
}

// Held by the list alone, removes itself in its callback and then uses its
// own members: the list must keep it alive until the walk is over.
class SelfReleasingObserver : public KVObserver
{
public:
    SelfReleasingObserver(TestNode& node, std::shared_ptr<int> calls) : node_(node), calls_(std::move(calls))
    {
    }
    using KVObserver::UpdateObserver;
    void UpdateObserver(const std::string&, DRAVPropertyKVPair, KVCProperty*) override
    {
        node_.RemoveObserver(KVOItem::Shared(self), kPropertyNodeGain);
        self.reset();
        ++*calls_;
    }
    std::shared_ptr<KVObserver> self;

private:
    TestNode& node_;
    std::shared_ptr<int> calls_;
};

TEST_F(KVObserverTest, SharedObserverRemovingItselfLivesToTheEndOfItsCall)
{
    auto calls = std::make_shared<int>(0);
    std::weak_ptr<KVObserver> watch;
    {
        auto observer = std::make_shared<SelfReleasingObserver>(node, calls);
        observer->self = observer;
        watch = observer;
        node.AddObserver(KVOItem::Shared(observer), kPropertyNodeGain);
    }
    node.SetDoubleProperty(kPropertyNodeGain, 0.13);
    EXPECT_EQ(*calls, 1);
    EXPECT_TRUE(watch.expired());
    EXPECT_FALSE(node.HasObserver(kPropertyNodeGain));
}

TEST_F(KVObserverTest, ObserverMaySetPropertiesFromInsideItsCallback)
{
    RecordingObserver clamp("clamp", log);
    RecordingObserver follower("follower", log);
    RecordingObserver muteWatcher("muteWatcher", log);
    cleanup.Add(node, KVOItem::Raw(&clamp), kPropertyNodeGain);
    cleanup.Add(node, KVOItem::Raw(&follower), kPropertyNodeGain);
    cleanup.Add(node, KVOItem::Raw(&muteWatcher), kPropertyNodeMute);
    // Pulls a gain above 1 back to 1 and mutes at 0: a set of the same
    // property, and of another one, from inside a notification.
    clamp.onUpdate = [&](const DRAVPropertyKVPair& pair)
    {
        if (pair.GetDouble() > 1.0)
        {
            node.SetDoubleProperty(kPropertyNodeGain, 1.0);
        }
        if (pair.GetDouble() == 0.0)
        {
            node.SetBoolProperty(kPropertyNodeMute, true);
        }
    };

    node.SetDoubleProperty(kPropertyNodeGain, 0.5);
    node.SetDoubleProperty(kPropertyNodeGain, 3.0);
    EXPECT_DOUBLE_EQ(node.GetGain(), 1.0);
    node.SetDoubleProperty(kPropertyNodeGain, 0.0);
    EXPECT_TRUE(node.GetMute());

    std::vector<std::string> seen;
    for (const Notification& n : *log)
    {
        char value[32];
        snprintf(value, sizeof(value), "%g",
                 n.pair.type == kDRAVPropertyTypeBool ? (n.pair.GetBool() ? 1.0 : 0.0) : n.pair.GetDouble());
        seen.push_back(n.observer + "=" + value);
    }
    // The nested change runs to completion before the outer walk goes on.
    EXPECT_EQ(seen, (std::vector<std::string>{"clamp=0.5", "follower=0.5", "clamp=3", "clamp=1", "follower=1",
                                              "follower=3", "clamp=0", "muteWatcher=1", "follower=0"}));
}

TEST_F(KVObserverTest, ThrowingObserverDoesNotStopTheOthers)
{
    tidemix::test::LogCapture quiet;
    RecordingObserver thrower("thrower", log);
    RecordingObserver next("next", log);
    thrower.onUpdate = [](const DRAVPropertyKVPair&) { throw std::runtime_error("observer failed"); };
    cleanup.Add(node, KVOItem::Raw(&thrower), kPropertyNodeGain);
    cleanup.Add(node, KVOItem::Raw(&next), kPropertyNodeGain);
    EXPECT_NO_THROW(node.SetDoubleProperty(kPropertyNodeGain, 0.31));
    EXPECT_EQ(Tags(*log), (std::vector<std::string>{"thrower", "next"}));
    // The list isn't left locked or mid-walk: changes go on as usual.
    cleanup.Add(node, KVOItem::Raw(&thrower), kPropertyNodeMute);
    node.RemoveObserver(KVOItem::Raw(&thrower), kPropertyNodeGain);
    EXPECT_EQ(node.FindProperty(kPropertyNodeGain)->GetObservers().size(), 1u);
}

TEST_F(KVObserverTest, NotifyPropertyObserversTellsWithoutSetting)
{
    TestMixer mixer("mixer");
    RecordingObserver level("level", log);
    RecordingObserver common("common", log);
    cleanup.Add(mixer, KVOItem::Raw(&level), kPropertyNodeVULevelChannel1);
    cleanup.Add(mixer, KVOItem::Raw(&common), "");
    mixer.NotifyPropertyObservers(DRAVPropertyKVPair::MakeDouble(kPropertyNodeVULevelChannel1, 0.8));
    mixer.NotifyPropertyObservers(DRAVPropertyKVPair::MakeDouble("No Such Property", 0.8));
    EXPECT_EQ(Tags(*log), (std::vector<std::string>{"level", "common"}));
    EXPECT_DOUBLE_EQ((*log)[0].pair.GetDouble(), 0.8);
    mixer.NotifyObservers(nullptr, DRAVPropertyKVPair::MakeInt("x", 1));
    EXPECT_EQ(log->size(), 2u);
}

TEST_F(KVObserverTest, DelegateCallsItsFunctionWithTheContext)
{
    int context = 0;
    std::vector<std::string> calls;
    auto delegate = std::make_shared<KVObserverDelegate>();
    cleanup.Add(node, KVOItem::Weak(delegate), kPropertyAudioBufferSizeFrameCount);
    node.SetIntProperty(kPropertyAudioBufferSizeFrameCount, 100);  // no function yet: nothing happens

    delegate->SetCallback(
        [&](void* ctx, const std::string& objectId, DRAVPropertyKVPair pair, KVCProperty* property)
        {
            EXPECT_EQ(ctx, &context);
            EXPECT_EQ(objectId, node.GetObjectID());
            EXPECT_EQ(property, node.FindProperty(kPropertyAudioBufferSizeFrameCount));
            calls.push_back(pair.key + "=" + std::to_string(pair.GetInt()));
        },
        &context);
    node.SetIntProperty(kPropertyAudioBufferSizeFrameCount, 200);
    EXPECT_EQ(calls, (std::vector<std::string>{std::string(kPropertyAudioBufferSizeFrameCount) + "=200"}));

    // The two-argument form reaches the function with no descriptor.
    KVObserverDelegate direct([&](void*, const std::string&, DRAVPropertyKVPair, KVCProperty* property)
                              { calls.push_back(property == nullptr ? "null" : "descriptor"); },
                              nullptr);
    KVObserver& asObserver = direct;
    asObserver.UpdateObserver("id", DRAVPropertyKVPair::MakeInt("k", 1));
    EXPECT_EQ(calls.back(), "null");
}
}  // namespace
