#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "control/DRMXFirmwareUpdateInterface.h"
#include "control/DRMXInputInterface.h"
#include "control/DRMXMixerBase.h"
#include "microphones/DRMXMicrophoneInterface.h"
#include "observers/DRMXDeviceObserverBase.h"
#include "observers/DRMXPowerStateObserverBase.h"
#include "portable-core/CDplThreadMutex.h"
#include "portable-core/KVObserverDelegate.h"
#include "settings/DRMXSettings.h"

// The one object the application talks to: it owns the settings, the two
// mixes, the device and power observers and the cached main microphone, and it
// alone knows the order in which inputs, outputs, mixes and the microphone
// start and stop. It moves no audio itself.
//
// Locks, always in this order: the mixer lock, the microphone lock, the
// settings lock. So StartMixing (mixer, then microphone), Deinit and a device
// change on an observer's thread can't deadlock each other.
class DRMXManager
{
public:
    static DRMXManager* GetDRMXManager();
    virtual ~DRMXManager();

    // Lifecycle.
    DRAVResult Init(const std::string& logFile);
    void Deinit();
    DRAVResult LoadSettings();
    DRAVResult ResetSettings();
    DRAVResult StartMixing();
    void StopMixing();
    bool IsMixing() const { return mixing_.load(); }

    // Settings façade: reads and writes the settings in memory; only
    // SetAndSaveSettings and Deinit write the file.
    DRAVResult GetMicrophoneSettings(DRMX_Settings::DRMXMicrophoneSettings& settings) const;
    DRAVResult GetApplicationSettings(DRMX_Settings::DRMXApplicationSettings& settings) const;
    DRAVResult SetApplicationSettings(DRMX_Settings::DRMXApplicationSettings settings);
    DRAVResult SetAndSaveSettings(DRMX_Settings::DRMXMicrophoneSettings microphone,
                                  DRMX_Settings::DRMXApplicationSettings application);
    DRAVResult GetMixerConfigurationSettings(DRMX_Settings::DRMXMixerConfiguration& configuration) const;
    DRAVResult SetMixerConfigurationSettings(DRMX_Settings::DRMXMixerConfiguration configuration);
    bool GetNoSettingsFileAvailable() const { return noSettingsFileAvailable_.load(); }
    void setSaveSettingsAllowed(bool allowed);
    void UpdateMicSettingsByOS(DRMX_Settings::DRMXSettings& settings);
    void UpdateMicSettingsByOS(DRMX_Settings::DRMXMicrophoneSettings& settings);
    std::string GetSettingsPath() const;

    // Devices, microphone and application facts.
    std::vector<DRMX_Settings::DRMXInputSelector> GetAvailableInputs(DRMX_Settings::DRMXInputType type);
    std::vector<DRMX_Settings::DRMXOutputSelector> GetAvailableOutputs(
        const DRMX_Settings::DRMXOutputType& type, const DRMX_Settings::DRMXOutputTerminalType& terminal);
    std::vector<DRMX_Settings::DRMXOutputSelector> GetAvailableOutputs(DRMX_Settings::DRMXOutputType type,
                                                                       std::string name);
    DRMX_Settings::DRMXInputSelector GetMainMicrophoneInput();
    DRMX_Settings::DRMXOutputSelector GetMainMicrophoneOutput();
    DRAVResult GetMicrophoneInterface(const DRMX_Settings::DRMXInputSelector& selector,
                                      std::shared_ptr<DRMXMicrophoneInterface>* out);
    void UpdateMainMicrophoneCache();
    bool IsMicrophoneConnected();
    bool IsDFUMicrophoneConnected();
    bool IsVirtualDeviceInitialized(std::string name);
    DRAVResult GetFirmwarePath(DRMXMicrophoneType type, std::string& path);
    // A microphone already in DFU mode; empty if there is none.
    std::weak_ptr<DRMXMicrophoneInterface> GetFirstDFUMicrophone();
    // A new firmware update (the name isn't used).
    std::shared_ptr<DRMXFirmwareUpdateInterface> GetFirmwareUpdater(const std::string& name);
    bool NeedsAdminPrivileges() const { return false; }
    // The mix runs at a fixed 48000 Hz: these change nothing.
    DRAVResult GetSupportedSamplerates(std::vector<uint32_t>& rates);
    DRAVResult GetCurrentSampleRate(uint32_t& rate);
    DRAVResult SetSampleRate(uint32_t rate);
    bool ChangedAppAudioEndpointIsInUse() const;

    // Makes an input for a selector (the microphone's among them).
    DRAVResult CreateInput(const DRMX_Settings::DRMXInputSelector& selector,
                           std::shared_ptr<DRMXInputInterface>* out);

    // Observers, monitoring and levels.
    DRAVResult AttachDeviceChangeObserver(KVObserver* observer, DRMXDeviceNotification notification);
    DRAVResult DetachDeviceChangeObserver(KVObserver* observer);
    void EnableDeviceNotification(bool enable);
    std::shared_ptr<DRMXMixerBase> GetMixerForType(const DRMX_Settings::DRMXMixerType& type) const;
    // The nodes of a mix; empty when the mix is missing.
    std::vector<std::shared_ptr<DRMXMixerNodeBase>> GetMixerNodes(const DRMX_Settings::DRMXMixerType& type);
    // The node whose input has the selector's inputId.
    DRAVResult GetMixerNode(const DRMX_Settings::DRMXMixerType& type,
                            const DRMX_Settings::DRMXInputSelector& selector,
                            std::shared_ptr<DRMXMixerNodeBase>* out);
    DRMX_Settings::DRMXMixerType GetMonitorMixerType() const;
    void SetMonitorMixerType(const DRMX_Settings::DRMXMixerType& type);
    bool GetLevelMeteringEnabled() const;
    DRAVResult SetLevelMeteringEnabled(bool enabled);

    // Facts for the host and for tests.
    bool IsSystemAwake() const { return systemAwake_.load(); }
    int64_t GetAudioBufferFrameCount() const;
    int64_t GetAudioBufferMSecInput() const;
    int64_t GetAudioBufferMSecOutput() const;

protected:
    DRMXManager();

private:
    struct Impl;

    using MixerMap = std::map<DRMX_Settings::DRMXMixerType, std::shared_ptr<DRMXMixerBase>>;

    void HandleDeviceChange(const DRAVPropertyKVPair& pair);
    void HandlePowerChange(const DRAVPropertyKVPair& pair);
    void StopMixingLocked();
    DRAVResult SetupMicrophoneInterface(const std::shared_ptr<DRMXMicrophoneInterface>& microphone,
                                        const DRMX_Settings::DRMXInputSelector& selector);
    void RunLevelMeteringPass();
    void ScheduleLevelMeteringLoop();
    std::shared_ptr<DRMXDeviceObserverBase> FindDeviceObserver(DRMXDeviceNotification notification) const;

    // Guards settings_ and settingsPath_: the application, the power handler
    // and Deinit may reach them from different threads.
    mutable CDplThreadMutex settingsLock_;
    DRMX_Settings::DRMXSettings settings_;
    std::atomic<bool> noSettingsFileAvailable_{true};
    std::string settingsPath_;
    mutable CDplThreadMutex mixerLock_;
    MixerMap mixers_;
    std::atomic<bool> mixing_{false};
    mutable CDplThreadMutex microphoneLock_;
    std::shared_ptr<DRMXMicrophoneInterface> mainMicrophone_;
    DRMX_Settings::DRMXInputSelector mainMicrophoneSelector_;
    std::vector<std::shared_ptr<DRMXDeviceObserverBase>> deviceObservers_;
    std::shared_ptr<KVObserverDelegate> deviceDelegate_;
    std::shared_ptr<DRMXPowerStateObserverBase> powerObserver_;
    std::shared_ptr<KVObserverDelegate> powerDelegate_;
    std::atomic<bool> systemAwake_{true};
    std::unique_ptr<Impl> impl_;
};
