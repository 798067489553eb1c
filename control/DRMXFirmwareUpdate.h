#pragma once

#include <memory>

#include "control/DRMXFirmwareUpdateBase.h"
#include "control/DRMXFirmwareUpdateClock.h"

class DplDispatchQueue;

// One firmware update of one microphone over USB DFU, on its own serial
// queue "drmx.microphone.firmware-update". The file is checked before
// anything stops; then mixing stops, the microphone detaches, comes back
// under its DFU id at the same place, takes the image in 64-byte blocks and
// returns as a microphone, and mixing starts again. A new update takes a new
// object.
class DRMXFirmwareUpdate : public DRMXFirmwareUpdateBase
{
public:
    static constexpr size_t kBlockSize = 64;
    static constexpr size_t kSuffixSize = 16;

    explicit DRMXFirmwareUpdate(std::shared_ptr<DRMXFirmwareUpdateClock> clock = nullptr);
    // Waits for a running update to end.
    ~DRMXFirmwareUpdate() override;

    // The clock of updates made from now on without one of their own.
    static void SetDefaultClock(std::shared_ptr<DRMXFirmwareUpdateClock> clock);

    // ErrInvalidFormat (or ErrCouldNotOpenFile) for a file that doesn't fit
    // the microphone, with nothing stopped; -18 without the microphone's
    // device; else the update goes on in the background.
    DRAVResult DoFirmwareUpdate(const std::string& path) override;
    // Not offered: progress 0, ErrNotImplemented.
    DRAVResult DoFirmwareUpdate(const unsigned char* data, unsigned int size) override;
    int32_t GetFirmwareUpdateProgress() override;
    int32_t GetDfuState() override;

    struct Impl;

private:
    std::shared_ptr<Impl> impl_;  // the worker holds it too
    std::unique_ptr<DplDispatchQueue> queue_;
};
