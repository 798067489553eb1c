#include "portable-core/DRAVObject.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cmath>
#include <limits>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "PropertyTestObjects.h"
#include "portable-core/DRAVLog.h"
#include "portable-core/DRAVPropertyNames.h"
#include "portable-core/KVCMap.h"
#include "portable-core/KVCTypedProperty.h"

using namespace property_test;

namespace
{
class ScopedLogCapture
{
public:
    ScopedLogCapture()
    {
        former_ =
            DRAVSetLogHandler([this](eDbgPrintLevel, const std::string& line) { lines_.push_back(line); });
    }
    ~ScopedLogCapture() { DRAVSetLogHandler(std::move(former_)); }
    ScopedLogCapture(const ScopedLogCapture&) = delete;
    ScopedLogCapture& operator=(const ScopedLogCapture&) = delete;
    const std::vector<std::string>& Lines() const { return lines_; }

private:
    DRAVLogHandler former_;
    std::vector<std::string> lines_;
};

// Fixture: one node with one observer on every property change we look at.
class DRAVObjectTest : public ::testing::Test
{
protected:
    void Watch(const std::string& name) { node->AddObserver(KVOItem::Weak(observer), name); }
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

TEST_F(DRAVObjectTest, SetOfEqualValueNeedsForce)
{
    Watch(kPropertyNodeGain);
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
}

TEST_F(DRAVObjectTest, EqualityPerType)
{
    for (const char* name :
         {kPropertyNodeMute, kPropertyAudioBufferSizeFrameCount, kPropertyCaptureDevicePath,
          kPropertyAudioMixerChannelConfig, kPropertyVideoSize})
    {
        Watch(name);
    }
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
    EXPECT_EQ(node->GetIntProperty(kPropertyAudioBufferSizeFrameCount), 480);
    EXPECT_EQ(node->GetStringProperty(kPropertyCaptureDevicePath), "73");
    EXPECT_EQ(node->GetJsonProperty(kPropertyAudioMixerChannelConfig), "{\"a\":1}");
    EXPECT_EQ(node->GetSizeProperty(kPropertyVideoSize), (DRCSizeInteger{0, 1}));
}

TEST_F(DRAVObjectTest, NaNAlwaysDiffers)
{
    Watch(kPropertyNodeGain);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    node->SetDoubleProperty(kPropertyNodeGain, nan);
    node->SetDoubleProperty(kPropertyNodeGain, nan);
    EXPECT_EQ(node->gainSets, 2);
    ASSERT_EQ(observer->Count(), 2u);
    EXPECT_TRUE(std::isnan(observer->Mine()[1].pair.GetDouble()));
}

TEST_F(DRAVObjectTest, ReadOnlySetNotifiesButChangesNothing)
{
    Watch(kPropertyDeviceObserverChange);
    Watch(kPropertyNodeVULevelChannel1);
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
    Watch(kPropertyUnitDumpPinStatistics);
    Watch(kWriteOnlyCount);
    EXPECT_FALSE(node->IsReadOnlyProperty(kWriteOnlyCount));
    EXPECT_EQ(node->FindProperty(kWriteOnlyCount)->GetAccessMode(), kKVCAccessWriteOnly);

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

TEST(KVCPropertyTest, AccessModeFromFlags)
{
    EXPECT_EQ(KVCProperty("rw", kDRAVPropertyTypeInteger, true, true).GetAccessMode(), kKVCAccessReadWrite);
    EXPECT_EQ(KVCProperty("ro", kDRAVPropertyTypeInteger, false, true).GetAccessMode(), kKVCAccessReadOnly);
    EXPECT_EQ(KVCProperty("wo", kDRAVPropertyTypeInteger, true, false).GetAccessMode(), kKVCAccessWriteOnly);
    EXPECT_EQ(KVCProperty("none", kDRAVPropertyTypeInteger, false, false).GetAccessMode(),
              kKVCAccessReadWrite);

    // The untyped base gives zero values and ignores sets.
    KVCProperty plain("plain", kDRAVPropertyTypeString, true, true);
    TestNode node("n");
    plain.SetString(&node, "x");
    EXPECT_EQ(plain.GetString(&node), "");
    EXPECT_EQ(plain.GetInt(&node), 0);
    EXPECT_EQ(plain.GetData(&node).size(), 0u);
    EXPECT_EQ(plain.GetSize(&node), DRCSizeInteger{});
}

TEST(KVCPropertyTest, ExplicitFlagsOverrideAccessorPresence)
{
    // Read and write although no setter exists: sets go nowhere but observers hear of them.
    KVCDoubleProperty<TestNode> gainless("Gainless", nullptr, &TestNode::GetLevel, true, true);
    EXPECT_EQ(gainless.GetAccessMode(), kKVCAccessReadWrite);
    TestNode node("n");
    gainless.SetDouble(&node, 3.0);
    EXPECT_DOUBLE_EQ(gainless.GetDouble(&node), 0.25);
}

TEST(KVCPropertyTest, ObjectOfAnotherClassGetsZeroAndNoCall)
{
    DRAVObject plain("plain");
    KVCProperty* gain = TestNode::GetMyObjectProperties()->Find(kPropertyNodeGain);
    ASSERT_NE(gain, nullptr);
    gain->SetDouble(&plain, 0.1);
    EXPECT_DOUBLE_EQ(gain->GetDouble(&plain), 0.0);
    gain->SetDouble(nullptr, 0.1);
    EXPECT_DOUBLE_EQ(gain->GetDouble(nullptr), 0.0);
}

TEST_F(DRAVObjectTest, ThrowingSetterDoesNotEscape)
{
    ScopedLogCapture capture;
    Watch(kThrowingInt);
    EXPECT_NO_THROW(node->SetIntProperty(kThrowingInt, 5));
    EXPECT_EQ(observer->Count(), 1u);
    ASSERT_EQ(capture.Lines().size(), 1u);
    EXPECT_NE(capture.Lines()[0].find("refused"), std::string::npos);
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
        if (pair.key == "Dynamic")
        {
            pair.SetInt(77);
            pair.stringValue = "dyn";
            return DRAVResult(kDRAVResultOk);
        }
        pair.SetInt(99);  // must not be seen: the result is a failure
        return DRAVResult(kDRAVResultErrNotFound);
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
    // A get still asks the default getter.
    EXPECT_TRUE(pin.GetBoolProperty("anything"));
    RecordingObserver observer("o");
    pin.AddObserver(KVOItem::Raw(&observer), kPropertyFriendlyName);
    pin.NotifyPropertyObservers(DRAVPropertyKVPair::MakeString(kPropertyFriendlyName, "y"));
    EXPECT_EQ(observer.Count(), 0u);
}

TEST(DRAVObjectIdentityTest, ObjectIdIsAFreshReadOnlyUuid)
{
    std::set<std::string> ids;
    for (int i = 0; i < 50; ++i)
    {
        DRAVObject object("o");
        const std::string id = object.GetObjectID();
        ASSERT_EQ(id.size(), 36u);
        for (size_t c = 0; c < id.size(); ++c)
        {
            if (c == 8 || c == 13 || c == 18 || c == 23)
            {
                EXPECT_EQ(id[c], '-');
            }
            else
            {
                EXPECT_TRUE(std::isxdigit(static_cast<unsigned char>(id[c])) &&
                            !std::isupper(static_cast<unsigned char>(id[c])))
                    << id;
            }
        }
        ids.insert(id);
    }
    EXPECT_EQ(ids.size(), 50u);

    auto object = std::make_shared<DRAVObject>("first");
    auto observer = std::make_shared<RecordingObserver>("o");
    object->AddObserver(KVOItem::Weak(observer), kPropertyUnitObjectID);
    const std::string id = object->GetObjectID();
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
    EXPECT_EQ(DRAVObject::GetMyObjectProperties(), objectMap);
    EXPECT_EQ(TestNode::GetMyObjectProperties(), nodeMap);

    EXPECT_EQ(objectMap->size(), 2u);
    EXPECT_EQ(nodeMap->size(), 14u);
    EXPECT_EQ(mixerMap->size(), 15u);
    EXPECT_LE(nodeMap->load_factor(), 1.0f);

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
    EXPECT_EQ(mixerMap->Find(kPropertyCommonObserver)->GetType(), kDRAVPropertyTypeObserver);
    EXPECT_EQ(mixerMap->Find(kPropertyCommonObserver)->GetAccessMode(), kKVCAccessReadOnly);

    // The mixer's own buffer size replaces the inherited one in its map only.
    KVCProperty* nodeFrames = nodeMap->Find(kPropertyAudioBufferSizeFrameCount);
    KVCProperty* mixerFrames = mixerMap->Find(kPropertyAudioBufferSizeFrameCount);
    ASSERT_NE(mixerFrames, nullptr);
    EXPECT_NE(mixerFrames, nodeFrames);
    EXPECT_EQ(nodeFrames->GetAccessMode(), kKVCAccessReadWrite);
    EXPECT_EQ(mixerFrames->GetAccessMode(), kKVCAccessReadOnly);

    TestMixer mixer("mixer");
    TestNode node("node");
    mixer.SetIntProperty(kPropertyAudioBufferSizeFrameCount, 128);
    node.SetIntProperty(kPropertyAudioBufferSizeFrameCount, 128);
    EXPECT_EQ(mixer.GetIntProperty(kPropertyAudioBufferSizeFrameCount), 960);
    EXPECT_EQ(node.GetIntProperty(kPropertyAudioBufferSizeFrameCount), 128);
}

TEST(KVCMapTest, ObserverOfABaseDescriptorHearsSubclassInstances)
{
    TestNode node("node");
    auto mixer = std::make_shared<TestMixer>("mixer");
    RecordingObserver observer("o");
    node.AddObserver(KVOItem::Raw(&observer), kPropertyFriendlyName);
    mixer->SetFriendlyName("quiet");  // the plain accessor tells nobody
    mixer->SetStringProperty(kPropertyFriendlyName, "loud");
    node.RemoveObserver(KVOItem::Raw(&observer), kPropertyFriendlyName);
    ASSERT_EQ(observer.Count(), 1u);
    EXPECT_EQ(observer.Mine()[0].objectId, mixer->GetObjectID());
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
    EXPECT_NE(text.find(line(kPropertyNodeMute, "Bool", "true")), std::string::npos) << text;
    EXPECT_NE(text.find(line(kPropertyFriendlyName, "String", "mixer")), std::string::npos) << text;
    EXPECT_NE(text.find(line(kPropertyAudioBufferSizeFrameCount, "Integer", "960")), std::string::npos)
        << text;
    EXPECT_NE(text.find(line(kPropertyNodeVULevelChannel1, "Double", "0.25")), std::string::npos) << text;
    EXPECT_NE(text.find(line(kPropertyVideoSize, "Size", "640x480")), std::string::npos) << text;
    EXPECT_NE(text.find(line(kPropertyAudioMixerChannelConfig, "JSON", "{}")), std::string::npos) << text;
    EXPECT_NE(text.find(line(kPropertyCommonObserver, "Observer", "2 item(s)")), std::string::npos) << text;
    EXPECT_NE(text.find(line(kPropertyUnitDumpPinStatistics, "Bool", "false")), std::string::npos) << text;
    size_t lines = 0;
    for (char c : text)
    {
        lines += c == '\n' ? 1 : 0;
    }
    EXPECT_EQ(lines, map->size());
    // Reading values for a listing runs no setter and no command.
    EXPECT_EQ(mixer->dumps, 0);

    {
        ScopedLogCapture capture;
        map->Dump("dump", mixer);
        ASSERT_EQ(capture.Lines().size(), map->size());
        for (const std::string& logged : capture.Lines())
        {
            EXPECT_EQ(logged.rfind("dump    ", 0), 0u) << logged;
        }
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

    EXPECT_EQ(DRAVObject::SetPropertyOnObject(
                  node, DRAVPropertyKVPair::MakeInt(kPropertyAudioBufferSizeFrameCount, 256)),
              kDRAVResultOk);
    EXPECT_EQ(DRAVObject::SetPropertyOnObject(node, DRAVPropertyKVPair::MakeDouble(kPropertyNodeGain, 0.75)),
              kDRAVResultOk);
    EXPECT_EQ(DRAVObject::SetPropertyOnObject(
                  node, DRAVPropertyKVPair::MakeString(kPropertyCaptureDevicePath, "12")),
              kDRAVResultOk);
    EXPECT_EQ(DRAVObject::SetPropertyOnObject(
                  node, DRAVPropertyKVPair::MakeJson(kPropertyAudioMixerChannelConfig, "[1]")),
              kDRAVResultOk);
    EXPECT_EQ(DRAVObject::SetPropertyOnObject(node, DRAVPropertyKVPair::MakeSize(kPropertyVideoSize, {3, 4})),
              kDRAVResultOk);
    EXPECT_EQ(DRAVObject::SetPropertyOnObject(node, DRAVPropertyKVPair::MakeBool(kPropertyNodeMute, true)),
              kDRAVResultOk);
    // Ok whatever the set did.
    EXPECT_EQ(DRAVObject::SetPropertyOnObject(node, DRAVPropertyKVPair::MakeInt("No Such Property", 1)),
              kDRAVResultOk);
    EXPECT_EQ(DRAVObject::SetPropertyOnObject(node, DRAVPropertyKVPair::MakeData("data", {1, 2})),
              kDRAVResultErrNotImplemented);
    EXPECT_EQ(DRAVObject::SetPropertyOnObject(node, DRAVPropertyKVPair(kDRAVPropertyTypeObserver, "x")),
              kDRAVResultErrNotImplemented);

    DRAVPropertyKVPair frames(kDRAVPropertyTypeInteger, kPropertyAudioBufferSizeFrameCount);
    DRAVPropertyKVPair gain(kDRAVPropertyTypeDouble, kPropertyNodeGain);
    DRAVPropertyKVPair path(kDRAVPropertyTypeString, kPropertyCaptureDevicePath);
    DRAVPropertyKVPair config(kDRAVPropertyTypeJSON, kPropertyAudioMixerChannelConfig);
    DRAVPropertyKVPair size(kDRAVPropertyTypeSize, kPropertyVideoSize);
    DRAVPropertyKVPair mute(kDRAVPropertyTypeBool, kPropertyNodeMute);
    for (DRAVPropertyKVPair* pair : {&frames, &gain, &path, &config, &size, &mute})
    {
        EXPECT_EQ(DRAVObject::GetPropertyFromObject(node, *pair), kDRAVResultOk) << pair->key;
    }
    EXPECT_EQ(frames.GetInt(), 256);
    EXPECT_DOUBLE_EQ(gain.GetDouble(), 0.75);
    EXPECT_EQ(path.stringValue, "12");
    EXPECT_EQ(config.stringValue, "[1]");
    EXPECT_EQ(size.sizeValue, (DRCSizeInteger{3, 4}));
    EXPECT_TRUE(mute.GetBool());
    DRAVPropertyKVPair data(kDRAVPropertyTypeData, "data");
    EXPECT_EQ(DRAVObject::GetPropertyFromObject(node, data), kDRAVResultErrNotImplemented);
}

TEST(DRAVPropertyTypeTest, Names)
{
    const std::vector<const char*> names = {"None", "Integer", "Double", "String",  "JSON",
                                            "Size", "Bool",    "Data",   "Observer"};
    for (int32_t type = 0; type < static_cast<int32_t>(names.size()); ++type)
    {
        EXPECT_STREQ(_DRAVPropertyTypeToString(type), names[type]);
    }
    EXPECT_STREQ(_DRAVPropertyTypeToString(9), "");
    EXPECT_STREQ(_DRAVPropertyTypeToString(-1), "");
}

TEST(DRAVPropertyKVPairTest, ScalarSlotFollowsTheType)
{
    DRAVPropertyKVPair pair = DRAVPropertyKVPair::MakeDouble("k", 2.5);
    EXPECT_DOUBLE_EQ(pair.GetDouble(), 2.5);
    EXPECT_EQ(pair.GetInt(), 0);
    EXPECT_FALSE(pair.GetBool());
    const DRAVPropertyKVPair copy = pair;
    pair.SetBool(true);
    EXPECT_EQ(pair.type, kDRAVPropertyTypeBool);
    EXPECT_TRUE(pair.GetBool());
    EXPECT_DOUBLE_EQ(copy.GetDouble(), 2.5);
    EXPECT_EQ(DRAVPropertyKVPair().GetInt(), 0);
    EXPECT_EQ(DRAVPropertyKVPair().type, kDRAVPropertyTypeNone);
}
}  // namespace
