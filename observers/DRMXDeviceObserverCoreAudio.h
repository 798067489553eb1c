#pragma once

#include <atomic>
#include <cstdint>

#include "observers/DRMXDeviceObserverBase.h"

// The observer of audio devices. It holds the identity of the main microphone
// (process-wide) that the manager resets when it rebuilds its cache; the
// comparison of device lists joins it with the observers of devices.
class DRMXDeviceObserverCoreAudio : public DRMXDeviceObserverBase
{
public:
    struct MainMicrophoneDeviceID
    {
        int32_t usbInfoValid = 0;
        uint16_t vendorId = 0;
        uint16_t productId = 0;
        uint32_t location = 0;
    };

    DRMXDeviceObserverCoreAudio();
    ~DRMXDeviceObserverCoreAudio() override;

    DRAVResult Init() override;
    DRAVResult Deinit() override;
    bool IsInitialized() override { return initialized_.load(); }

    // All zero: no main microphone chosen yet.
    static void ResetMainMicrophoneID();
    static MainMicrophoneDeviceID GetMainMicrophoneID();
    static void SetMainMicrophoneID(const MainMicrophoneDeviceID& id);

private:
    std::atomic<bool> initialized_{false};
};
