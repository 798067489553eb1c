#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "engine/media/DRAVAudioBuffer.h"
#include "engine/media/DRAVMemoryPoolRAM.h"
#include "engine/units/DRAVFilter.h"
#include "engine/units/DRAVQueueInterface.h"
#include "engine/units/DRAVSink.h"
#include "engine/units/DRAVSource.h"
#include "engine/units/DRAVUnitFactory.h"
#include "engine/units/DRAVUnitPin.h"

namespace unittest
{
// Installs a memory pool, the test ring queue and an empty unit factory for
// one test, and puts back what was there before.
class EngineEnvironment
{
public:
    EngineEnvironment();
    ~EngineEnvironment();
    EngineEnvironment(const EngineEnvironment&) = delete;
    EngineEnvironment& operator=(const EngineEnvironment&) = delete;

private:
    std::shared_ptr<DRAVMemoryPoolRAM> formerPool_;
    DRAVUnitPin::RingQueueFactory formerRing_;
    DRAVUnitFactory formerFactory_;
};

// A unit factory whose filters come from the engine's own table (the level
// meter, the delay), made children of their owner.
DRAVUnitFactory EngineFilterFactory();

// A stereo float frame of `frames` sample frames, sample i of channel c
// holding `first + i` (negated on channel 1).
std::shared_ptr<DRAVAudioBuffer> MakeFrame(int64_t timestampUsec, int64_t frames, float first = 0.0f);
// The samples of channel `channel` of a stereo float frame.
std::vector<float> ChannelSamples(const std::shared_ptr<DRAVAudioBuffer>& frame, int channel);

// A byte ring for the ring pin in tests: frames go in whole and come out in
// the consumer's sizes, with time stamps carried along.
class TestRingQueue : public DRAVQueueInterface
{
public:
    explicit TestRingQueue(std::string name) : name_(std::move(name)) {}

    DRAVResult Deinit() override;
    DRAVResult Stop() override { return DRAVResult(); }
    DRAVResult Flush() override;
    DRAVResult SetMaxNumItems(int) override { return DRAVResult(); }
    int GetMaxNumItems() override { return 0; }
    int GetCurrentNumItems() override { return 0; }
    DRAVResult SetMaxTotalSizeMB(int bytes) override;
    int GetMaxTotalSizeMB() override;
    int GetAvailableItemsAt(const DRAVTimestamp&) override { return 0; }
    DRAVDuration GetAvailableDurationAt(const DRAVTimestamp&) override { return DRAVDuration(0); }
    DRAVResult AddBuffer(std::shared_ptr<DRAVMediaBuffer> buffer) override;
    DRAVResult PullBuffer(const DRAVTimestamp&, std::shared_ptr<DRAVMediaBuffer>*, bool) override
    {
        return DRAVResult(kDRAVResultErrNotImplemented);
    }
    DRAVResult PullAudioBuffer(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                               const DRAVDuration& duration) override;
    DRAVResult PullAudioBuffer(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                               int64_t frames) override;
    DRAVResult DropBuffersBefore(const DRAVTimestamp& time) override;
    DRAVResult DropBuffersBetween(const DRAVTimestamp&, const DRAVTimestamp&) override
    {
        return DRAVResult(kDRAVResultErrNotImplemented);
    }
    DRAVResult GetStatistics(DRAVQueueStatistics* statistics) override
    {
        return statistics == nullptr ? DRAVResult(kDRAVResultErrNullPointer) : DRAVResult();
    }
    DRAVResult SetFormatChangeDelegate(std::shared_ptr<DRAVMediaFormatChangeDelegate>) override
    {
        return DRAVResult();
    }
    DRAVResult AddQueueStrategy(std::shared_ptr<DRAVQueueStrategyInterface>) override { return DRAVResult(); }
    void SetVerboseLogging(bool) override {}
    void SetPreserveBuffer(bool) override {}

    int64_t GetBytesHeld();
    int GetCapacity();

private:
    std::mutex mutex_;
    std::string name_;
    std::vector<uint8_t> bytes_;
    int capacity_ = 0;
    DRAVTimestamp readTimestamp_{-1};
};

// Records what reaches it, with the thread it came on.
class RecordingReceiver : public DRAVMediaBufferDelegate
{
public:
    explicit RecordingReceiver(std::string name = "recorder") : name_(std::move(name)) {}
    DRAVResult MediaBufferReceived(std::shared_ptr<DRAVObject> sender,
                                   std::shared_ptr<DRAVMediaBuffer> frame) override;
    std::string DRAVMediaBufferDelegateFriendlyName() override { return name_; }

    std::vector<int64_t> Timestamps();
    std::shared_ptr<DRAVObject> LastSender();
    std::thread::id LastThread();
    // Waits up to `timeoutMs` for at least `count` frames.
    bool WaitFor(size_t count, int timeoutMs);
    // The next delivery answers this.
    void SetResult(int code) { result_.store(code); }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::string name_;
    std::vector<int64_t> timestamps_;
    std::weak_ptr<DRAVObject> lastSender_;
    std::thread::id lastThread_;
    std::atomic<int> result_{kDRAVResultOk};
};

// A filter that hands every frame it gets straight on, and counts them.
class PassFilter : public DRAVFilter
{
public:
    // Passthrough input unless told otherwise, so that only tests that ask
    // for a pin thread get one.
    PassFilter(const std::string& name, DRAVFilterConfig config, DRAVPinType input = kDRAVPinTypePassthrough)
        : DRAVFilter(name, nullptr, config, 1, 1), input_(input)
    {
    }
    DRAVResult Init() override;
    DRAVResult InputMediaBufferReceived(std::shared_ptr<DRAVUnitInputPin> pin, int pinNumber,
                                        std::shared_ptr<DRAVMediaBuffer> frame) override;
    int64_t Received() const { return received_.load(); }

private:
    const DRAVPinType input_;
    std::atomic<int64_t> received_{0};
};

// A sink that records frames by input pin number.
class RecordingSink : public DRAVSink
{
public:
    RecordingSink(const std::string& name, DRAVSinkConfig config, int inputs = 1,
                  DRAVPinType input = kDRAVPinTypePassthrough)
        : DRAVSink(name, nullptr, config, inputs), input_(input)
    {
    }
    DRAVResult Init() override;
    DRAVResult InputMediaBufferReceived(std::shared_ptr<DRAVUnitInputPin> pin, int pinNumber,
                                        std::shared_ptr<DRAVMediaBuffer> frame) override;
    std::vector<int> PinsSeen();
    bool WaitFor(size_t count, int timeoutMs);

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<int> pins_;
    const DRAVPinType input_;
};

// A source that hands out what it is given.
class PlainSource : public DRAVSource
{
public:
    PlainSource(const std::string& name, int outputs = 1)
        : DRAVSource(name, nullptr, DRAVSourceConfig{2, 1}, outputs)
    {
    }
    DRAVResult InitSource(DRAVPinType type) override;
};
}  // namespace unittest
