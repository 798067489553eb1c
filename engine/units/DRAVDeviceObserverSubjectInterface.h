#pragma once

#include <vector>

#include "engine/units/DRAVSourceDescriptor.h"
#include "portable-core/DRAVResult.h"

class KVObserver;

// Something that watches the platform for devices and tells observers when
// they change: "internal" observers (the engine manager) first hear of a
// change, the others when the manager has dealt with it.
class DRAVDeviceObserverSubjectInterface
{
public:
    virtual ~DRAVDeviceObserverSubjectInterface() = default;

    virtual DRAVResult Init() = 0;
    virtual DRAVResult Deinit() = 0;
    // ErrNotFound when the subject cannot carry that kind of observer.
    virtual DRAVResult AttachObserver(KVObserver* observer, bool internal) = 0;
    virtual DRAVResult DetachObserver(KVObserver* observer, bool internal) = 0;
    virtual void SetNotificationFlags(int flags) = 0;
    virtual DRAVResult NotifyChanges(bool internal) = 0;
    // True when EnumDevices lists sources the engine can make.
    virtual bool ProvidesSources() = 0;
    virtual std::vector<DRAVSourceDescriptor> EnumDevices() = 0;
    virtual DRAVResult IsBonjourInstalled(bool* installed) = 0;
};
