#pragma once

#include <memory>
#include <vector>

#include "engine/units/DRAVUnitPin.h"

// A pin through which a unit hands frames on, to its receivers (passthrough
// and threaded pins) or into its queue for a consumer to pull (pull pins).
class DRAVUnitOutputPin : public DRAVUnitPin
{
public:
    // More receivers than this on one pin is not expected; a debug build stops.
    static constexpr size_t kExpectedMaxReceivers = 4;

    DRAVUnitOutputPin(int32_t number, const std::shared_ptr<DRAVUnit>& unit, DRAVPinType type);

    DRAVResult MediaBufferReceived(std::shared_ptr<DRAVObject> sender,
                                   std::shared_ptr<DRAVMediaBuffer> frame) override;

    DRAVResult AddReceiver(const std::shared_ptr<DRAVMediaBufferDelegate>& receiver);
    // Removes `receiver` and every receiver that has gone; Ok in any case.
    DRAVResult RemoveReceiver(const std::shared_ptr<DRAVMediaBufferDelegate>& receiver);
    DRAVResult RemoveAllReceivers();
    int GetNumReceivers();
    std::vector<std::weak_ptr<DRAVMediaBufferDelegate>> GetReceivers();

private:
    DRAVResult DeliverToReceivers(const std::shared_ptr<DRAVMediaBuffer>& frame);

    CDplThreadMutex receiversMutex_;
    std::vector<std::weak_ptr<DRAVMediaBufferDelegate>> receivers_;
};
