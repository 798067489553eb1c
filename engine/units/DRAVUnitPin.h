#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "engine/media/DRAVAudioBuffer.h"
#include "engine/media/DRAVMediaBufferDelegate.h"
#include "engine/units/DRAVPinType.h"
#include "engine/units/DRAVQueueInterface.h"
#include "engine/units/DRAVQueueStatistics.h"
#include "engine/units/DRAVUnitPinCounters.h"
#include "engine/units/DRAVUnitPinStatistics.h"
#include "portable-core/CDplThreadMutex.h"
#include "portable-core/DRAVObject.h"
#include "portable-core/DplSharedSlot.h"

class DRAVUnit;

// One end of a connection between units. The pin owns the queue that its
// type calls for, and so decides which thread carries a frame onward.
//
// The queue can be replaced (ChangePinType) while frames arrive: the pin's
// type and queue are published together as one atomic record, which a caller
// loads once and keeps alive for its call. A frame's way through the pin
// takes no lock.
class DRAVUnitPin : public DRAVObject, public DRAVMediaBufferDelegate
{
public:
    // Replaces the engine's time-stamped ring as the queue of ring pins (tests
    // install their own); an empty factory restores the engine's ring.
    using RingQueueFactory = std::function<std::shared_ptr<DRAVQueueInterface>(const std::string& name)>;
    static RingQueueFactory InstallRingQueueFactory(RingQueueFactory factory);

    static constexpr int kQueueMaxItems = 120;
    static constexpr int kQueueMaxTotalSize = 0x40000000;
    static constexpr int kQueueInitMaxItems = 30;
    static constexpr int kRingInitSizeBytes = 0x400000;

    // The queue for `type`, named `name`; null for None and unknown types.
    static std::shared_ptr<DRAVQueueInterface> CreateQueue(DRAVPinType type, const std::string& name);

    DRAVUnitPin(int32_t number, const std::shared_ptr<DRAVUnit>& unit, DRAVPinType type, bool isInput);
    ~DRAVUnitPin() override;

    virtual DRAVResult Init();
    // Stops and releases the queue's work, then clears the statistics.
    virtual DRAVResult Deinit();
    // On the mix's thread (or any consumer's): no lock of the pin, no
    // allocation; the queue's own work only.
    virtual DRAVResult PullBuffer(const DRAVTimestamp& time, std::shared_ptr<DRAVMediaBuffer>* out,
                                  bool remove);
    virtual DRAVResult PullAudioBuffer(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                                       const DRAVDuration& duration);
    virtual DRAVResult PullAudioBuffer(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                                       int64_t frames);
    // On a device thread or the mix's thread: counts the frame (relaxed
    // atomics) and hands it to the queue; no lock of the pin, no allocation.
    virtual DRAVResult SendFrame(std::shared_ptr<DRAVMediaBuffer> frame);

    std::string DRAVMediaBufferDelegateFriendlyName() override;

    // Deinit, a new queue of `type`, Init; Init's result.
    DRAVResult ChangePinType(DRAVPinType type);
    // Threaded pins only.
    void SetDelayMsec(int delayMsec);
    DRAVResult GetQueueStatistics(DRAVQueueStatistics* statistics);
    void ResetStatistics();
    void DumpStatistics();
    void SetVerboseLogging(bool verbose);
    void SetPreserveBuffer(bool preserve);

    DRAVPinType GetPinType();
    std::shared_ptr<DRAVQueueInterface> GetQueue();
    int32_t GetPinNumber() const { return number_; }
    bool IsInput() const { return isInput_; }
    bool IsActive() const { return active_.load(std::memory_order_relaxed); }
    std::shared_ptr<DRAVUnit> GetUnit() const { return unit_.lock(); }
    DRAVUnitPinStatistics GetStatistics();

protected:
    // Frames arriving through this pin's own queue come back here.
    std::shared_ptr<DRAVMediaBufferDelegate> SelfAsDelegate();

private:
    // The pin's type and queue, replaced whole.
    struct Route
    {
        DRAVPinType type = kDRAVPinTypeNone;
        std::shared_ptr<DRAVQueueInterface> queue;
    };

    std::string MakePinName() const;
    std::string MakeQueueName() const;
    std::shared_ptr<const Route> LoadRoute() const { return route_.Load(); }

    DplSharedSlot<const Route> route_;
    const std::weak_ptr<DRAVUnit> unit_;
    const int32_t number_;
    const bool isInput_;
    std::atomic<bool> active_{false};
    DRAVUnitPinCounters counters_;
};
