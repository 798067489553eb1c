#pragma once

#include <memory>

#include "platform/PowerEvents.h"

namespace tidemix::platform::linuxos
{

// Sleep and wake from systemd-logind on the system bus. While anyone listens,
// the service holds a "delay" inhibitor for sleep, so logind waits for it:
// a sleep is allowed (the lock released) only once every listener has heard
// WillSleep and returned; on waking a new lock is taken before HasWoken goes
// out. The bus is reached on the first AddListener, on the service's own
// event thread, where the listeners run too. Without a system bus or logind
// the service logs one line and stays quiet.
class LogindPowerEvents : public PowerEvents
{
public:
    LogindPowerEvents();
    ~LogindPowerEvents() override;
    LogindPowerEvents(const LogindPowerEvents&) = delete;
    LogindPowerEvents& operator=(const LogindPowerEvents&) = delete;

    uint64_t AddListener(Listener listener) override;
    void RemoveListener(uint64_t id) override;

    struct State;

private:
    std::unique_ptr<State> state_;
};

}  // namespace tidemix::platform::linuxos
