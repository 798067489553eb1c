#pragma once

#include <atomic>
#include <memory>

#include "observers/DRMXPowerStateObserverBase.h"

namespace tidemix::platform
{
class Platform;
}

// The power observer of the platform in use: "will sleep" becomes power state
// 1 and "has woken" 0, each told to the observers on the power service's own
// thread. The sleep is allowed only once the observers have returned, so the
// manager has stopped mixing before the machine sleeps.
class DRMXPowerStateObserverMac : public DRMXPowerStateObserverBase
{
public:
    DRMXPowerStateObserverMac();
    ~DRMXPowerStateObserverMac() override;

    // "Ok" in any case: without a power service the observer hears nothing.
    DRAVResult Init() override;
    DRAVResult Deinit() override;
    bool IsInitialized() override { return initialized_.load(); }

private:
    std::atomic<bool> initialized_{false};
    std::shared_ptr<tidemix::platform::Platform> platform_;
    uint64_t listener_ = 0;
};
