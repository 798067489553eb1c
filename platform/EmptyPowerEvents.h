#pragma once

#include "platform/PowerEvents.h"

namespace tidemix::platform
{

// No sleep or wake is ever reported: a backend without a power service.
class EmptyPowerEvents : public PowerEvents
{
public:
    uint64_t AddListener(Listener) override { return 0; }
    void RemoveListener(uint64_t) override {}
};

}  // namespace tidemix::platform
