// The manager's settings façade: the settings in memory, and the one save
// the application asks for.
#include "control/DRMXManager.h"

#include "microphones/DRMXValueNormalization.h"
#include "portable-core/DRAVObject.h"
#include "portable-core/DRAVPropertyNames.h"

using namespace DRMX_Settings;

DRAVResult DRMXManager::GetMicrophoneSettings(DRMXMicrophoneSettings& settings) const
{
    CDplScopedLock lock(settingsLock_);
    if (!settings_.isLoadedCorrectly())
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    settings = settings_.microphoneSettings;
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXManager::GetApplicationSettings(DRMXApplicationSettings& settings) const
{
    CDplScopedLock lock(settingsLock_);
    settings = settings_.applicationSettings;
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXManager::SetApplicationSettings(DRMXApplicationSettings settings)
{
    CDplScopedLock lock(settingsLock_);
    settings_.applicationSettings = std::move(settings);
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXManager::SetAndSaveSettings(DRMXMicrophoneSettings microphone,
                                           DRMXApplicationSettings application)
{
    CDplScopedLock lock(settingsLock_);
    settings_.microphoneSettings = std::move(microphone);
    settings_.applicationSettings = std::move(application);
    const DRAVResult result = settings_.SaveSettings(settingsPath_);
    if (result == kDRAVResultOk)
    {
        noSettingsFileAvailable_.store(false);
    }
    return result;
}

DRAVResult DRMXManager::GetMixerConfigurationSettings(DRMXMixerConfiguration& configuration) const
{
    CDplScopedLock lock(settingsLock_);
    if (!settings_.isLoadedCorrectly())
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    configuration = settings_.mixerConfiguration;
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXManager::SetMixerConfigurationSettings(DRMXMixerConfiguration configuration)
{
    CDplScopedLock lock(settingsLock_);
    // The buffer sizes are the engine's to decide: they keep their stored values.
    configuration.audioBufferSizeInputMSec = settings_.mixerConfiguration.audioBufferSizeInputMSec;
    configuration.audioBufferSizeOutputMSec = settings_.mixerConfiguration.audioBufferSizeOutputMSec;
    settings_.mixerConfiguration = std::move(configuration);
    return DRAVResult(kDRAVResultOk);
}

void DRMXManager::setSaveSettingsAllowed(bool allowed)
{
    CDplScopedLock lock(settingsLock_);
    settings_.setSaveSettingsAllowed(allowed);
}

std::string DRMXManager::GetSettingsPath() const
{
    CDplScopedLock lock(settingsLock_);
    return settingsPath_;
}

void DRMXManager::UpdateMicSettingsByOS(DRMXSettings& settings)
{
    DRMXMicrophoneSettings microphone = settings.microphoneSettings;
    UpdateMicSettingsByOS(microphone);
    settings.microphoneSettings = microphone;
}

void DRMXManager::UpdateMicSettingsByOS(DRMXMicrophoneSettings& settings)
{
    std::shared_ptr<DRMXMicrophoneInterface> microphone;
    if (!GetMicrophoneInterface(DRMXInputSelector(), &microphone).Succeeded() || !microphone)
    {
        return;
    }
    if (auto object = std::dynamic_pointer_cast<DRAVObject>(microphone))
    {
        settings.gain = cutToNormalizedValue(object->GetDoubleProperty(kPropertyMicrophoneGain));
        settings.outputVolume =
            cutToNormalizedValue(object->GetDoubleProperty(kPropertyMicrophoneOutputVolume));
    }
}
