#pragma once

#include <string>

#include "observers/DRMXDeviceObserverBase.h"

// The observer of applications and their audio. It remembers the bundle
// identifier of the application whose audio endpoint changed last.
class DRMXDeviceObserverAppAudio : public DRMXDeviceObserverBase
{
public:
    DRMXDeviceObserverAppAudio();
    ~DRMXDeviceObserverAppAudio() override;

    DRAVResult Init() override;
    DRAVResult Deinit() override;
    bool IsInitialized() override;

    std::string GetLastChangedBundleId() const;
    void SetLastChangedBundleId(const std::string& bundleId);

private:
    mutable CDplThreadMutex mutex_;
    bool initialized_ = false;
    std::string lastChangedBundleId_;
};
