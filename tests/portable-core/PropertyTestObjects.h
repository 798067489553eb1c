#pragma once

// Example classes with properties, shared by the property tests. TestNode is
// also the model for declaring a class's properties.

#include <atomic>
#include <cmath>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "portable-core/DRAVObject.h"
#include "portable-core/DRAVPropertyNames.h"
#include "portable-core/KVCMapBuilder.h"
#include "portable-core/KVObserver.h"

namespace property_test
{
inline constexpr char kWriteOnlyCount[] = "Write Only Count";
inline constexpr char kThrowingInt[] = "Throwing Int";

class TestNode : public DRAVObject
{
public:
    // Like a unit: a subclass hands its richer map up, null means this class's.
    explicit TestNode(const std::string& name, KVCMap* map = nullptr)
        : DRAVObject(name, map != nullptr ? map : TestNode::GetMyObjectProperties())
    {
    }

    static KVCMap* GetMyObjectProperties()
    {
        static KVCMap* const sClassProperties =
            KVCMapBuilder<TestNode>(DRAVObject::GetMyObjectProperties())
                .Double(kPropertyNodeGain, &TestNode::SetGain, &TestNode::GetGain)
                .Bool(kPropertyNodeMute, &TestNode::SetMute, &TestNode::GetMute)
                .Double(kPropertyNodeVULevelChannel1, nullptr, &TestNode::GetLevel)
                .Int(kPropertyAudioBufferSizeFrameCount, &TestNode::SetFrames, &TestNode::GetFrames)
                .Int(kPropertyDeviceObserverNotification, nullptr, &TestNode::GetNotification)
                .Bool(kPropertyDeviceObserverChange, nullptr, &TestNode::AlwaysFalse)
                .Command(kPropertyUnitDumpPinStatistics, &TestNode::DumpStatistics)
                .Int(kWriteOnlyCount, &TestNode::SetWriteOnlyCount, nullptr)
                .String(kPropertyCaptureDevicePath, &TestNode::SetPath, &TestNode::GetPath)
                .Json(kPropertyAudioMixerChannelConfig, &TestNode::SetConfig, &TestNode::GetConfig)
                .Size(kPropertyVideoSize, &TestNode::SetSize, &TestNode::GetSize)
                .Int(kThrowingInt, &TestNode::ThrowOnSet, &TestNode::GetFrames)
                .Build();
        return sClassProperties;
    }

    // Accessors: some return a result, some take narrower types, as real classes do.
    DRAVResult SetGain(double gain)
    {
        ++gainSets;
        gain_ = gain;
        return DRAVResult(kDRAVResultOk);
    }
    double GetGain() const { return gain_; }
    void SetMute(bool mute)
    {
        ++muteSets;
        mute_ = mute;
    }
    bool GetMute() const { return mute_; }
    double GetLevel() const { return 0.25; }
    void SetFrames(int frames)
    {
        ++frameSets;
        frames_ = frames;
    }
    int GetFrames() const { return frames_; }
    int64_t GetNotification() const { return 3; }
    bool AlwaysFalse() const { return false; }
    void DumpStatistics() { ++dumps; }
    void SetWriteOnlyCount(int64_t value)
    {
        ++writeOnlySets;
        writeOnly_ = value;
    }
    int64_t WriteOnlyValue() const { return writeOnly_; }
    void SetPath(const std::string& path)
    {
        std::lock_guard<std::mutex> lock(textMutex_);
        path_ = path;
    }
    std::string GetPath() const
    {
        std::lock_guard<std::mutex> lock(textMutex_);
        return path_;
    }
    void SetConfig(const std::string& json)
    {
        std::lock_guard<std::mutex> lock(textMutex_);
        config_ = json;
    }
    std::string GetConfig() const
    {
        std::lock_guard<std::mutex> lock(textMutex_);
        return config_;
    }
    void SetSize(DRCSizeInteger size) { size_ = size; }
    DRCSizeInteger GetSize() const { return size_; }
    void ThrowOnSet(int64_t) { throw std::runtime_error("refused"); }

    std::atomic<int> gainSets{0};
    std::atomic<int> muteSets{0};
    std::atomic<int> frameSets{0};
    std::atomic<int> dumps{0};
    std::atomic<int> writeOnlySets{0};

private:
    std::atomic<double> gain_{1.0};
    std::atomic<bool> mute_{false};
    std::atomic<int> frames_{960};
    std::atomic<int64_t> writeOnly_{0};
    mutable std::mutex textMutex_;
    std::string path_;
    std::string config_ = "{}";
    DRCSizeInteger size_{};
};

// Adds common observers and a buffer size that can't be written here: the
// inherited descriptor is replaced in this class's map only.
class TestMixer : public TestNode
{
public:
    explicit TestMixer(const std::string& name) : TestNode(name, TestMixer::GetMyObjectProperties()) {}

    static KVCMap* GetMyObjectProperties()
    {
        static KVCMap* const sClassProperties =
            KVCMapBuilder<TestMixer>(TestNode::GetMyObjectProperties())
                .Int(kPropertyAudioBufferSizeFrameCount, nullptr, &TestMixer::GetFrames)
                .CommonObserver()
                .Build();
        return sClassProperties;
    }
};

// One notification as an observer saw it.
struct Notification
{
    std::string observer;
    std::string objectId;
    DRAVPropertyKVPair pair;
    KVCProperty* property = nullptr;
    bool viaTwoArgumentForm = false;
};

// Records what it is told, in a log that several observers may share so that
// the order between them shows. `onUpdate` runs inside the callback.
class RecordingObserver : public KVObserver
{
public:
    explicit RecordingObserver(std::string tag, std::shared_ptr<std::vector<Notification>> log = nullptr)
        : tag_(std::move(tag)),
          log_(log != nullptr ? std::move(log) : std::make_shared<std::vector<Notification>>())
    {
    }

    void UpdateObserver(const std::string& objectId, DRAVPropertyKVPair pair, KVCProperty* property) override
    {
        Record(objectId, pair, property, false);
    }
    void UpdateObserver(const std::string& objectId, DRAVPropertyKVPair pair) override
    {
        Record(objectId, pair, nullptr, true);
    }

    std::vector<Notification> Mine() const
    {
        std::vector<Notification> mine;
        for (const Notification& n : *log_)
        {
            if (n.observer == tag_)
            {
                mine.push_back(n);
            }
        }
        return mine;
    }
    size_t Count() const { return Mine().size(); }
    const std::shared_ptr<std::vector<Notification>>& Log() const { return log_; }

    std::function<void(const DRAVPropertyKVPair&)> onUpdate;

private:
    void Record(const std::string& objectId, const DRAVPropertyKVPair& pair, KVCProperty* property,
                bool twoArgs)
    {
        log_->push_back(Notification{tag_, objectId, pair, property, twoArgs});
        if (onUpdate)
        {
            onUpdate(pair);
        }
    }

    std::string tag_;
    std::shared_ptr<std::vector<Notification>> log_;
};

inline std::vector<std::string> Tags(const std::vector<Notification>& log)
{
    std::vector<std::string> tags;
    for (const Notification& n : log)
    {
        tags.push_back(n.observer);
    }
    return tags;
}
}  // namespace property_test
