#pragma once

#include <cstdint>
#include <functional>

namespace tidemix::platform
{

enum class PowerEvent : uint8_t
{
    WillSleep,
    HasWoken,
};

// Sleep and wake of the machine. Listeners run one event at a time, in order,
// on the service's own event thread. The service holds a "will sleep" back
// until every listener has returned and only then allows the sleep, so a
// listener may stop what must not run across a sleep before it returns.
class PowerEvents
{
public:
    using Listener = std::function<void(PowerEvent)>;

    virtual ~PowerEvents() = default;

    // 0 when the service has no source of events.
    virtual uint64_t AddListener(Listener listener) = 0;
    // After it returns the listener isn't running (unless it removes itself)
    // and won't be called again.
    virtual void RemoveListener(uint64_t id) = 0;
};

// What a backend did with a request for real-time scheduling.
enum class RealtimeGrant : uint8_t
{
    NotOffered,  // the backend has nothing to give (the simulated world)
    RealtimeKit,
    SchedFifo,
    Refused,
};

}  // namespace tidemix::platform
