#include "engine/units/DRAVUnit.h"

#include <algorithm>
#include <condition_variable>
#include <iterator>
#include <mutex>
#include <thread>
#include <utility>

#include "engine/units/DRAVFilter.h"
#include "engine/units/DRAVSink.h"
#include "engine/units/DRAVSource.h"
#include "engine/units/DRAVUnitAutoState.h"
#include "engine/units/DRAVUnitFactory.h"
#include "portable-core/DplThreadName.h"
#include "portable-core/KVCMapBuilder.h"

namespace
{
// Threads of ReinitAsync still running, for WaitForPendingReinits.
struct PendingReinits
{
    std::mutex mutex;
    std::condition_variable finished;
    int count = 0;
};

PendingReinits& Pending()
{
    static PendingReinits* const sPending = new PendingReinits();
    return *sPending;
}

constexpr int kProcessorFilterType = 1;
}  // namespace

DRAVUnit::DRAVUnit(const std::string& friendlyName, KVCMap* propertyMap, int inputPins, int outputPins)
    : DRAVObject(friendlyName, propertyMap != nullptr ? propertyMap : DRAVUnit::GetMyObjectProperties()),
      numInputPins_(std::max(0, inputPins)),
      numOutputPins_(std::max(0, outputPins))
{
}

DRAVUnit::~DRAVUnit()
{
    // No pin thread may outlive the unit.
    ReleasePins();
}

KVCMap* DRAVUnit::GetMyObjectProperties()
{
    static KVCMap* const sClassProperties =
        KVCMapBuilder<DRAVUnit>(DRAVObject::GetMyObjectProperties())
            .Command(kPropertyUnitDumpPinStatistics, &DRAVUnit::SetDumpPinStatistics)
            .Command(kPropertyUnitResetPinStatistics, &DRAVUnit::SetResetPinStatistics)
            .Bool(kPropertyUnitPause, &DRAVUnit::SetPause, &DRAVUnit::GetPause)
            .Bool(kPropertyVerboseLogging, &DRAVUnit::SetVerboseLogging, &DRAVUnit::GetVerboseLogging)
            .Bool(kPropertyPreserveBuffer, &DRAVUnit::SetPreserveBuffer, &DRAVUnit::GetPreserveBuffer)
            .Double(kPropertyPinIn0FramerateFps, nullptr, &DRAVUnit::GetPinIn0FramerateFps)
            .String(kPropertyPinOut0ConnectedTo, nullptr, &DRAVUnit::GetConnectedPinOut0)
            .String(kPropertyPinOut1ConnectedTo, nullptr, &DRAVUnit::GetConnectedPinOut1)
            .String(kPropertyPinOut2ConnectedTo, nullptr, &DRAVUnit::GetConnectedPinOut2)
            .Build();
    return sClassProperties;
}

std::shared_ptr<DRAVUnit> DRAVUnit::SharedUnit()
{
    return std::static_pointer_cast<DRAVUnit>(weak_from_this().lock());
}

std::vector<std::shared_ptr<DRAVUnitInputPin>> DRAVUnit::CopyInputPins()
{
    CDplScopedLock lock(inputPinsMutex_);
    return inputPins_;
}

std::vector<std::shared_ptr<DRAVUnitOutputPin>> DRAVUnit::CopyOutputPins()
{
    CDplScopedLock lock(outputPinsMutex_);
    return outputPins_;
}

void DRAVUnit::SetVerboseLogging(bool verbose)
{
    verboseLogging_.store(verbose);
    for (const auto& pin : CopyInputPins())
    {
        pin->SetVerboseLogging(verbose);
    }
    for (const auto& pin : CopyOutputPins())
    {
        pin->SetVerboseLogging(verbose);
    }
}

bool DRAVUnit::GetVerboseLogging()
{
    return verboseLogging_.load();
}

void DRAVUnit::SetPreserveBuffer(bool preserve)
{
    preserveBuffer_.store(preserve);
    for (const auto& pin : CopyInputPins())
    {
        pin->SetPreserveBuffer(preserve);
    }
    for (const auto& pin : CopyOutputPins())
    {
        pin->SetPreserveBuffer(preserve);
    }
}

bool DRAVUnit::GetPreserveBuffer()
{
    return preserveBuffer_.load();
}

double DRAVUnit::GetPinIn0FramerateFps()
{
    std::shared_ptr<DRAVUnitInputPin> pin = GetInputPin(0);
    if (!pin)
    {
        return -1.0;
    }
    DRAVQueueStatistics statistics;
    if (!pin->GetQueueStatistics(&statistics).Succeeded())
    {
        return -1.0;
    }
    return statistics.framesPerSecond;
}

std::string DRAVUnit::GetConnectedPinOut0()
{
    return GetConnectedPin(false, 0);
}

std::string DRAVUnit::GetConnectedPinOut1()
{
    return GetConnectedPin(false, 1);
}

std::string DRAVUnit::GetConnectedPinOut2()
{
    return GetConnectedPin(false, 2);
}

std::string DRAVUnit::GetConnectedPin(bool, int index)
{
    std::shared_ptr<DRAVUnitOutputPin> pin = GetOutputPin(index);
    if (!pin)
    {
        return "(no pin)";
    }
    const auto receivers = pin->GetReceivers();
    if (!receivers.empty())
    {
        if (auto receiver = receivers.front().lock())
        {
            return receiver->DRAVMediaBufferDelegateFriendlyName();
        }
    }
    return "(no receiver)";
}

void DRAVUnit::SetPause(bool pause)
{
    SetUnitState(pause ? kDRAVUnitStatePaused : kDRAVUnitStateRunning);
}

bool DRAVUnit::GetPause()
{
    return GetUnitState() == kDRAVUnitStatePaused;
}

DRAVResult DRAVUnit::Init()
{
    return InitUnit(kDRAVPinTypeThreaded, kDRAVPinTypePassthrough);
}

DRAVResult DRAVUnit::InitUnit(DRAVPinType input, DRAVPinType output)
{
    std::shared_ptr<DRAVUnit> self = SharedUnit();
    if (!self)
    {
        return DRAVResult(kDRAVResultErrInvalidState, "Unit <%s> is not held by a shared_ptr",
                          GetFriendlyName().c_str());
    }
    std::vector<std::shared_ptr<DRAVUnitInputPin>> inputs;
    for (int number = 0; number < numInputPins_; ++number)
    {
        auto pin = std::make_shared<DRAVUnitInputPin>(number, self, input);
        pin->Init();
        inputs.push_back(std::move(pin));
    }
    std::vector<std::shared_ptr<DRAVUnitOutputPin>> outputs;
    for (int number = 0; number < numOutputPins_; ++number)
    {
        auto pin = std::make_shared<DRAVUnitOutputPin>(number, self, output);
        pin->Init();
        outputs.push_back(std::move(pin));
    }
    // A second InitUnit replaces the pins; the former ones are stopped
    // outside the locks.
    {
        CDplScopedLock lock(inputPinsMutex_);
        inputPins_.swap(inputs);
    }
    {
        CDplScopedLock lock(outputPinsMutex_);
        outputPins_.swap(outputs);
    }
    for (const auto& pin : outputs)
    {
        pin->Deinit();
    }
    for (const auto& pin : inputs)
    {
        pin->Deinit();
    }
    return DRAVResult(kDRAVResultOk);
}

void DRAVUnit::ReleasePins()
{
    std::vector<std::shared_ptr<DRAVUnitOutputPin>> outputs;
    {
        CDplScopedLock lock(outputPinsMutex_);
        outputs.swap(outputPins_);
    }
    std::vector<std::shared_ptr<DRAVUnitInputPin>> inputs;
    {
        CDplScopedLock lock(inputPinsMutex_);
        inputs.swap(inputPins_);
    }
    // Stopping a threaded pin waits for its worker, which may be inside this
    // unit taking these very locks: so no lock is held here.
    for (const auto& pin : outputs)
    {
        pin->Deinit();
    }
    for (const auto& pin : inputs)
    {
        pin->Deinit();
    }
}

DRAVResult DRAVUnit::Deinit()
{
    SetUnitInitialized(false);
    ReleasePins();
    std::list<std::shared_ptr<DRAVUnit>> children;
    {
        CDplScopedLock lock(childrenMutex_);
        children.swap(children_);
    }
    for (auto& child : children)
    {
        if (child->GetOwner().get() == this)
        {
            DRAVUnitFactory::RemoveUnit(child);
        }
        child->Deinit();
        child.reset();
    }
    return DRAVResult(kDRAVResultOk);
}

DRAVUnitState DRAVUnit::GetUnitState()
{
    return static_cast<DRAVUnitState>(state_.load());
}

DRAVResult DRAVUnit::SetUnitState(DRAVUnitState state)
{
    if (!IsUnitInitialized())
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    if (GetUnitState() == state)
    {
        return DRAVResult(kDRAVResultOkNoDataChanged);
    }
    std::vector<std::shared_ptr<DRAVUnit>> work;
    {
        CDplScopedLock lock(childrenMutex_);
        std::vector<std::shared_ptr<DRAVUnit>> sinks;
        std::vector<std::shared_ptr<DRAVUnit>> filters;
        std::vector<std::shared_ptr<DRAVUnit>> processors;
        for (const auto& child : children_)
        {
            if (dynamic_cast<DRAVSource*>(child.get()) != nullptr)
            {
                work.push_back(child);
            }
            else if (dynamic_cast<DRAVSink*>(child.get()) != nullptr)
            {
                sinks.push_back(child);
            }
            else if (auto filter = dynamic_cast<DRAVFilter*>(child.get()))
            {
                (filter->GetType() == kProcessorFilterType ? processors : filters).push_back(child);
            }
        }
        work.insert(work.end(), sinks.begin(), sinks.end());
        work.insert(work.end(), filters.begin(), filters.end());
        work.insert(work.end(), processors.begin(), processors.end());
    }
    // Starting runs producers first; pausing stops consumers of their work first.
    if (state == kDRAVUnitStatePaused && work.size() >= 2)
    {
        std::reverse(work.begin(), work.end());
    }
    for (const auto& child : work)
    {
        DRAVResult result(kDRAVResultErrInvalidState);
        if (state == kDRAVUnitStatePaused || state == kDRAVUnitStateRunning)
        {
            result = child->SetUnitState(state);
        }
        if (!result.Succeeded())
        {
            result.LogError("<%s> Set child unit <%s> to state <%s> failed.", child->GetOwnerName().c_str(),
                            child->GetFriendlyName().c_str(), DRAVUnitStateToString(state));
        }
    }
    // A Deinit on another thread meanwhile wins: the unit stays uninitialised.
    int32_t current = state_.load();
    while (current != kDRAVUnitStateUninitialized && !state_.compare_exchange_weak(current, state))
    {
    }
    if (current == kDRAVUnitStateUninitialized)
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    return DRAVResult(kDRAVResultOk);
}

void DRAVUnit::SetUnitInitialized(bool initialized)
{
    state_.store(initialized ? kDRAVUnitStatePaused : kDRAVUnitStateUninitialized);
}

bool DRAVUnit::IsUnitInitialized()
{
    return state_.load() != kDRAVUnitStateUninitialized;
}

void DRAVUnit::SetOwner(std::shared_ptr<DRAVUnit> owner)
{
    CDplScopedLock lock(ownerMutex_);
    owner_ = owner;
}

std::shared_ptr<DRAVUnit> DRAVUnit::GetOwner() const
{
    CDplScopedLock lock(ownerMutex_);
    return owner_.lock();
}

DRAVResult DRAVUnit::SendFrame(std::shared_ptr<DRAVMediaBuffer> frame)
{
    return SendFrame(0, std::move(frame));
}

DRAVResult DRAVUnit::SendFrame(int pin, std::shared_ptr<DRAVMediaBuffer> frame)
{
    if (!IsUnitInitialized())
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    std::shared_ptr<DRAVUnitInputPin> input = GetInputPin(pin);
    if (!IsUnitInitialized())
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    if (!input)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    return input->SendFrame(std::move(frame));
}

DRAVResult DRAVUnit::AddReceiver(int pin, std::shared_ptr<DRAVMediaBufferDelegate> receiver)
{
    CDplScopedLock lock(outputPinsMutex_);
    if (pin < 0 || pin >= static_cast<int>(outputPins_.size()))
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    return outputPins_[pin]->AddReceiver(receiver);
}

DRAVResult DRAVUnit::RemoveReceiver(int pin, std::shared_ptr<DRAVMediaBufferDelegate> receiver)
{
    std::shared_ptr<DRAVUnitOutputPin> output = GetOutputPin(pin);
    if (!output)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    return output->RemoveReceiver(receiver);
}

DRAVResult DRAVUnit::Reinit()
{
    std::shared_ptr<DRAVUnit> self = SharedUnit();
    if (!self)
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    DRAVUnitAutoState autoState(self, true);
    SetUnitState(kDRAVUnitStatePaused);

    std::vector<std::vector<std::weak_ptr<DRAVMediaBufferDelegate>>> receivers;
    for (const auto& pin : CopyOutputPins())
    {
        receivers.push_back(pin->GetReceivers());
    }
    std::vector<std::pair<KVCProperty*, KVOList>> observers;
    if (KVCMap* map = GetPropertyMap())
    {
        for (const auto& entry : *map)
        {
            if (entry.second != nullptr)
            {
                observers.emplace_back(entry.second, entry.second->GetObservers());
            }
        }
    }

    Deinit();
    DRAVResult result = Init();

    const auto outputs = CopyOutputPins();
    for (size_t number = 0; number < outputs.size() && number < receivers.size(); ++number)
    {
        for (const auto& weakReceiver : receivers[number])
        {
            if (auto receiver = weakReceiver.lock())
            {
                outputs[number]->AddReceiver(receiver);
            }
        }
    }
    for (const auto& [property, list] : observers)
    {
        for (const auto& item : list)
        {
            property->AddObserver(item);
        }
    }
    return result;
}

DRAVResult DRAVUnit::ReinitAsync()
{
    std::shared_ptr<DRAVUnit> self = SharedUnit();
    if (!self)
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    {
        std::lock_guard<std::mutex> lock(Pending().mutex);
        ++Pending().count;
    }
    std::thread(
        [unit = std::move(self)]() mutable
        {
            DplSetCurrentThreadName("DRAVUnit Reinit");
            unit->Reinit();
            // The unit may end here, on this thread, before the count says done.
            unit.reset();
            std::lock_guard<std::mutex> lock(Pending().mutex);
            --Pending().count;
            Pending().finished.notify_all();
        })
        .detach();
    return DRAVResult(kDRAVResultOk);
}

bool DRAVUnit::WaitForPendingReinits(int timeoutMs)
{
    std::unique_lock<std::mutex> lock(Pending().mutex);
    return Pending().finished.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                       [] { return Pending().count == 0; });
}

DRAVResult DRAVUnit::ProcessFrame(int pin, std::shared_ptr<DRAVMediaBuffer> frame)
{
    if (!IsUnitInitialized())
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    std::shared_ptr<DRAVUnitOutputPin> output = GetOutputPin(pin);
    if (!output)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    return output->SendFrame(std::move(frame));
}

DRAVResult DRAVUnit::InputMediaBufferReceived(std::shared_ptr<DRAVUnitInputPin>, int,
                                              std::shared_ptr<DRAVMediaBuffer>)
{
    return DRAVResult(kDRAVResultErrNotImplemented);
}

std::shared_ptr<DRAVUnitInputPin> DRAVUnit::GetInputPin(int index)
{
    CDplScopedLock lock(inputPinsMutex_);
    if (index < 0 || index >= static_cast<int>(inputPins_.size()))
    {
        return nullptr;
    }
    return inputPins_[index];
}

std::shared_ptr<DRAVUnitOutputPin> DRAVUnit::GetOutputPin(int index)
{
    CDplScopedLock lock(outputPinsMutex_);
    if (index < 0 || index >= static_cast<int>(outputPins_.size()))
    {
        return nullptr;
    }
    return outputPins_[index];
}

void DRAVUnit::AddChild(std::shared_ptr<DRAVUnit> child)
{
    if (!child)
    {
        return;
    }
    CDplScopedLock lock(childrenMutex_);
    children_.push_back(std::move(child));
}

bool DRAVUnit::RemoveChild(const std::string& objectId)
{
    // The child is let go outside the lock: it may be its last reference.
    std::list<std::shared_ptr<DRAVUnit>> removed;
    {
        CDplScopedLock lock(childrenMutex_);
        for (auto it = children_.begin(); it != children_.end();)
        {
            const auto next = std::next(it);
            if ((*it)->GetObjectID() == objectId)
            {
                removed.splice(removed.end(), children_, it);
            }
            it = next;
        }
    }
    return !removed.empty();
}

bool DRAVUnit::HasChild(const std::string& objectId)
{
    CDplScopedLock lock(childrenMutex_);
    return std::any_of(children_.begin(), children_.end(),
                       [&](const std::shared_ptr<DRAVUnit>& child)
                       { return child->GetObjectID() == objectId; });
}

std::vector<std::shared_ptr<DRAVUnit>> DRAVUnit::GetChildren()
{
    CDplScopedLock lock(childrenMutex_);
    return {children_.begin(), children_.end()};
}

bool DRAVUnit::IsChildOf(std::shared_ptr<const DRAVUnit> unit)
{
    return unit && IsChildOf(unit->GetObjectID());
}

bool DRAVUnit::IsChildOf(const std::string& objectId)
{
    std::shared_ptr<DRAVUnit> owner = GetOwner();
    if (!owner)
    {
        return false;
    }
    if (owner->GetObjectID() == objectId)
    {
        return true;
    }
    return owner->IsChildOf(objectId);
}

std::string DRAVUnit::GetOwnerID()
{
    std::shared_ptr<DRAVUnit> owner = GetOwner();
    return owner ? owner->GetObjectID() : std::string();
}

std::string DRAVUnit::GetOwnerName()
{
    std::shared_ptr<DRAVUnit> owner = GetOwner();
    return owner ? owner->GetFriendlyName() : std::string("(not owned)");
}

void DRAVUnit::SetDumpPinStatistics(bool dump)
{
    if (!dump)
    {
        return;
    }
    for (const auto& pin : CopyInputPins())
    {
        pin->DumpStatistics();
    }
    for (const auto& pin : CopyOutputPins())
    {
        pin->DumpStatistics();
    }
}

void DRAVUnit::SetResetPinStatistics(bool reset)
{
    if (!reset)
    {
        return;
    }
    for (const auto& pin : CopyInputPins())
    {
        pin->ResetStatistics();
    }
    for (const auto& pin : CopyOutputPins())
    {
        pin->ResetStatistics();
    }
}

// ChildUnit

DRAVResult DRAVUnit::ChildUnit::StartUnit(ChildUnitType type, const std::shared_ptr<DRAVUnit>& owner,
                                          const std::shared_ptr<DRAVMediaBufferDelegate>& receiver, bool init)
{
    CDplScopedLock lock(mutex_);
    StopUnit(owner);
    DRAVResult result(kDRAVResultErrInvalidParameter);
    std::shared_ptr<DRAVUnit> unit;
    if (type.category == ChildUnitType::kCategorySink)
    {
        result = DRAVUnitFactory::CreateSink(type.type, owner, init, &unit);
    }
    else if (type.category == ChildUnitType::kCategoryFilter)
    {
        result = DRAVUnitFactory::CreateFilter(type.type, owner, init, &unit);
    }
    if (result.Succeeded() && !unit)
    {
        result = DRAVResult(kDRAVResultErrNullPointer);
    }
    if (!result.Succeeded())
    {
        return result;
    }
    unit_ = unit;
    published_.Store(unit);
    if (receiver)
    {
        result = unit->AddReceiver(0, receiver);
    }
    return result;
}

DRAVResult DRAVUnit::ChildUnit::StopUnit(const std::shared_ptr<DRAVUnit>& owner)
{
    CDplScopedLock lock(mutex_);
    if (!unit_)
    {
        return DRAVResult(kDRAVResultOk);
    }
    // Frames already on their way keep the unit alive until they are done.
    published_.Store(nullptr);
    unit_->SetUnitState(kDRAVUnitStatePaused);
    if (owner && unit_->GetOwner() == owner)
    {
        DRAVUnitFactory::RemoveUnit(unit_);
    }
    unit_->Deinit();
    unit_.reset();
    return DRAVResult(kDRAVResultOk);
}
