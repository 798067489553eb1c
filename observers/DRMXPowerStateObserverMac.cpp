#include "observers/DRMXPowerStateObserverMac.h"

#include "platform/Platform.h"

DRMXPowerStateObserverMac::DRMXPowerStateObserverMac()
    : DRMXPowerStateObserverBase("Device Observer Windows (PowerState)")
{
}

DRMXPowerStateObserverMac::~DRMXPowerStateObserverMac()
{
    Deinit();
}

DRAVResult DRMXPowerStateObserverMac::Init()
{
    if (initialized_.exchange(true))
    {
        return DRAVResult(kDRAVResultOk);
    }
    platform_ = tidemix::platform::Platform::Current();
    if (platform_)
    {
        listener_ = platform_->Power().AddListener(
            [this](tidemix::platform::PowerEvent event)
            {
                SetPowerState(event == tidemix::platform::PowerEvent::WillSleep ? kPowerStateWillSleep
                                                                                : kPowerStateAwake);
                NotifyChanges();
            });
    }
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXPowerStateObserverMac::Deinit()
{
    if (initialized_.exchange(false) && platform_)
    {
        // Returns once no event is being told, so this object may go.
        platform_->Power().RemoveListener(listener_);
        listener_ = 0;
        platform_.reset();
    }
    return DRAVResult(kDRAVResultOk);
}
