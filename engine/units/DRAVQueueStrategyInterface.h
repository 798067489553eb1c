#pragma once

#include <memory>

#include "engine/media/DRAVMediaBuffer.h"

// A hook on a queue's add path: true means the frame also goes out at once.
class DRAVQueueStrategyInterface
{
public:
    virtual ~DRAVQueueStrategyInterface() = default;
    // Asked before the frame is stored.
    virtual bool SendBeforeQueueing(const std::shared_ptr<DRAVMediaBuffer>& buffer) = 0;
    // Asked after the frame is stored.
    virtual bool SendAfterQueueing(const std::shared_ptr<DRAVMediaBuffer>& buffer) = 0;
};
