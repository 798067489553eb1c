#pragma once

#include <memory>
#include <string>
#include <vector>

#include "engine/units/DRAVDeviceDescriptor.h"
#include "observers/DRMXDeviceObserverBase.h"
#include "observers/appaudio/DRMXAppAudio.h"
#include "portable-core/CDplThreadMutex.h"
#include "settings/DRMXInputSelector.h"

// The observer of applications. It keeps the process-wide list of
// applications that could be inputs, tells its observers (value 4) and the
// notification center when one starts or ends, and makes and deletes the
// capture device of an application on behalf of the inputs.
//
// Launch and terminate events arrive from the platform on a backend thread
// and are handled on the platform's main queue.
class DRMXDeviceObserverAppAudio : public DRMXDeviceObserverBase
{
public:
    static const std::string OtherAppLaunchedNotification;
    static const std::string OtherAppTerminatedNotification;
    static const std::string AppBundleIDKey;
    // Posted to make every application observer speak, with no application
    // having started or stopped.
    static const std::string NotifyObserversNotification;
    // The one accessory application that may be an input.
    static const std::string kWhitelistedAccessoryAppBundleID;

    DRMXDeviceObserverAppAudio();
    ~DRMXDeviceObserverAppAudio() override;

    DRAVResult Init() override;
    DRAVResult Deinit() override;
    bool IsInitialized() override;

    std::string GetLastChangedBundleId() const;

    // The list brought up to date with the running applications, as a copy.
    static std::vector<std::shared_ptr<DRMXAppAudio>> GetAudioInfos();
    static bool AppIsRunning(const std::string& bundleId);
    static std::vector<DRAVDeviceDescriptor> EnumDeviceDescriptors(const DRAVDeviceType& type);
    static std::vector<DRMX_Settings::DRMXInputSelector> EnumInputs();
    // From the resource "DefaultAppAudioInputs.json"; empty (logged) when it
    // is missing or broken.
    static std::vector<DRMX_Settings::DRMXInputSelector> GetDefaultAppAudioInputs();
    static DRAVDeviceDescriptor DeviceDescriptorForAppAudio(const DRMXAppAudio& appAudio, DRAVDeviceType type,
                                                            int32_t& index);

    // Makes the application's capture device; path is its device path.
    static bool ActivateAppAudioDevice(const DRMX_Settings::DRMXInputSelector& selector, std::string& path);
    static void DeactivateAppAudioDevice(const DRMX_Settings::DRMXInputSelector& selector);

    static bool ImageExistsForInputSelector(const DRMX_Settings::DRMXInputSelector& selector);
    static int CopyImageData(const DRMX_Settings::DRMXInputSelector& selector, void** out, int width,
                             int height, bool resize);
    static int CopyImageDataFromBundleID(const std::string& bundleId, void** out, int width, int height,
                                         bool resize);
    static bool IsInstalled(const DRMX_Settings::DRMXInputSelector& selector);
    static bool UpdateIsInstalledFlag(const DRMX_Settings::DRMXInputSelector& selector);
    static void UpdateIsInstalledFlagForAllAppAudioInputSelectors();
    // Launches the application; false only for an empty identifier.
    static bool OpenApp(const DRMX_Settings::DRMXInputSelector& selector);

    // kAudioInfoLock: over the process-wide list.
    static CDplThreadMutex& AudioInfoLock();

    struct Impl;

private:
    std::shared_ptr<Impl> impl_;  // posted callbacks hold it weakly
};
