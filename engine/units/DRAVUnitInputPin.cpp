#include "engine/units/DRAVUnitInputPin.h"

#include "engine/units/DRAVUnit.h"

DRAVUnitInputPin::DRAVUnitInputPin(int32_t number, const std::shared_ptr<DRAVUnit>& unit, DRAVPinType type)
    : DRAVUnitPin(number, unit, type, true)
{
}

DRAVResult DRAVUnitInputPin::MediaBufferReceived(std::shared_ptr<DRAVObject>,
                                                 std::shared_ptr<DRAVMediaBuffer> frame)
{
    // Held for the call: the unit may be let go of by another thread meanwhile.
    std::shared_ptr<DRAVUnit> unit = GetUnit();
    if (!unit)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    auto self = std::static_pointer_cast<DRAVUnitInputPin>(shared_from_this());
    return unit->InputMediaBufferReceived(std::move(self), GetPinNumber(), std::move(frame));
}
