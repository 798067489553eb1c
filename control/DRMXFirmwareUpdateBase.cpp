#include "control/DRMXFirmwareUpdateBase.h"

#include "control/DRMXManager.h"
#include "microphones/DRMXFirmwareVersion.h"

int64_t DRMXFirmwareUpdateBase::GetFirmwareVersionFromFile(const std::string& path)
{
    return DRMXFirmwareVersion::FromFile(path).Get();
}

void DRMXFirmwareUpdateBase::SetDeviceSelector(const DRMX_Settings::DRMXInputSelector& selector)
{
    CDplScopedLock lock(selectorLock_);
    selector_ = selector;
}

DRMX_Settings::DRMXInputSelector DRMXFirmwareUpdateBase::GetDeviceSelector() const
{
    CDplScopedLock lock(selectorLock_);
    return selector_;
}

void DRMXFirmwareUpdateBase::PrepareFirmwareUpdate()
{
    QuietManager();
}

void DRMXFirmwareUpdateBase::FinishFirmwareUpdate()
{
    RestoreManager();
}

void DRMXFirmwareUpdateBase::QuietManager()
{
    // The microphone leaves and comes back twice: nobody must take that for
    // a plug event, and the mix must not hold its device meanwhile.
    DRMXManager* manager = DRMXManager::GetDRMXManager();
    manager->EnableDeviceNotification(false);
    manager->StopMixing();
}

void DRMXFirmwareUpdateBase::RestoreManager()
{
    DRMXManager* manager = DRMXManager::GetDRMXManager();
    manager->EnableDeviceNotification(true);
    manager->StartMixing();
}
