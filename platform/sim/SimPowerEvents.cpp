#include "platform/sim/SimPowerEvents.h"

#include <future>
#include <vector>

namespace tidemix::platform::sim
{

SimPowerEvents::SimPowerEvents() : events_(std::make_unique<DplDispatchQueue>("sim.power", 1)) {}

// The queue goes first, so no event runs while the listeners are destroyed.
SimPowerEvents::~SimPowerEvents()
{
    events_.reset();
}

void SimPowerEvents::Sleep()
{
    Deliver(PowerEvent::WillSleep);
}

void SimPowerEvents::Wake()
{
    Deliver(PowerEvent::HasWoken);
}

void SimPowerEvents::SetSleepAllowedProbe(std::function<void()> probe)
{
    std::lock_guard lock(listenerMutex_);
    sleepAllowedProbe_ = std::move(probe);
}

uint64_t SimPowerEvents::AddListener(Listener listener)
{
    std::lock_guard lock(listenerMutex_);
    const uint64_t id = nextListener_++;
    listeners_.emplace(id, std::move(listener));
    return id;
}

void SimPowerEvents::RemoveListener(uint64_t id)
{
    std::lock_guard lock(listenerMutex_);
    listeners_.erase(id);
}

void SimPowerEvents::Deliver(PowerEvent event)
{
    std::promise<void> delivered;
    std::future<void> done = delivered.get_future();
    events_->dispatch(
        [this, event, &delivered]
        {
            {
                std::lock_guard lock(listenerMutex_);
                std::vector<uint64_t> ids;
                for (const auto& [id, listener] : listeners_)
                {
                    ids.push_back(id);
                }
                for (uint64_t id : ids)
                {
                    // A listener removed by an earlier one isn't called.
                    auto it = listeners_.find(id);
                    if (it != listeners_.end())
                    {
                        Listener listener = it->second;
                        listener(event);
                    }
                }
                if (event == PowerEvent::WillSleep)
                {
                    if (sleepAllowedProbe_)
                    {
                        sleepAllowedProbe_();
                    }
                    sleepsAllowed_.fetch_add(1);
                }
            }
            delivered.set_value();
        });
    done.wait();
}

}  // namespace tidemix::platform::sim
