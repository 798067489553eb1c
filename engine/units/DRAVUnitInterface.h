#pragma once

#include <memory>

#include "engine/media/DRAVMediaBuffer.h"
#include "engine/media/DRAVMediaBufferDelegate.h"
#include "engine/units/DRAVPinType.h"
#include "engine/units/DRAVUnitState.h"
#include "portable-core/DRAVResult.h"

// The abstract view of a unit's life and of its frame connections.
class DRAVUnitInterface
{
public:
    virtual ~DRAVUnitInterface() = default;
    virtual DRAVResult Init() = 0;
    virtual DRAVResult InitUnit(DRAVPinType input, DRAVPinType output) = 0;
    virtual DRAVResult Deinit() = 0;
    virtual void SetUnitInitialized(bool initialized) = 0;
    virtual bool IsUnitInitialized() = 0;
    virtual DRAVUnitState GetUnitState() = 0;
    virtual DRAVResult SetUnitState(DRAVUnitState state) = 0;
    virtual DRAVResult SendFrame(std::shared_ptr<DRAVMediaBuffer> frame) = 0;
    virtual DRAVResult SendFrame(int pin, std::shared_ptr<DRAVMediaBuffer> frame) = 0;
    virtual DRAVResult AddReceiver(int pin, std::shared_ptr<DRAVMediaBufferDelegate> receiver) = 0;
    virtual DRAVResult RemoveReceiver(int pin, std::shared_ptr<DRAVMediaBufferDelegate> receiver) = 0;
};
