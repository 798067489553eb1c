#pragma once

#include <memory>
#include <vector>

#include "engine/units/DRAVUnitPin.h"

class DRAVUnitInputPin;

// A pin through which a unit hands frames on, to its receivers (passthrough
// and threaded pins) or into its queue for a consumer to pull (pull pins).
class DRAVUnitOutputPin : public DRAVUnitPin
{
public:
    // More receivers than this on one pin is not expected; a debug build stops.
    static constexpr size_t kExpectedMaxReceivers = 4;

    DRAVUnitOutputPin(int32_t number, const std::shared_ptr<DRAVUnit>& unit, DRAVPinType type);

    // On the producer's thread (a device thread or the mix's thread): hands
    // the frame on under the receivers' lock, which control calls hold only
    // to change the list; no allocation.
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

    struct Receiver
    {
        std::weak_ptr<DRAVMediaBufferDelegate> delegate;
        // The receiver as an input pin, found when it is added; null for
        // other delegates.
        DRAVUnitInputPin* inputPin = nullptr;
    };

    CDplThreadMutex receiversMutex_;
    std::vector<Receiver> receivers_;
};
