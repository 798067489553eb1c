#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>

#include "platform/PowerEvents.h"
#include "portable-core/DplDispatchQueue.h"

namespace tidemix::platform::sim
{

// Sleep and wake on demand. Events reach the listeners on the service's own
// thread, in the order they were asked for; a sleep is allowed once every
// listener has returned, like a held delay lock being released.
class SimPowerEvents : public PowerEvents
{
public:
    SimPowerEvents();
    ~SimPowerEvents() override;

    // Each returns once the listeners have heard the event (and, for a
    // sleep, once it has been allowed).
    void Sleep();
    void Wake();

    // Runs on the event thread at the moment a sleep is allowed: a test
    // looks at the world as the machine would find it going to sleep.
    void SetSleepAllowedProbe(std::function<void()> probe);
    int SleepsAllowed() const { return sleepsAllowed_.load(); }

    uint64_t AddListener(Listener listener) override;
    void RemoveListener(uint64_t id) override;

private:
    void Deliver(PowerEvent event);

    // Held while listeners run, so RemoveListener waits for a running call;
    // recursive so a listener may remove itself.
    std::recursive_mutex listenerMutex_;
    std::map<uint64_t, Listener> listeners_;
    uint64_t nextListener_ = 1;
    std::function<void()> sleepAllowedProbe_;
    std::atomic<int> sleepsAllowed_{0};
    std::unique_ptr<DplDispatchQueue> events_;
};

}  // namespace tidemix::platform::sim
