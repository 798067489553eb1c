#include "portable-core/DRAVObject.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "PropertyTestObjects.h"
#include "portable-core/DRAVPropertyNames.h"
#include "portable-core/KVCMap.h"
#include "portable-core/KVCTypedProperty.h"
#include "support/LogCapture.h"

using namespace property_test;

namespace
{
// One node with one observer on every property change we look at.
class DRAVObjectTest : public ::testing::Test
{
protected:
    void Watch(std::initializer_list<const char*> names)
    {
        for (const char* name : names)
        {
            node->AddObserver(KVOItem::Weak(observer), name);
        }
    }
    void TearDown() override
    {
        // Descriptors are shared by the whole class: leave them as found.
        for (const auto& [name, property] : *TestMixer::GetMyObjectProperties())
        {
            property->RemoveObserver(KVOItem::Weak(observer));
        }
    }

    std::shared_ptr<TestNode> node = std::make_shared<TestNode>("node");
    std::shared_ptr<RecordingObserver> observer = std::make_shared<RecordingObserver>("observer");
};

TEST_F(DRAVObjectTest, SetOfEqualValueNeedsForceAndNaNAlwaysDiffers)
{
    Watch({kPropertyNodeGain});
    node->SetDoubleProperty(kPropertyNodeGain, 1.0);  // the current value
    EXPECT_EQ(node->gainSets, 0);
    EXPECT_EQ(observer->Count(), 0u);

    node->SetDoubleProperty(kPropertyNodeGain, 1.0, true);
    EXPECT_EQ(node->gainSets, 1);
    ASSERT_EQ(observer->Count(), 1u);
    EXPECT_DOUBLE_EQ(observer->Mine()[0].pair.GetDouble(), 1.0);

    node->SetDoubleProperty(kPropertyNodeGain, 0.5);
    EXPECT_EQ(node->gainSets, 2);
    EXPECT_DOUBLE_EQ(node->GetDoubleProperty(kPropertyNodeGain), 0.5);
    ASSERT_EQ(observer->Count(), 2u);
    const Notification n = observer->Mine()[1];
    EXPECT_EQ(n.objectId, node->GetObjectID());
    EXPECT_EQ(n.pair.key, kPropertyNodeGain);
    EXPECT_EQ(n.pair.type, kDRAVPropertyTypeDouble);
    EXPECT_EQ(n.property, node->FindProperty(kPropertyNodeGain));
    EXPECT_FALSE(n.viaTwoArgumentForm);

    const double nan = std::numeric_limits<double>::quiet_NaN();
    node->SetDoubleProperty(kPropertyNodeGain, nan);
    node->SetDoubleProperty(kPropertyNodeGain, nan);
    EXPECT_EQ(node->gainSets, 4);
    ASSERT_EQ(observer->Count(), 4u);
    EXPECT_TRUE(std::isnan(observer->Mine()[3].pair.GetDouble()));
}

TEST_F(DRAVObjectTest, EqualityPerType)
{
    Watch({kPropertyNodeMute, kPropertyAudioBufferSizeFrameCount, kPropertyCaptureDevicePath,
           kPropertyAudioMixerChannelConfig, kPropertyVideoSize});
    node->SetBoolProperty(kPropertyNodeMute, false);
    node->SetIntProperty(kPropertyAudioBufferSizeFrameCount, 960);
    node->SetStringProperty(kPropertyCaptureDevicePath, "");
    node->SetJsonProperty(kPropertyAudioMixerChannelConfig, "{}");
    node->SetSizeProperty(kPropertyVideoSize, DRCSizeInteger{0, 0});
    EXPECT_EQ(observer->Count(), 0u);
    EXPECT_EQ(node->muteSets + node->frameSets, 0);

    node->SetBoolProperty(kPropertyNodeMute, true);
    node->SetIntProperty(kPropertyAudioBufferSizeFrameCount, 480);
    node->SetStringProperty(kPropertyCaptureDevicePath, "73");
    node->SetJsonProperty(kPropertyAudioMixerChannelConfig, "{\"a\":1}");
    node->SetSizeProperty(kPropertyVideoSize, DRCSizeInteger{0, 1});  // one member differs
    ASSERT_EQ(observer->Count(), 5u);
    const std::vector<Notification> seen = observer->Mine();
    EXPECT_TRUE(seen[0].pair.GetBool());
    EXPECT_EQ(seen[1].pair.GetInt(), 480);
    EXPECT_EQ(seen[2].pair.stringValue, "73");
    EXPECT_EQ(seen[3].pair.type, kDRAVPropertyTypeJSON);
    EXPECT_EQ(seen[3].pair.stringValue, "{\"a\":1}");
    EXPECT_EQ(seen[4].pair.sizeValue, (DRCSizeInteger{0, 1}));
    EXPECT_TRUE(node->GetBoolProperty(kPropertyNodeMute));
    EXPECT_EQ(node->GetSizeProperty(kPropertyVideoSize), (DRCSizeInteger{0, 1}));
}

TEST_F(DRAVObjectTest, ReadOnlySetNotifiesButChangesNothing)
{
    Watch({kPropertyDeviceObserverChange, kPropertyNodeVULevelChannel1});
    EXPECT_TRUE(node->IsReadOnlyProperty(kPropertyDeviceObserverChange));

    // The event idiom: a read-only bool fired with force.
    node->SetBoolProperty(kPropertyDeviceObserverChange, true, true);
    ASSERT_EQ(observer->Count(), 1u);
    EXPECT_TRUE(observer->Mine()[0].pair.GetBool());
    EXPECT_FALSE(node->GetBoolProperty(kPropertyDeviceObserverChange));

    // A different value without force also notifies; the value stays.
    node->SetDoubleProperty(kPropertyNodeVULevelChannel1, 0.9);
    ASSERT_EQ(observer->Count(), 2u);
    EXPECT_DOUBLE_EQ(observer->Mine()[1].pair.GetDouble(), 0.9);
    EXPECT_DOUBLE_EQ(node->GetDoubleProperty(kPropertyNodeVULevelChannel1), 0.25);

    // The current value without force tells nobody.
    node->SetDoubleProperty(kPropertyNodeVULevelChannel1, 0.25);
    EXPECT_EQ(observer->Count(), 2u);
}

TEST_F(DRAVObjectTest, WriteOnlyReadsAsZeroAndCommandsRunEachTime)
{
    Watch({kPropertyUnitDumpPinStatistics, kWriteOnlyCount});
    EXPECT_FALSE(node->IsReadOnlyProperty(kWriteOnlyCount));

    node->SetIntProperty(kWriteOnlyCount, 42);
    EXPECT_EQ(node->WriteOnlyValue(), 42);
    EXPECT_EQ(node->GetIntProperty(kWriteOnlyCount), 0);
    // Reads as zero, so a second set of 42 is not "equal" and goes through.
    node->SetIntProperty(kWriteOnlyCount, 42);
    EXPECT_EQ(node->writeOnlySets, 2);
    // A set of 0 equals what it reads as and is dropped without force.
    node->SetIntProperty(kWriteOnlyCount, 0);
    EXPECT_EQ(node->writeOnlySets, 2);

    for (int i = 0; i < 3; ++i)
    {
        node->ExecuteCommandProperty(kPropertyUnitDumpPinStatistics);
    }
    EXPECT_EQ(node->dumps, 3);
    EXPECT_FALSE(node->GetBoolProperty(kPropertyUnitDumpPinStatistics));
    // A command set to false is still a set, but the action runs on true only.
    node->SetBoolProperty(kPropertyUnitDumpPinStatistics, false, true);
    EXPECT_EQ(node->dumps, 3);

    const std::vector<Notification> seen = observer->Mine();
    ASSERT_EQ(seen.size(), 6u);
    for (size_t i = 2; i < 5; ++i)
    {
        EXPECT_EQ(seen[i].pair.key, kPropertyUnitDumpPinStatistics);
        EXPECT_TRUE(seen[i].pair.GetBool());
    }
}

TEST_F(DRAVObjectTest, ThrowingSetterDoesNotEscape)
{
    tidemix::test::LogCapture capture;
    Watch({kThrowingInt});
    EXPECT_NO_THROW(node->SetIntProperty(kThrowingInt, 5));
    EXPECT_EQ(observer->Count(), 1u);
    ASSERT_EQ(capture.Lines().size(), 1u);
    EXPECT_EQ(capture.Count("refused"), 1u);
}

TEST(KVCPropertyTest, AccessModesAndWhatTheyAllow)
{
    EXPECT_EQ(KVCProperty("rw", kDRAVPropertyTypeInteger, true, true).GetAccessMode(), kKVCAccessReadWrite);
    EXPECT_EQ(KVCProperty("ro", kDRAVPropertyTypeInteger, false, true).GetAccessMode(), kKVCAccessReadOnly);
    EXPECT_EQ(KVCProperty("wo", kDRAVPropertyTypeInteger, true, false).GetAccessMode(), kKVCAccessWriteOnly);
    EXPECT_EQ(KVCProperty("none", kDRAVPropertyTypeInteger, false, false).GetAccessMode(),
              kKVCAccessReadWrite);
    EXPECT_EQ(TestNode::GetMyObjectProperties()->Find(kWriteOnlyCount)->GetAccessMode(), kKVCAccessWriteOnly);

    // The untyped base gives zero values and ignores sets.
    KVCProperty plain("plain", kDRAVPropertyTypeString, true, true);
    TestNode node("n");
    plain.SetString(&node, "x");
    EXPECT_EQ(plain.GetString(&node), "");
    EXPECT_EQ(plain.GetInt(&node), 0);
    EXPECT_EQ(plain.GetData(&node).size(), 0u);
    EXPECT_EQ(plain.GetSize(&node), DRCSizeInteger{});

    // Explicit flags override accessor presence: a set without a setter goes nowhere.
    KVCDoubleProperty<TestNode> gainless("Gainless", nullptr, &TestNode::GetLevel, true, true);
    EXPECT_EQ(gainless.GetAccessMode(), kKVCAccessReadWrite);
    gainless.SetDouble(&node, 3.0);
    EXPECT_DOUBLE_EQ(gainless.GetDouble(&node), 0.25);

    // An object of another class, or none, gets zero and no call.
    DRAVObject other("plain");
    KVCProperty* gain = TestNode::GetMyObjectProperties()->Find(kPropertyNodeGain);
    ASSERT_NE(gain, nullptr);
    for (DRAVObject* target : {&other, static_cast<DRAVObject*>(nullptr)})
    {
        gain->SetDouble(target, 0.1);
        EXPECT_DOUBLE_EQ(gain->GetDouble(target), 0.0);
    }
}

// Accepts names without a descriptor, as some classes do.
class LenientNode : public TestNode
{
public:
    LenientNode() : TestNode("lenient") {}
    DRAVResult DefaultPropertySetter(const DRAVPropertyKVPair& pair) override
    {
        setterPairs.push_back(pair);
        return DRAVResult(kDRAVResultOk);
    }
    DRAVResult DefaultPropertyGetter(DRAVPropertyKVPair& pair) override
    {
        getterKeys.push_back(pair.key);
        const bool known = pair.key == "Dynamic";
        pair.SetInt(known ? 77 : 99);  // 99 must not be seen: the result is a failure
        pair.stringValue = "dyn";
        return DRAVResult(known ? kDRAVResultOk : kDRAVResultErrNotFound);
    }
    std::vector<DRAVPropertyKVPair> setterPairs;
    std::vector<std::string> getterKeys;
};

TEST(DRAVObjectDefaultsTest, UnknownNamesAndWrongTypesGoToTheDefaults)
{
    LenientNode node;
    auto observer = std::make_shared<RecordingObserver>("o");
    node.AddObserver(KVOItem::Weak(observer), kPropertyNodeGain);

    node.SetIntProperty("Dynamic", 5);
    node.SetIntProperty(kPropertyNodeGain, 2);  // a double property set as an integer
    ASSERT_EQ(node.setterPairs.size(), 2u);
    EXPECT_EQ(node.setterPairs[0].key, "Dynamic");
    EXPECT_EQ(node.setterPairs[0].type, kDRAVPropertyTypeInteger);
    EXPECT_EQ(node.setterPairs[0].GetInt(), 5);
    EXPECT_EQ(node.setterPairs[1].key, kPropertyNodeGain);
    EXPECT_EQ(node.gainSets, 0);
    EXPECT_EQ(observer->Count(), 0u);

    EXPECT_EQ(node.GetIntProperty("Dynamic"), 77);
    EXPECT_EQ(node.GetStringProperty("Dynamic"), "dyn");
    EXPECT_EQ(node.GetIntProperty("Other"), 0);
    EXPECT_EQ(node.GetIntProperty(kPropertyNodeGain), 0);
    EXPECT_DOUBLE_EQ(node.GetDoubleProperty(kPropertyNodeGain), 1.0);
    EXPECT_EQ(node.getterKeys, (std::vector<std::string>{"Dynamic", "Dynamic", "Other", kPropertyNodeGain}));
    node.RemoveObserver(KVOItem::Weak(observer), kPropertyNodeGain);
}

class MaplessObject : public DRAVObject
{
public:
    MaplessObject() : DRAVObject("pin", nullptr) {}
    DRAVResult DefaultPropertySetter(const DRAVPropertyKVPair&) override
    {
        ++defaultSets;
        return DRAVResult(kDRAVResultOk);
    }
    DRAVResult DefaultPropertyGetter(DRAVPropertyKVPair& pair) override
    {
        pair.SetBool(true);
        return DRAVResult(kDRAVResultOk);
    }
    int defaultSets = 0;
};

TEST(DRAVObjectDefaultsTest, ObjectWithoutMap)
{
    MaplessObject pin;
    pin.SetIntProperty(kPropertyFriendlyName, 1);
    pin.SetStringProperty(kPropertyFriendlyName, "x");
    EXPECT_EQ(pin.defaultSets, 0);
    EXPECT_EQ(pin.GetFriendlyName(), "pin");
    EXPECT_FALSE(pin.HasProperty(kPropertyFriendlyName));
    EXPECT_TRUE(pin.IsReadOnlyProperty(kPropertyFriendlyName));
    EXPECT_FALSE(pin.HasObserver(""));
    EXPECT_TRUE(pin.GetBoolProperty("anything"));  // a get still asks the default getter
    RecordingObserver observer("o");
    pin.AddObserver(KVOItem::Raw(&observer), kPropertyFriendlyName);
    pin.NotifyPropertyObservers(DRAVPropertyKVPair::MakeString(kPropertyFriendlyName, "y"));
    EXPECT_EQ(observer.Count(), 0u);
}

TEST(DRAVObjectIdentityTest, ObjectIdIsAFreshReadOnlyUuid)
{
    // That ids are distinct, the threads test checks for objects made on many threads at once.
    auto object = std::make_shared<DRAVObject>("first");
    auto observer = std::make_shared<RecordingObserver>("o");
    object->AddObserver(KVOItem::Weak(observer), kPropertyUnitObjectID);
    const std::string id = object->GetObjectID();
    ASSERT_EQ(id.size(), 36u);  // lower-case hex digits in groups of 8-4-4-4-12
    for (size_t c = 0; c < id.size(); ++c)
    {
        const bool dash = c == 8 || c == 13 || c == 18 || c == 23;
        EXPECT_TRUE(dash ? id[c] == '-' : std::strchr("0123456789abcdef", id[c]) != nullptr) << id;
    }
    EXPECT_EQ(object->GetStringProperty(kPropertyUnitObjectID), id);
    EXPECT_TRUE(object->IsReadOnlyProperty(kPropertyUnitObjectID));
    object->SetStringProperty(kPropertyUnitObjectID, "forged");
    EXPECT_EQ(object->GetObjectID(), id);
    EXPECT_EQ(observer->Count(), 1u);
    object->RemoveObserver(KVOItem::Weak(observer), kPropertyUnitObjectID);

    EXPECT_FALSE(object->IsReadOnlyProperty(kPropertyFriendlyName));
    object->SetStringProperty(kPropertyFriendlyName, "renamed");
    EXPECT_EQ(object->GetFriendlyName(), "renamed");
    object->SetFriendlyName("again");
    EXPECT_EQ(object->GetStringProperty(kPropertyFriendlyName), "again");
}

TEST(KVCMapTest, DerivedMapsShareTheBaseDescriptors)
{
    KVCMap* objectMap = DRAVObject::GetMyObjectProperties();
    KVCMap* nodeMap = TestNode::GetMyObjectProperties();
    KVCMap* mixerMap = TestMixer::GetMyObjectProperties();
    EXPECT_EQ(mixerMap->size(), 15u);  // one replaced, one added: nothing listed twice

    for (const char* name : {kPropertyUnitObjectID, kPropertyFriendlyName})
    {
        ASSERT_NE(objectMap->Find(name), nullptr);
        EXPECT_EQ(nodeMap->Find(name), objectMap->Find(name));
        EXPECT_EQ(mixerMap->Find(name), objectMap->Find(name));
    }
    EXPECT_EQ(mixerMap->Find(kPropertyNodeGain), nodeMap->Find(kPropertyNodeGain));
    EXPECT_EQ(objectMap->Find(kPropertyNodeGain), nullptr);
    EXPECT_EQ(nodeMap->Find(kPropertyCommonObserver), nullptr);
    ASSERT_NE(mixerMap->Find(kPropertyCommonObserver), nullptr);

    // The mixer's own buffer size replaces the inherited one in its map only.
    KVCProperty* nodeFrames = nodeMap->Find(kPropertyAudioBufferSizeFrameCount);
    KVCProperty* mixerFrames = mixerMap->Find(kPropertyAudioBufferSizeFrameCount);
    ASSERT_NE(mixerFrames, nullptr);
    EXPECT_NE(mixerFrames, nodeFrames);
    TestMixer mixer("mixer");
    TestNode node("node");
    mixer.SetIntProperty(kPropertyAudioBufferSizeFrameCount, 128);
    node.SetIntProperty(kPropertyAudioBufferSizeFrameCount, 128);
    EXPECT_EQ(mixer.GetIntProperty(kPropertyAudioBufferSizeFrameCount), 960);
    EXPECT_EQ(node.GetIntProperty(kPropertyAudioBufferSizeFrameCount), 128);

    // An observer of a base descriptor hears subclass instances, through the property form only.
    RecordingObserver observer("o");
    node.AddObserver(KVOItem::Raw(&observer), kPropertyFriendlyName);
    mixer.SetFriendlyName("quiet");
    mixer.SetStringProperty(kPropertyFriendlyName, "loud");
    node.RemoveObserver(KVOItem::Raw(&observer), kPropertyFriendlyName);
    ASSERT_EQ(observer.Count(), 1u);
    EXPECT_EQ(observer.Mine()[0].objectId, mixer.GetObjectID());
    EXPECT_EQ(observer.Mine()[0].pair.stringValue, "loud");
}

TEST(KVCMapTest, ContentStringListsEveryProperty)
{
    auto mixer = std::make_shared<TestMixer>("mixer");
    mixer->SetBoolProperty(kPropertyNodeMute, true);
    mixer->SetSizeProperty(kPropertyVideoSize, DRCSizeInteger{640, 480});
    RecordingObserver a("a");
    RecordingObserver b("b");
    mixer->AddObserver(KVOItem::Raw(&a), "");
    mixer->AddObserver(KVOItem::Raw(&b), "");

    KVCMap* map = mixer->GetPropertyMap();
    const std::string text = map->GetContentString(mixer, ">>");
    auto line = [](const std::string& name, const std::string& type, const std::string& value)
    {
        return ">>    " + name + std::string(36 - name.size(), ' ') + type +
               std::string(9 - type.size(), ' ') + value + "\n";
    };
    const std::vector<std::vector<std::string>> expected = {
        {kPropertyNodeMute, "Bool", "true"},
        {kPropertyFriendlyName, "String", "mixer"},
        {kPropertyAudioBufferSizeFrameCount, "Integer", "960"},
        {kPropertyNodeVULevelChannel1, "Double", "0.25"},
        {kPropertyVideoSize, "Size", "640x480"},
        {kPropertyAudioMixerChannelConfig, "JSON", "{}"},
        {kPropertyCommonObserver, "Observer", "2 item(s)"},
        {kPropertyUnitDumpPinStatistics, "Bool", "false"}};
    for (const auto& row : expected)
    {
        EXPECT_NE(text.find(line(row[0], row[1], row[2])), std::string::npos) << row[0] << "\n" << text;
    }
    EXPECT_EQ(static_cast<size_t>(std::count(text.begin(), text.end(), '\n')), map->size());
    // Types out of range have no name.
    EXPECT_STREQ(_DRAVPropertyTypeToString(9), "");
    EXPECT_STREQ(_DRAVPropertyTypeToString(-1), "");
    EXPECT_EQ(mixer->dumps, 0);  // reading values for a listing runs no setter and no command

    {
        tidemix::test::LogCapture capture;  // the same listing, a log line a property
        map->Dump("dump", mixer);
        EXPECT_EQ(capture.Count("dump    "), map->size());
    }
    mixer->RemoveObserver(KVOItem::Raw(&a), "");
    mixer->RemoveObserver(KVOItem::Raw(&b), "");

    // Without an object only the observer count has a value.
    const std::string bare = map->GetContentString(nullptr, "");
    EXPECT_NE(bare.find(line(kPropertyNodeMute, "Bool", "").substr(2)), std::string::npos) << bare;
}

TEST(DRAVObjectPairTest, SetAndGetThroughPairs)
{
    auto node = std::make_shared<TestNode>("node");
    EXPECT_EQ(DRAVObject::SetPropertyOnObject(nullptr, DRAVPropertyKVPair::MakeInt("x", 1)),
              kDRAVResultErrNotFound);
    DRAVPropertyKVPair nothing(kDRAVPropertyTypeInteger, kPropertyAudioBufferSizeFrameCount);
    EXPECT_EQ(DRAVObject::GetPropertyFromObject(nullptr, nothing), kDRAVResultErrNotFound);

    const std::vector<DRAVPropertyKVPair> pairs = {
        DRAVPropertyKVPair::MakeInt(kPropertyAudioBufferSizeFrameCount, 256),
        DRAVPropertyKVPair::MakeDouble(kPropertyNodeGain, 0.75),
        DRAVPropertyKVPair::MakeString(kPropertyCaptureDevicePath, "12"),
        DRAVPropertyKVPair::MakeJson(kPropertyAudioMixerChannelConfig, "[1]"),
        DRAVPropertyKVPair::MakeSize(kPropertyVideoSize, {3, 4}),
        DRAVPropertyKVPair::MakeBool(kPropertyNodeMute, true)};
    for (const DRAVPropertyKVPair& pair : pairs)
    {
        EXPECT_EQ(DRAVObject::SetPropertyOnObject(node, pair), kDRAVResultOk) << pair.key;
    }
    // Ok whatever the set did; data and observer pairs are not for objects.
    EXPECT_EQ(DRAVObject::SetPropertyOnObject(node, DRAVPropertyKVPair::MakeInt("No Such Property", 1)),
              kDRAVResultOk);
    EXPECT_EQ(DRAVObject::SetPropertyOnObject(node, DRAVPropertyKVPair::MakeData("data", {1, 2})),
              kDRAVResultErrNotImplemented);
    EXPECT_EQ(DRAVObject::SetPropertyOnObject(node, DRAVPropertyKVPair(kDRAVPropertyTypeObserver, "x")),
              kDRAVResultErrNotImplemented);

    for (const DRAVPropertyKVPair& expected : pairs)
    {
        DRAVPropertyKVPair got(expected.type, expected.key);
        EXPECT_EQ(DRAVObject::GetPropertyFromObject(node, got), kDRAVResultOk) << expected.key;
        EXPECT_EQ(got.GetInt(), expected.GetInt()) << expected.key;
        EXPECT_DOUBLE_EQ(got.GetDouble(), expected.GetDouble()) << expected.key;
        EXPECT_EQ(got.GetBool(), expected.GetBool()) << expected.key;
        EXPECT_EQ(got.stringValue, expected.stringValue) << expected.key;
        EXPECT_EQ(got.sizeValue, expected.sizeValue) << expected.key;
    }
    DRAVPropertyKVPair data(kDRAVPropertyTypeData, "data");
    EXPECT_EQ(DRAVObject::GetPropertyFromObject(node, data), kDRAVResultErrNotImplemented);

    // The scalar slot follows the type: other readings give zero.
    DRAVPropertyKVPair pair = DRAVPropertyKVPair::MakeDouble("k", 2.5);
    EXPECT_EQ(pair.GetInt(), 0);
    pair.SetBool(true);
    EXPECT_DOUBLE_EQ(pair.GetDouble(), 0.0);
}
}  // namespace
