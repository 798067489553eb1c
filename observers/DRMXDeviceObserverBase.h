#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "portable-core/DRAVObject.h"

// Which observer speaks: the value of kPropertyDeviceObserverNotification.
enum DRMXDeviceNotification : int32_t
{
    kDeviceNotificationAny = 0,
    kDeviceNotificationUSB = 1,
    kDeviceNotificationCoreAudio = 3,
    kDeviceNotificationAppAudio = 4,
};

// An observer of some part of the world (USB microphones, audio devices,
// applications). It reports a change by firing its one read-only integer
// property, whose value says who speaks.
class DRMXDeviceObserverBase : public DRAVObject
{
public:
    explicit DRMXDeviceObserverBase(const std::string& friendlyName, KVCMap* properties = nullptr);
    ~DRMXDeviceObserverBase() override;

    static KVCMap* GetMyObjectProperties();

    virtual DRAVResult Init() = 0;
    virtual DRAVResult Deinit() = 0;
    virtual bool IsInitialized() = 0;
    // While disabled NotifyChanges does nothing; bookkeeping goes on.
    virtual void SetEnabled(bool enabled);
    virtual DRAVResult AttachObserver(KVObserver* observer);
    virtual DRAVResult DetachObserver(KVObserver* observer);
    virtual void SetNotification(DRMXDeviceNotification notification);
    // Fires the property with force, so every observer hears it even though
    // the value hasn't changed.
    virtual void NotifyChanges();

    DRMXDeviceNotification GetNotification() const { return notification_.load(); }
    bool IsEnabled() const { return enabled_.load(); }
    int64_t DeviceObserverChange() const { return notification_.load(); }

private:
    std::atomic<DRMXDeviceNotification> notification_{kDeviceNotificationAny};
    std::atomic<bool> enabled_{true};
};
