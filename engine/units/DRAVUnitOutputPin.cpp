#include "engine/units/DRAVUnitOutputPin.h"

#include <algorithm>

#include "engine/units/DRAVUnit.h"
#include "engine/units/DRAVUnitInputPin.h"
#include "portable-core/BreakIntoDebugger.h"

DRAVUnitOutputPin::DRAVUnitOutputPin(int32_t number, const std::shared_ptr<DRAVUnit>& unit, DRAVPinType type)
    : DRAVUnitPin(number, unit, type, false)
{
}

DRAVResult DRAVUnitOutputPin::MediaBufferReceived(std::shared_ptr<DRAVObject>,
                                                  std::shared_ptr<DRAVMediaBuffer> frame)
{
    const DRAVPinType type = GetPinType();
    // A threaded output pin's worker brings its frames here too; handing them
    // back to the queue would circle for ever, so they go to the receivers.
    if (type == kDRAVPinTypePassthrough || type == kDRAVPinTypeThreaded ||
        type == kDRAVPinTypeThreadedBlocking)
    {
        return DeliverToReceivers(frame);
    }
    return SendFrame(std::move(frame));
}

DRAVResult DRAVUnitOutputPin::DeliverToReceivers(const std::shared_ptr<DRAVMediaBuffer>& frame)
{
    DRAVResult result(kDRAVResultOk);
    std::shared_ptr<DRAVObject> sender = GetUnit();
    // Held while each receiver takes the frame: for an input pin that is an
    // enqueue, for another delegate its work.
    CDplScopedLock lock(receiversMutex_);
    for (const Receiver& entry : receivers_)
    {
        std::shared_ptr<DRAVMediaBufferDelegate> receiver = entry.delegate.lock();
        if (!receiver)
        {
            continue;
        }
        DRAVResult delivered;
        if (entry.inputPin != nullptr)
        {
            delivered = entry.inputPin->SendFrame(frame);
        }
        else
        {
            delivered = receiver->MediaBufferReceived(sender, frame);
        }
        if (!delivered.Succeeded())
        {
            result = delivered;
        }
    }
    return result;
}

DRAVResult DRAVUnitOutputPin::AddReceiver(const std::shared_ptr<DRAVMediaBufferDelegate>& receiver)
{
    if (!receiver)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    auto* inputPin = dynamic_cast<DRAVUnitInputPin*>(receiver.get());
    CDplScopedLock lock(receiversMutex_);
    receivers_.push_back(Receiver{receiver, inputPin});
    if (receivers_.size() > kExpectedMaxReceivers)
    {
        BreakIntoDebugger();
    }
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVUnitOutputPin::RemoveReceiver(const std::shared_ptr<DRAVMediaBufferDelegate>& receiver)
{
    CDplScopedLock lock(receiversMutex_);
    std::erase_if(receivers_,
                  [&](const Receiver& entry)
                  {
                      std::shared_ptr<DRAVMediaBufferDelegate> alive = entry.delegate.lock();
                      return !alive || alive == receiver;
                  });
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVUnitOutputPin::RemoveAllReceivers()
{
    CDplScopedLock lock(receiversMutex_);
    receivers_.clear();
    return DRAVResult(kDRAVResultOk);
}

int DRAVUnitOutputPin::GetNumReceivers()
{
    CDplScopedLock lock(receiversMutex_);
    return static_cast<int>(receivers_.size());
}

std::vector<std::weak_ptr<DRAVMediaBufferDelegate>> DRAVUnitOutputPin::GetReceivers()
{
    std::vector<std::weak_ptr<DRAVMediaBufferDelegate>> receivers;
    CDplScopedLock lock(receiversMutex_);
    receivers.reserve(receivers_.size());
    for (const Receiver& entry : receivers_)
    {
        receivers.push_back(entry.delegate);
    }
    return receivers;
}
