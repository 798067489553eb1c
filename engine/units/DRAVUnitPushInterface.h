#pragma once

#include <memory>

#include "engine/media/DRAVAudioBuffer.h"
#include "portable-core/DRAVResult.h"

// What a producer calls to hand audio to a receiver.
class DRAVUnitPushInterface
{
public:
    virtual ~DRAVUnitPushInterface() = default;
    virtual bool HasVideoPin() { return false; }
    virtual bool HasAudioPin() { return true; }
    virtual DRAVResult SendAudioFrame(std::shared_ptr<DRAVAudioBuffer> frame) = 0;
};
