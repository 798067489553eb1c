#include "observers/appaudio/DRMXAppAudio.h"

#include <cstdlib>
#include <cstring>
#include <vector>

#include "platform/Platform.h"
#include "portable-core/DRAVLog.h"

namespace
{
tidemix::platform::Applications* Apps()
{
    const auto platform = tidemix::platform::Platform::Current();
    return platform ? &platform->Apps() : nullptr;
}

// The device list's id of the device with that unique id; 0 if it isn't there.
uint32_t DeviceIdForUID(const std::string& uid)
{
    const auto platform = tidemix::platform::Platform::Current();
    if (!platform)
    {
        return 0;
    }
    for (const auto& device : platform->Audio().Devices())
    {
        if (device.uid == uid)
        {
            return device.id;
        }
    }
    return 0;
}
}  // namespace

DRMXAppAudio::DRMXAppAudio(const std::string& identifier, const std::string& name)
    : identifier_(identifier), name_(name)
{
    if (auto* apps = Apps(); apps != nullptr && apps->FindInstalled(identifier))
    {
        image_ = ImageForBundleID(identifier);
        installed_ = image_ != nullptr;
    }
}

DRMXAppAudio::~DRMXAppAudio() = default;

bool DRMXAppAudio::Activate()
{
    auto* apps = Apps();
    std::string whyNot = "no platform";
    const std::string uid = apps != nullptr ? apps->CreateCaptureDevice(identifier_, &whyNot) : std::string();
    CDplScopedLock lock(lock_);
    if (uid.empty())
    {
        DRAVLogPrintf(kDbgPrintLevelWarning, "application audio: no capture device for \"%s\": %s",
                      identifier_.c_str(), whyNot.c_str());
        deviceHardwareId_ = 0;
        return false;
    }
    deviceUID_ = uid;
    deviceHardwareId_ = DeviceIdForUID(uid);
    return true;
}

void DRMXAppAudio::Deactivate()
{
    std::string uid;
    {
        CDplScopedLock lock(lock_);
        uid.swap(deviceUID_);
    }
    if (auto* apps = Apps(); apps != nullptr && !uid.empty())
    {
        apps->DeleteCaptureDevice(uid);
    }
}

std::string DRMXAppAudio::GetDeviceUID() const
{
    CDplScopedLock lock(lock_);
    return deviceUID_;
}

uint32_t DRMXAppAudio::GetDeviceHardwareId() const
{
    CDplScopedLock lock(lock_);
    return deviceHardwareId_;
}

bool DRMXAppAudio::ImageExists() const
{
    CDplScopedLock lock(lock_);
    return image_ != nullptr;
}

int DRMXAppAudio::CopyImageData(void** out, int width, int height, bool resize) const
{
    Image image;
    {
        CDplScopedLock lock(lock_);
        image = image_;
    }
    return CopyImageDataFromImage(image, out, width, height, resize);
}

bool DRMXAppAudio::IsInstalled() const
{
    CDplScopedLock lock(lock_);
    return installed_;
}

void DRMXAppAudio::UpdateIsInstalledFlag()
{
    const bool installed = AppWithIdentifierIsInstalled(identifier_);
    CDplScopedLock lock(lock_);
    installed_ = installed;
}

bool DRMXAppAudio::AppWithIdentifierIsInstalled(const std::string& identifier)
{
    auto* apps = Apps();
    return apps != nullptr && !identifier.empty() && apps->FindInstalled(identifier).has_value();
}

DRMXAppAudio::Image DRMXAppAudio::ImageForBundleID(const std::string& identifier)
{
    auto* apps = Apps();
    const auto installed = apps != nullptr ? apps->FindInstalled(identifier) : std::nullopt;
    if (!installed || installed->iconPath.empty())
    {
        return nullptr;
    }
    std::string whyNot;
    Image image = apps->LoadIcon(installed->iconPath, &whyNot);
    if (!image)
    {
        DRAVLogPrintf(kDbgPrintLevelWarning, "application audio: the icon \"%s\" of \"%s\" can't be read: %s",
                      installed->iconPath.c_str(), identifier.c_str(), whyNot.c_str());
    }
    return image;
}

int DRMXAppAudio::CopyImageDataFromImage(const Image& image, void** out, int width, int height, bool resize)
{
    if (!image || out == nullptr)
    {
        return 0;
    }
    const std::vector<uint8_t> png = image->EncodePng(width, height, resize);
    if (png.empty())
    {
        return 0;
    }
    void* buffer = calloc(png.size(), 1);
    if (buffer == nullptr)
    {
        return 0;
    }
    memcpy(buffer, png.data(), png.size());
    *out = buffer;
    return static_cast<int>(png.size());
}
