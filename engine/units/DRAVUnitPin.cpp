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

const std::shared_ptr<DRAVQueueInterface> kNoQueue;

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
    : DRAVObject(std::string(), nullptr), unit_(unit), number_(number), isInput_(isInput)
{
    SetFriendlyName(MakePinName());
    route_.Store(std::make_shared<const Route>(Route{type, CreateQueue(type, MakeQueueName())}));
}

DRAVUnitPin::~DRAVUnitPin()
{
    std::shared_ptr<const Route> route = route_.Exchange(nullptr);
    if (route && route->queue)
    {
        route->queue->Stop();
        route->queue->Deinit();
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
    const std::shared_ptr<const Route> route = LoadRoute();
    const DRAVPinType type = route ? route->type : kDRAVPinTypeNone;
    const std::shared_ptr<DRAVQueueInterface>& queue = route ? route->queue : kNoQueue;
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
    auto fresh = std::make_shared<const Route>(Route{type, CreateQueue(type, GetFriendlyName())});
    // The former queue goes with its last caller; Deinit has stopped it.
    route_.Store(std::move(fresh));
    return Init();
}

DRAVResult DRAVUnitPin::SendFrame(std::shared_ptr<DRAVMediaBuffer> frame)
{
    const std::shared_ptr<const Route> route = LoadRoute();
    const DRAVPinType type = route ? route->type : kDRAVPinTypeNone;
    const std::shared_ptr<DRAVQueueInterface>& queue = route ? route->queue : kNoQueue;
    if (type == kDRAVPinTypeNone)
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    if (!queue)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    if (frame)
    {
        counters_.AnalyzeFrame(*frame);
    }
    active_.store(true, std::memory_order_relaxed);
    return queue->AddBuffer(std::move(frame));
}

DRAVResult DRAVUnitPin::PullBuffer(const DRAVTimestamp& time, std::shared_ptr<DRAVMediaBuffer>* out,
                                   bool remove)
{
    const std::shared_ptr<const Route> route = LoadRoute();
    const DRAVPinType type = route ? route->type : kDRAVPinTypeNone;
    const std::shared_ptr<DRAVQueueInterface>& queue = route ? route->queue : kNoQueue;
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
    const std::shared_ptr<const Route> route = LoadRoute();
    const DRAVPinType type = route ? route->type : kDRAVPinTypeNone;
    const std::shared_ptr<DRAVQueueInterface>& queue = route ? route->queue : kNoQueue;
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
    const std::shared_ptr<const Route> route = LoadRoute();
    const DRAVPinType type = route ? route->type : kDRAVPinTypeNone;
    const std::shared_ptr<DRAVQueueInterface>& queue = route ? route->queue : kNoQueue;
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
    const std::shared_ptr<const Route> route = LoadRoute();
    if (!route || (route->type != kDRAVPinTypeThreaded && route->type != kDRAVPinTypeThreadedBlocking))
    {
        return;
    }
    if (auto threaded = std::dynamic_pointer_cast<DRAVThreadedBufferQueue>(route->queue))
    {
        threaded->SetDelayMsec(delayMsec);
    }
}

DRAVResult DRAVUnitPin::GetQueueStatistics(DRAVQueueStatistics* statistics)
{
    const std::shared_ptr<const Route> route = LoadRoute();
    const DRAVPinType type = route ? route->type : kDRAVPinTypeNone;
    const std::shared_ptr<DRAVQueueInterface>& queue = route ? route->queue : kNoQueue;
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
    counters_.Reset();
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
    const std::shared_ptr<const Route> route = LoadRoute();
    return route ? route->type : kDRAVPinTypeNone;
}

std::shared_ptr<DRAVQueueInterface> DRAVUnitPin::GetQueue()
{
    const std::shared_ptr<const Route> route = LoadRoute();
    return route ? route->queue : nullptr;
}

DRAVUnitPinStatistics DRAVUnitPin::GetStatistics()
{
    return counters_.Snapshot();
}
