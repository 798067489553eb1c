#pragma once

#include "control/DRMXFirmwareUpdateInterface.h"
#include "portable-core/CDplThreadMutex.h"

// What every update shares: the selector of the microphone, the version in a
// file, and the manager's side of an update.
class DRMXFirmwareUpdateBase : public DRMXFirmwareUpdateInterface
{
public:
    int64_t GetFirmwareVersionFromFile(const std::string& path) override;
    void SetDeviceSelector(const DRMX_Settings::DRMXInputSelector& selector) override;
    void PrepareFirmwareUpdate() override;
    void FinishFirmwareUpdate() override;

    // The manager's side of each: notifications off and mixing stopped, or
    // notifications on and mixing started (its result dropped).
    static void QuietManager();
    static void RestoreManager();

protected:
    DRMX_Settings::DRMXInputSelector GetDeviceSelector() const;

private:
    mutable CDplThreadMutex selectorLock_;
    DRMX_Settings::DRMXInputSelector selector_;
};
