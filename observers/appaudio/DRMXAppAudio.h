#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/Applications.h"
#include "portable-core/CDplThreadMutex.h"

// One application whose sound can be an input of the mix, and the capture
// device made for it while an input uses it. The platform's applications
// service is the only place that makes and deletes such devices, and this
// class the only caller of it.
class DRMXAppAudio
{
public:
    using Image = std::shared_ptr<tidemix::platform::ApplicationIcon>;

    // Looks the application up among the installed ones; with an icon it is
    // kept and the application counts as installed.
    DRMXAppAudio(const std::string& identifier, const std::string& name);
    virtual ~DRMXAppAudio();
    DRMXAppAudio(const DRMXAppAudio&) = delete;
    DRMXAppAudio& operator=(const DRMXAppAudio&) = delete;

    std::string GetIdentifier() const { return identifier_; }
    std::string GetName() const { return name_; }

    // Makes the capture device; false (logged) if the platform can't. A
    // device whose id isn't found in the device list still counts as made,
    // with hardware id 0.
    bool Activate();
    // Deletes the device, if there is one; the hardware id stays.
    void Deactivate();
    std::string GetDeviceUID() const;
    uint32_t GetDeviceHardwareId() const;

    bool ImageExists() const;
    // A PNG in a buffer from calloc, which the caller frees; its size, or 0
    // (out untouched) without an icon.
    int CopyImageData(void** out, int width, int height, bool resize) const;
    bool IsInstalled() const;
    void UpdateIsInstalledFlag();

    static bool AppWithIdentifierIsInstalled(const std::string& identifier);
    // The icon of an installed application; null if there is none or it
    // isn't a picture (logged).
    static Image ImageForBundleID(const std::string& identifier);
    static int CopyImageDataFromImage(const Image& image, void** out, int width, int height, bool resize);

private:
    const std::string identifier_;
    const std::string name_;
    mutable CDplThreadMutex lock_;
    std::string deviceUID_;
    uint32_t deviceHardwareId_ = 0;
    Image image_;
    bool installed_ = false;
};
