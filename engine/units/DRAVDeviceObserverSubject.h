#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "engine/units/DRAVDeviceObserverSubjectInterface.h"
#include "engine/units/DRAVUnit.h"

// A device observer subject as a unit: its observers watch one of two
// read-only Bool properties, which a change fires. Platforms derive their
// subjects from it and list their devices in EnumDevices.
class DRAVDeviceObserverSubject : public DRAVUnit, public DRAVDeviceObserverSubjectInterface
{
public:
    explicit DRAVDeviceObserverSubject(const std::string& name, KVCMap* propertyMap = nullptr);
    ~DRAVDeviceObserverSubject() override;

    static KVCMap* GetMyObjectProperties();

    // No pins: Init and Deinit only mark the unit (un)initialised.
    DRAVResult Init() override;
    DRAVResult Deinit() override;
    DRAVResult AttachObserver(KVObserver* observer, bool internal) override;
    DRAVResult DetachObserver(KVObserver* observer, bool internal) override;
    void SetNotificationFlags(int flags) override { notificationFlags_.store(flags); }
    int GetNotificationFlags() const { return notificationFlags_.load(); }
    // Fires the chosen property with force, so that its observers hear of it.
    DRAVResult NotifyChanges(bool internal) override;
    bool ProvidesSources() override { return false; }
    std::vector<DRAVSourceDescriptor> EnumDevices() override { return {}; }
    DRAVResult IsBonjourInstalled(bool* installed) override;

    // The properties' values: an event carries no state.
    bool GetDeviceObserverChange() { return false; }

private:
    static const char* PropertyName(bool internal);

    std::atomic<int> notificationFlags_{0};
};
