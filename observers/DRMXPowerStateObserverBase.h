#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "portable-core/DRAVObject.h"

enum DRMXPowerState : int32_t
{
    kPowerStateAwake = 0,
    kPowerStateWillSleep = 1,
};

// Tells its observers when the machine goes to sleep and wakes up, through one
// read-only integer property whose value is the power state.
class DRMXPowerStateObserverBase : public DRAVObject
{
public:
    explicit DRMXPowerStateObserverBase(const std::string& friendlyName, KVCMap* properties = nullptr);
    ~DRMXPowerStateObserverBase() override;

    static KVCMap* GetMyObjectProperties();

    virtual DRAVResult Init() = 0;
    virtual DRAVResult Deinit() = 0;
    virtual bool IsInitialized() = 0;
    virtual void SetEnabled(bool enabled);
    virtual DRAVResult AttachObserver(KVObserver* observer);
    virtual DRAVResult DetachObserver(KVObserver* observer);
    virtual void SetPowerState(DRMXPowerState state);
    // Fires the property with force while enabled.
    virtual void NotifyChanges();

    DRMXPowerState GetPowerState() const { return powerState_.load(); }
    int64_t PowerStateObserverChange() const { return powerState_.load(); }

private:
    std::atomic<DRMXPowerState> powerState_{kPowerStateAwake};
    std::atomic<bool> enabled_{true};
};
