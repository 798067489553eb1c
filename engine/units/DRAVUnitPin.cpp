#include "engine/units/DRAVUnitPin.h"

#include <utility>

#include "engine/units/DRAVRingBuffer.h"
#include "engine/units/DRAVThreadedBufferQueue.h"
#include "engine/units/DRAVUnit.h"
#include "portable-core/DRAVLog.h"

namespace
{
CDplThreadMutex& RingFactoryMutex()
{
    static CDplThreadMutex* const sMutex = new CDplThreadMutex();
    return *sMutex;
}

DRAVUnitPin::RingQueueFactory& RingFactory()
{
    static DRAVUnitPin::RingQueueFactory* const sFactory = new DRAVUnitPin::RingQueueFactory();
    return *sFactory;
}

uint32_t ThreadedQueueMode(DRAVPinType type)
{
    switch (type)
    {
        case kDRAVPinTypePassthrough:
            return DRAVThreadedBufferQueue::kModePassthrough;
        case kDRAVPinTypeThreaded:
            return DRAVThreadedBufferQueue::kModeThreaded;
        case kDRAVPinTypeThreadedBlocking:
            return DRAVThreadedBufferQueue::kModeThreaded | DRAVThreadedBufferQueue::kModeBlocking;
        case kDRAVPinTypePull:
            return DRAVThreadedBufferQueue::kModePull;
        case kDRAVPinTypePullBlocking:
            return DRAVThreadedBufferQueue::kModePull | DRAVThreadedBufferQueue::kModeBlocking;
        default:
            return 0;
    }
}

bool IsPullType(DRAVPinType type)
{
    return type == kDRAVPinTypePull || type == kDRAVPinTypePullBlocking || type == kDRAVPinTypePullRingBuffer;
}
}  // namespace

DRAVUnitPin::RingQueueFactory DRAVUnitPin::InstallRingQueueFactory(RingQueueFactory factory)
{
    CDplScopedLock lock(RingFactoryMutex());
    std::swap(RingFactory(), factory);
    return factory;
}

std::shared_ptr<DRAVQueueInterface> DRAVUnitPin::CreateQueue(DRAVPinType type, const std::string& name)
{
    if (type == kDRAVPinTypePullRingBuffer)
    {
        RingQueueFactory factory;
        {
            CDplScopedLock lock(RingFactoryMutex());
            factory = RingFactory();
        }
        if (factory)
        {
            return factory(name);
        }
        // The engine's time-stamped ring, unless a test has put another in its place.
        auto ring = std::make_shared<DRAVRingBuffer>(name);
        ring->Init();
        return ring;
    }
    const uint32_t mode = ThreadedQueueMode(type);
    if (mode == 0)
    {
        return nullptr;
    }
    return std::make_shared<DRAVThreadedBufferQueue>(name, mode, kQueueMaxItems, kQueueMaxTotalSize);
}

DRAVUnitPin::DRAVUnitPin(int32_t number, const std::shared_ptr<DRAVUnit>& unit, DRAVPinType type,
                         bool isInput)
    : DRAVObject(std::string(), nullptr), type_(type), unit_(unit), number_(number), isInput_(isInput)
{
    SetFriendlyName(MakePinName());
    queue_ = CreateQueue(type, MakeQueueName());
}

DRAVUnitPin::~DRAVUnitPin()
{
    std::shared_ptr<DRAVQueueInterface> queue;
    {
        CDplScopedLock lock(mutex_);
        queue.swap(queue_);
    }
    if (queue)
    {
        queue->Stop();
        queue->Deinit();
    }
}

std::string DRAVUnitPin::MakePinName() const
{
    const std::shared_ptr<DRAVUnit> unit = unit_.lock();
    std::string name;
    if (unit)
    {
        name = unit->GetFriendlyName();
    }
    else if (!isInput_)
    {
        name = "DRAVUnitOutputPin";
    }
    return name + (isInput_ ? "-In " : "-Out ") + std::to_string(number_);
}

std::string DRAVUnitPin::MakeQueueName() const
{
    const std::shared_ptr<DRAVUnit> unit = unit_.lock();
    std::string name = GetFriendlyName();
    if (unit)
    {
        name += " (" + unit->GetOwnerName() + ")";
    }
    return name;
}

std::shared_ptr<DRAVMediaBufferDelegate> DRAVUnitPin::SelfAsDelegate()
{
    std::shared_ptr<DRAVObject> self = weak_from_this().lock();
    return std::dynamic_pointer_cast<DRAVMediaBufferDelegate>(self);
}

DRAVResult DRAVUnitPin::Init()
{
    DRAVPinType type;
    std::shared_ptr<DRAVQueueInterface> queue;
    {
        CDplScopedLock lock(mutex_);
        type = type_;
        queue = queue_;
    }
    if (type == kDRAVPinTypeNone)
    {
        return DRAVResult(kDRAVResultOk);
    }
    if (!queue)
    {
        return DRAVResult(kDRAVResultErrNullPointer, "Pin <%s> of type %s has no queue",
                          GetFriendlyName().c_str(), DRAVPinTypeString(type));
    }
    if (type == kDRAVPinTypePullRingBuffer)
    {
        queue->SetMaxTotalSizeMB(kRingInitSizeBytes);
        // A fresh ring: no time stamps, time base now.
        return queue->Flush();
    }
    auto threaded = std::dynamic_pointer_cast<DRAVThreadedBufferQueue>(queue);
    if (!threaded)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    threaded->SetMaxNumItems(kQueueInitMaxItems);
    // The queue holds its delegate weakly, so the pin doesn't keep itself alive.
    return threaded->InitWithDelegate(SelfAsDelegate());
}

DRAVResult DRAVUnitPin::Deinit()
{
    std::shared_ptr<DRAVQueueInterface> queue = GetQueue();
    if (queue)
    {
        queue->Stop();
        queue->Deinit();
    }
    ResetStatistics();
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVUnitPin::ChangePinType(DRAVPinType type)
{
    Deinit();
    std::shared_ptr<DRAVQueueInterface> fresh = CreateQueue(type, GetFriendlyName());
    std::shared_ptr<DRAVQueueInterface> former;
    {
        CDplScopedLock lock(mutex_);
        type_ = type;
        former = std::exchange(queue_, std::move(fresh));
    }
    // The former queue is let go of outside the lock; Deinit has stopped it.
    former.reset();
    return Init();
}

DRAVResult DRAVUnitPin::SendFrame(std::shared_ptr<DRAVMediaBuffer> frame)
{
    DRAVPinType type;
    std::shared_ptr<DRAVQueueInterface> queue;
    {
        CDplScopedLock lock(mutex_);
        type = type_;
        queue = queue_;
    }
    if (type == kDRAVPinTypeNone)
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    if (!queue)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    {
        CDplScopedLock lock(statisticsMutex_);
        statistics_.AnalyzeFrame(frame);
    }
    active_.store(true, std::memory_order_relaxed);
    return queue->AddBuffer(std::move(frame));
}

DRAVResult DRAVUnitPin::PullBuffer(const DRAVTimestamp& time, std::shared_ptr<DRAVMediaBuffer>* out,
                                   bool remove)
{
    DRAVPinType type;
    std::shared_ptr<DRAVQueueInterface> queue;
    {
        CDplScopedLock lock(mutex_);
        type = type_;
        queue = queue_;
    }
    if (!IsPullType(type))
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    if (!queue)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    return queue->PullBuffer(time, out, remove);
}

DRAVResult DRAVUnitPin::PullAudioBuffer(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                                        const DRAVDuration& duration)
{
    DRAVPinType type;
    std::shared_ptr<DRAVQueueInterface> queue;
    {
        CDplScopedLock lock(mutex_);
        type = type_;
        queue = queue_;
    }
    if (!IsPullType(type))
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    if (!queue)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    return queue->PullAudioBuffer(time, out, duration);
}

DRAVResult DRAVUnitPin::PullAudioBuffer(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                                        int64_t frames)
{
    DRAVPinType type;
    std::shared_ptr<DRAVQueueInterface> queue;
    {
        CDplScopedLock lock(mutex_);
        type = type_;
        queue = queue_;
    }
    if (!IsPullType(type))
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    if (!queue)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    return queue->PullAudioBuffer(time, out, frames);
}

std::string DRAVUnitPin::DRAVMediaBufferDelegateFriendlyName()
{
    return GetFriendlyName();
}

void DRAVUnitPin::SetDelayMsec(int delayMsec)
{
    std::shared_ptr<DRAVQueueInterface> queue;
    {
        CDplScopedLock lock(mutex_);
        if (type_ != kDRAVPinTypeThreaded && type_ != kDRAVPinTypeThreadedBlocking)
        {
            return;
        }
        queue = queue_;
    }
    if (auto threaded = std::dynamic_pointer_cast<DRAVThreadedBufferQueue>(queue))
    {
        threaded->SetDelayMsec(delayMsec);
    }
}

DRAVResult DRAVUnitPin::GetQueueStatistics(DRAVQueueStatistics* statistics)
{
    DRAVPinType type;
    std::shared_ptr<DRAVQueueInterface> queue;
    {
        CDplScopedLock lock(mutex_);
        type = type_;
        queue = queue_;
    }
    if (type == kDRAVPinTypeNone)
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    if (!IsActive())
    {
        return DRAVResult(kDRAVResultErrNoData);
    }
    if (!queue)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    DRAVResult result = queue->GetStatistics(statistics);
    if (result.Succeeded() && statistics != nullptr)
    {
        statistics->pinType = type;
        statistics->isInput = isInput_;
        statistics->pinNumber = number_;
    }
    return result;
}

void DRAVUnitPin::ResetStatistics()
{
    CDplScopedLock lock(statisticsMutex_);
    statistics_.Reset();
    active_.store(false, std::memory_order_relaxed);
}

void DRAVUnitPin::DumpStatistics()
{
    DRAVUnitPinStatistics statistics = GetStatistics();
    DRAVLogPrintf(kDbgPrintLevelInfo, "Pin <%s> (%s): %s", GetFriendlyName().c_str(),
                  DRAVPinTypeString(GetPinType()), statistics.ToString().c_str());
}

void DRAVUnitPin::SetVerboseLogging(bool verbose)
{
    if (auto queue = GetQueue())
    {
        queue->SetVerboseLogging(verbose);
    }
}

void DRAVUnitPin::SetPreserveBuffer(bool preserve)
{
    if (auto queue = GetQueue())
    {
        queue->SetPreserveBuffer(preserve);
    }
}

DRAVPinType DRAVUnitPin::GetPinType()
{
    CDplScopedLock lock(mutex_);
    return type_;
}

std::shared_ptr<DRAVQueueInterface> DRAVUnitPin::GetQueue()
{
    CDplScopedLock lock(mutex_);
    return queue_;
}

DRAVUnitPinStatistics DRAVUnitPin::GetStatistics()
{
    CDplScopedLock lock(statisticsMutex_);
    return statistics_;
}
