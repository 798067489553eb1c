#include "control/DRMXMicrophoneBase.h"

#include "control/DRMXPlatformHooks.h"
#include "microphones/DRMXMicrophoneAccess.h"
#include "portable-core/DRAVPropertyNames.h"
#include "portable-core/KVCMapBuilder.h"

DRMXMicrophoneBase::DRMXMicrophoneBase(const std::string& name, DRMXMicrophoneType type, KVCMap* properties)
    : DRMXInputBase(name, properties != nullptr ? properties : GetMyObjectProperties()), microphoneType_(type)
{
}

DRMXMicrophoneBase::~DRMXMicrophoneBase() = default;

KVCMap* DRMXMicrophoneBase::GetMyObjectProperties()
{
    using M = DRMXMicrophoneBase;
    static KVCMap* const sClassProperties =
        KVCMapBuilder<M>(DRMXInputBase::GetMyObjectProperties())
            .Bool(kPropertyMicrophoneMute, &M::SetMicrophoneMute, &M::GetMicrophoneMute)
            .Double(kPropertyMicrophoneGain, &M::SetMicrophoneGain, &M::GetMicrophoneGain)
            .Double(kPropertyMicrophoneOutputVolume, &M::SetMicrophoneOutputVolume,
                    &M::GetMicrophoneOutputVolume)
            .Bool(kPropertyMicrophoneOutputMute, &M::SetMicrophoneOutputMute, &M::GetMicrophoneOutputMute)
            .Double(kPropertyMicrophoneDirectMonitorVolume, &M::SetMicrophoneDirectMonitorVolume,
                    &M::GetMicrophoneDirectMonitorVolume)
            .Bool(kPropertyMicrophoneClipGuard, &M::SetMicrophoneClipGuard, &M::GetMicrophoneClipGuard)
            .Bool(kPropertyMicrophoneLowCut, &M::SetMicrophoneLowCut, &M::GetMicrophoneLowCut)
            .Bool(kPropertyMicrophoneGainLocked, &M::SetMicrophoneGainLock, &M::GetMicrophoneGainLock)
            .Bool(kPropertyMicrophoneLedFlipped, &M::SetMicrophoneLEDFlip, &M::GetMicrophoneLEDFlip)
            .Double(kPropertyMicrophonePolarization, &M::SetMicrophonePolarization,
                    &M::GetMicrophonePolarization)
            .Int(kPropertyMicrophoneDialFunction, &M::SetMicrophoneVolumeSelect,
                 &M::GetMicrophoneVolumeSelect)
            .Double(kPropertyMicrophoneVULevelChannel1, nullptr, &M::GetMicrophoneVULevelChannel1)
            .Double(kPropertyMicrophoneVULevelChannel2, nullptr, &M::GetMicrophoneVULevelChannel2)
            .String(kPropertyMicrophoneDefaultName, nullptr, &M::GetMicrophoneDefaultName)
            .String(kPropertyMicrophoneCustomName, &M::SetMicrophoneCustomName, &M::GetMicrophoneCustomName)
            .Build();
    return sClassProperties;
}

std::weak_ptr<DRMXMicrophoneInterface> DRMXMicrophoneBase::GetMicrophoneHelper() const
{
    return GetMicrophoneHelperPlatformSpecific(GetHardwareId());
}

template <typename Value>
Value DRMXMicrophoneBase::Read(Value (DRMXMicrophoneInterface::*getter)(), Value fallback)
{
    const std::shared_ptr<DRMXMicrophoneInterface> control = GetMicrophoneHelper().lock();
    if (!control)
    {
        return fallback;
    }
    std::lock_guard access(DRMXMicrophoneAccessMutex());
    int bytes = 0;
    control->ReadMicrophoneConfiguration(bytes);
    return ((*control).*getter)();
}

template <typename Value>
DRAVResult DRMXMicrophoneBase::Write(DRAVResult (DRMXMicrophoneInterface::*setter)(Value), Value value)
{
    const std::shared_ptr<DRMXMicrophoneInterface> control = GetMicrophoneHelper().lock();
    if (!control)
    {
        return DRAVResult(kDRAVResultOk);
    }
    // No read first: the block is written as the control object last held it.
    std::lock_guard access(DRMXMicrophoneAccessMutex());
    ((*control).*setter)(value);
    control->WriteMicrophoneConfiguration();
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXMicrophoneBase::Init()
{
    initialized_.store(true);
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXMicrophoneBase::Deinit()
{
    initialized_.store(false);
    return DRAVResult(kDRAVResultOk);
}

DRMXMicrophoneType DRMXMicrophoneBase::GetMicrophoneType()
{
    return microphoneType_.load();
}

DRAVResult DRMXMicrophoneBase::SetMicrophoneType(DRMXMicrophoneType type)
{
    microphoneType_.store(type);
    return DRAVResult(kDRAVResultOk);
}

bool DRMXMicrophoneBase::IsMicrophoneConnected()
{
    return GetMicrophoneHelper().lock() != nullptr;
}

DRAVResult DRMXMicrophoneBase::ReadMicrophoneConfiguration(int& bytesRead)
{
    bytesRead = 0;
    const std::shared_ptr<DRMXMicrophoneInterface> control = GetMicrophoneHelper().lock();
    if (!control)
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    std::lock_guard access(DRMXMicrophoneAccessMutex());
    return control->ReadMicrophoneConfiguration(bytesRead);
}

DRAVResult DRMXMicrophoneBase::WriteMicrophoneConfiguration()
{
    const std::shared_ptr<DRMXMicrophoneInterface> control = GetMicrophoneHelper().lock();
    if (!control)
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    std::lock_guard access(DRMXMicrophoneAccessMutex());
    return control->WriteMicrophoneConfiguration();
}

DRAVResult DRMXMicrophoneBase::UpdateConfigurationBySettings(
    const DRMX_Settings::DRMXMicrophoneSettings& settings, bool applyLevels)
{
    const std::shared_ptr<DRMXMicrophoneInterface> control = GetMicrophoneHelper().lock();
    if (!control)
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    std::lock_guard access(DRMXMicrophoneAccessMutex());
    int bytes = 0;
    control->ReadMicrophoneConfiguration(bytes);
    if (settings.microphoneType != kMicrophoneTypeUnknown && applyLevels)
    {
        control->SetMicrophoneGain(settings.gain);
        control->SetMicrophoneOutputVolume(settings.outputVolume);
    }
    // Mute and output mute stay as the hardware has them; one write carries
    // everything else.
    control->SetMicrophoneDirectMonitorVolume(settings.directMonitorVolume);
    control->SetMicrophoneClipGuard(settings.clipGuard);
    control->SetMicrophoneLowCut(settings.lowCut);
    control->SetMicrophonePolarization(settings.polarization);
    control->SetMicrophoneGainLock(settings.gainLock);
    control->SetMicrophoneLEDFlip(settings.ledFlipped);
    control->SetMicrophoneVolumeSelect(settings.dialFunction);
    control->SetMicrophoneAllLEDOff(false);
    return control->WriteMicrophoneConfiguration();
}

double DRMXMicrophoneBase::GetMicrophoneGain()
{
    return Read(&DRMXMicrophoneInterface::GetMicrophoneGain, 0.0);
}

DRAVResult DRMXMicrophoneBase::SetMicrophoneGain(double gain)
{
    return Write(&DRMXMicrophoneInterface::SetMicrophoneGain, gain);
}

bool DRMXMicrophoneBase::GetMicrophoneMute()
{
    return Read(&DRMXMicrophoneInterface::GetMicrophoneMute, false);
}

DRAVResult DRMXMicrophoneBase::SetMicrophoneMute(bool mute)
{
    return Write(&DRMXMicrophoneInterface::SetMicrophoneMute, mute);
}

double DRMXMicrophoneBase::GetMicrophoneOutputVolume()
{
    return Read(&DRMXMicrophoneInterface::GetMicrophoneOutputVolume, 0.0);
}

DRAVResult DRMXMicrophoneBase::SetMicrophoneOutputVolume(double volume)
{
    return Write(&DRMXMicrophoneInterface::SetMicrophoneOutputVolume, volume);
}

bool DRMXMicrophoneBase::GetMicrophoneOutputMute()
{
    return Read(&DRMXMicrophoneInterface::GetMicrophoneOutputMute, false);
}

DRAVResult DRMXMicrophoneBase::SetMicrophoneOutputMute(bool)
{
    return DRAVResult(kDRAVResultOk);
}

double DRMXMicrophoneBase::GetMicrophoneDirectMonitorVolume()
{
    return Read(&DRMXMicrophoneInterface::GetMicrophoneDirectMonitorVolume, 0.0);
}

DRAVResult DRMXMicrophoneBase::SetMicrophoneDirectMonitorVolume(double volume)
{
    return Write(&DRMXMicrophoneInterface::SetMicrophoneDirectMonitorVolume, volume);
}

bool DRMXMicrophoneBase::GetMicrophoneClipGuard()
{
    return Read(&DRMXMicrophoneInterface::GetMicrophoneClipGuard, false);
}

DRAVResult DRMXMicrophoneBase::SetMicrophoneClipGuard(bool on)
{
    return Write(&DRMXMicrophoneInterface::SetMicrophoneClipGuard, on);
}

bool DRMXMicrophoneBase::GetMicrophoneLowCut()
{
    return Read(&DRMXMicrophoneInterface::GetMicrophoneLowCut, false);
}

DRAVResult DRMXMicrophoneBase::SetMicrophoneLowCut(bool on)
{
    return Write(&DRMXMicrophoneInterface::SetMicrophoneLowCut, on);
}

bool DRMXMicrophoneBase::HasMicrophonePolarization()
{
    const std::shared_ptr<DRMXMicrophoneInterface> control = GetMicrophoneHelper().lock();
    return control && control->HasMicrophonePolarization();
}

double DRMXMicrophoneBase::GetMicrophonePolarization()
{
    return Read(&DRMXMicrophoneInterface::GetMicrophonePolarization, 0.0);
}

DRAVResult DRMXMicrophoneBase::SetMicrophonePolarization(double polarization)
{
    return Write(&DRMXMicrophoneInterface::SetMicrophonePolarization, polarization);
}

bool DRMXMicrophoneBase::HasMicrophoneVolumeSelect()
{
    const std::shared_ptr<DRMXMicrophoneInterface> control = GetMicrophoneHelper().lock();
    return control && control->HasMicrophoneVolumeSelect();
}

int64_t DRMXMicrophoneBase::GetMicrophoneVolumeSelect()
{
    return Read(&DRMXMicrophoneInterface::GetMicrophoneVolumeSelect, int64_t{0});
}

DRAVResult DRMXMicrophoneBase::SetMicrophoneVolumeSelect(int64_t select)
{
    return Write(&DRMXMicrophoneInterface::SetMicrophoneVolumeSelect, select);
}

bool DRMXMicrophoneBase::GetMicrophoneAllLEDOff()
{
    return Read(&DRMXMicrophoneInterface::GetMicrophoneAllLEDOff, false);
}

DRAVResult DRMXMicrophoneBase::SetMicrophoneAllLEDOff(bool off)
{
    return Write(&DRMXMicrophoneInterface::SetMicrophoneAllLEDOff, off);
}

bool DRMXMicrophoneBase::HasMicrophoneGainLock()
{
    if (GetSelector().GetFWVersion() < kFirmwareWithLocks)
    {
        return false;
    }
    const std::shared_ptr<DRMXMicrophoneInterface> control = GetMicrophoneHelper().lock();
    return control && control->HasMicrophoneGainLock();
}

bool DRMXMicrophoneBase::GetMicrophoneGainLock()
{
    return Read(&DRMXMicrophoneInterface::GetMicrophoneGainLock, false);
}

DRAVResult DRMXMicrophoneBase::SetMicrophoneGainLock(bool locked)
{
    return Write(&DRMXMicrophoneInterface::SetMicrophoneGainLock, locked);
}

bool DRMXMicrophoneBase::HasMicrophoneLEDFlip()
{
    if (GetSelector().GetFWVersion() < kFirmwareWithLocks || GetMicrophoneType() != kMicrophoneTypeReed3)
    {
        return false;
    }
    const std::shared_ptr<DRMXMicrophoneInterface> control = GetMicrophoneHelper().lock();
    return control && control->HasMicrophoneLEDFlip();
}

bool DRMXMicrophoneBase::GetMicrophoneLEDFlip()
{
    return Read(&DRMXMicrophoneInterface::GetMicrophoneLEDFlip, false);
}

DRAVResult DRMXMicrophoneBase::SetMicrophoneLEDFlip(bool flipped)
{
    return Write(&DRMXMicrophoneInterface::SetMicrophoneLEDFlip, flipped);
}

double DRMXMicrophoneBase::GetMicrophoneVULevelChannel1()
{
    return 0.5;
}

double DRMXMicrophoneBase::GetMicrophoneVULevelChannel2()
{
    return 0.5;
}

std::string DRMXMicrophoneBase::GetMicrophoneDefaultName()
{
    return GetSelector().GetName();
}

std::string DRMXMicrophoneBase::GetMicrophoneCustomName()
{
    return GetSelector().GetCustomName();
}

void DRMXMicrophoneBase::SetMicrophoneCustomName(const std::string& name)
{
    CDplScopedLock lock(selectorLock_);
    selector_.SetCustomName(name);
}

std::string DRMXMicrophoneBase::GetHardwareId() const
{
    CDplScopedLock lock(hardwareIdLock_);
    return hardwareId_;
}

void DRMXMicrophoneBase::SetHardwareId(const std::string& hardwareId)
{
    CDplScopedLock lock(hardwareIdLock_);
    hardwareId_ = hardwareId;
}

std::string DRMXMicrophoneBase::GetSerialNumber() const
{
    return {};
}

int64_t DRMXMicrophoneBase::GetFirmwareVersion() const
{
    return GetSelector().GetFWVersion();
}
