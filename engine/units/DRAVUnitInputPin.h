#pragma once

#include <memory>

#include "engine/units/DRAVUnitPin.h"

// A pin through which frames enter a unit: whatever its queue hands on goes
// to the unit's InputMediaBufferReceived.
class DRAVUnitInputPin : public DRAVUnitPin
{
public:
    DRAVUnitInputPin(int32_t number, const std::shared_ptr<DRAVUnit>& unit, DRAVPinType type);

    DRAVResult MediaBufferReceived(std::shared_ptr<DRAVObject> sender,
                                   std::shared_ptr<DRAVMediaBuffer> frame) override;
};
