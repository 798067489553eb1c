#include "observers/appaudio/DRMXDeviceObserverAppAudio.h"

DRMXDeviceObserverAppAudio::DRMXDeviceObserverAppAudio() : DRMXDeviceObserverBase("Device Observer App Audio") {}

DRMXDeviceObserverAppAudio::~DRMXDeviceObserverAppAudio() = default;

DRAVResult DRMXDeviceObserverAppAudio::Init()
{
    CDplScopedLock lock(mutex_);
    initialized_ = true;
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXDeviceObserverAppAudio::Deinit()
{
    CDplScopedLock lock(mutex_);
    initialized_ = false;
    return DRAVResult(kDRAVResultOk);
}

bool DRMXDeviceObserverAppAudio::IsInitialized()
{
    CDplScopedLock lock(mutex_);
    return initialized_;
}

std::string DRMXDeviceObserverAppAudio::GetLastChangedBundleId() const
{
    CDplScopedLock lock(mutex_);
    return lastChangedBundleId_;
}

void DRMXDeviceObserverAppAudio::SetLastChangedBundleId(const std::string& bundleId)
{
    CDplScopedLock lock(mutex_);
    lastChangedBundleId_ = bundleId;
}
