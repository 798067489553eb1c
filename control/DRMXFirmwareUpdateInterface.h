#pragma once

#include <cstdint>
#include <string>

#include "portable-core/DRAVResult.h"
#include "settings/DRMXInputSelector.h"

// The states an update goes through, as GetDfuState reports them.
enum DRMXDfuState : int32_t
{
    kDfuStateIdle = 0,
    kDfuStateStarted = 1,
    kDfuStateDetaching = 2,
    kDfuStateDownloading = 3,
    kDfuStateWaitingForDisconnect = 4,
    kDfuStateDone = 5,
    kDfuStateFailed = 6,
};

// Puts a new firmware image on a microphone. The application starts an
// update and polls its state and progress.
class DRMXFirmwareUpdateInterface
{
public:
    virtual ~DRMXFirmwareUpdateInterface() = default;
    // The version in the file's head; 0 if it can't be read.
    virtual int64_t GetFirmwareVersionFromFile(const std::string& path) = 0;
    virtual DRAVResult DoFirmwareUpdate(const std::string& path) = 0;
    virtual DRAVResult DoFirmwareUpdate(const unsigned char* data, unsigned int size) = 0;
    // In percent.
    virtual int32_t GetFirmwareUpdateProgress() = 0;
    virtual int32_t GetDfuState() = 0;
    virtual void SetDeviceSelector(const DRMX_Settings::DRMXInputSelector& selector) = 0;
    // Turns the manager's device notifications off and stops mixing.
    virtual void PrepareFirmwareUpdate() = 0;
    // Turns them on again and starts mixing.
    virtual void FinishFirmwareUpdate() = 0;
};
