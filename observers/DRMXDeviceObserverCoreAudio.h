#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "observers/DRMXDeviceObserverBase.h"
#include "settings/DRMXInputSelector.h"
#include "settings/DRMXOutputSelector.h"

// The observer of audio devices. It keeps the last lists of inputs and
// outputs, compares them with the system's after every change of the device
// list or the default output, and posts what came and went. It is also where
// a raw audio device becomes a selector, and where the one main microphone is
// chosen (process-wide, so that the manager and every enumeration agree).
//
// The comparison runs on the platform's main queue; the listeners only post
// to it. The gate (Enable/DisableDeviceObserverCallback) lets the creation of
// an application's capture device pass unnoticed.
class DRMXDeviceObserverCoreAudio : public DRMXDeviceObserverBase
{
public:
    struct MainMicrophoneDeviceID
    {
        int32_t usbInfoValid = 0;
        uint16_t vendorId = 0;
        uint16_t productId = 0;
        uint32_t location = 0;
        // The audio device's hardware id, which carries the serial number:
        // capabilities keep only 16 bits of the location, which are 0 for
        // every microphone on a root port of a Linux bus.
        std::string hardwareId;
        bool operator==(const MainMicrophoneDeviceID&) const = default;
    };

    static const std::string CoreAudioInputsAddedNotification;
    static const std::string CoreAudioInputsRemovedNotification;
    static const std::string CoreAudioOutputsAddedNotification;
    static const std::string CoreAudioOutputsRemovedNotification;
    static const std::string CoreAudioInputsKey;
    static const std::string CoreAudioOutputsKey;

    DRMXDeviceObserverCoreAudio();
    ~DRMXDeviceObserverCoreAudio() override;

    // Takes the lists and installs the listeners; "ErrNotInitialized" when a
    // listener can't be installed.
    DRAVResult Init() override;
    DRAVResult Deinit() override;
    bool IsInitialized() override;

    // The system's inputs and outputs as selectors; they need no observer.
    static std::vector<DRMX_Settings::DRMXInputSelector> EnumInputs();
    static std::vector<DRMX_Settings::DRMXOutputSelector> EnumOutputs();

    static void EnableDeviceObserverCallback();
    static void DisableDeviceObserverCallback();
    static bool IsDeviceObserverCallbackEnabled();

    // All zero: no main microphone chosen yet.
    static void ResetMainMicrophoneID();
    static MainMicrophoneDeviceID GetMainMicrophoneID();

    // Queues a comparison on the main queue, as a listener does.
    void HandleDeviceObserverCallback(bool unused = false);

    // The lists of the last comparison (or of Init).
    std::vector<DRMX_Settings::DRMXInputSelector> GetInputs() const;
    std::vector<DRMX_Settings::DRMXOutputSelector> GetOutputs() const;

    struct Impl;

private:
    std::shared_ptr<Impl> impl_;  // posted comparisons hold it weakly
};
