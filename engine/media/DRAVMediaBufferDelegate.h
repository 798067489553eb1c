#pragma once

#include <memory>
#include <string>

#include "engine/media/DRAVMediaBuffer.h"
#include "portable-core/DRAVResult.h"

class DRAVObject;

// Receives frames handed on by a pin or a queue.
class DRAVMediaBufferDelegate
{
public:
    virtual ~DRAVMediaBufferDelegate() = default;
    virtual DRAVResult MediaBufferReceived(std::shared_ptr<DRAVObject> sender,
                                           std::shared_ptr<DRAVMediaBuffer> buffer) = 0;
    virtual std::string DRAVMediaBufferDelegateFriendlyName() = 0;
};
