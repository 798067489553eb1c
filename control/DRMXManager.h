#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "control/DRMXFirmwareUpdateInterface.h"
#include "control/DRMXInputInterface.h"
#include "control/DRMXMixerBase.h"
#include "control/DRMXOutputInterface.h"
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

    // Makes an input for a selector (the microphone's among them), with the
    // manager's block size and input buffer.
    DRAVResult CreateInput(const DRMX_Settings::DRMXInputSelector& selector,
                           std::shared_ptr<DRMXInputInterface>* out);
    // Makes an output, with the manager's block size and output buffer.
    DRAVResult CreateOutput(const DRMX_Settings::DRMXOutputSelector& selector,
                            std::shared_ptr<DRMXOutputInterface>* out);
    // The same without the buffer sizes.
    static DRAVResult CreateInputStatic(const DRMX_Settings::DRMXInputSelector& selector,
                                        std::shared_ptr<DRMXInputInterface>* out);
    static DRAVResult CreateOutputStatic(const DRMX_Settings::DRMXOutputSelector& selector,
                                         std::shared_ptr<DRMXOutputInterface>* out);

    // Mix reconfiguration. A change of selectors moves inputs and outputs to
    // other devices while the mixes run; a change of the layout stops and
    // empties both mixes, lets `change` fill them, makes the nodes and starts.
    enum ReconfigurationIntent : int32_t
    {
        kReconfigureLayout = 0,
        kReconfigureSelectors = 1,
        kReconfigureDevices = 2,
    };
    // ErrNotInitialized (change not called) while asleep or without a
    // microphone.
    DRAVResult ConfigureMixer(ReconfigurationIntent intent, const std::function<void()>& change);
    // One input in every mix; refused while mixing.
    DRAVResult AddInput(const DRMX_Settings::DRMXInputSelector& selector);
    DRAVResult AddInputToMixer(const DRMX_Settings::DRMXMixerType& type,
                               const DRMX_Settings::DRMXInputSelector& selector);
    // Points the input at index to another device; -17 past the end.
    DRAVResult SetInputOnMixer(const DRMX_Settings::DRMXMixerType& type,
                               const DRMX_Settings::DRMXInputSelector& selector, unsigned index);
    // The local output is also the stream mix's monitoring output.
    DRAVResult SetOutputOnMixer(const DRMX_Settings::DRMXMixerType& type,
                                const DRMX_Settings::DRMXOutputSelector& selector);
    DRAVResult GetOutputForMixer(const DRMX_Settings::DRMXMixerType& type, std::shared_ptr<DRAVUnit>* out);
    // Stops the input in both mixes; erase also takes it out.
    DRAVResult StopMixingOnInput(const DRMX_Settings::DRMXInputSelector& selector, bool erase);
    // The input with an equal selector, the stream mix's when both have one.
    DRAVResult FindInput(const DRMX_Settings::DRMXInputSelector& selector,
                         std::shared_ptr<DRMXInputInterface>* out);
    // The layout as the live objects have it, appended to configuration.
    DRAVResult GetMixerConfiguration(DRMX_Settings::DRMXMixerConfiguration& configuration);
    DRAVResult SetAudioBufferFrameCountOnAllMixers(int frames);

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
    DRAVResult ConfigureMixerSelectorChange(const std::function<void()>& change);
    DRAVResult ConfigureMixerLayout(const std::function<void()>& change);
    DRAVResult AddInputToMixerLocked(const DRMX_Settings::DRMXMixerType& type,
                                     const DRMX_Settings::DRMXInputSelector& selector);
    DRAVResult SetOutputOnMixerLocked(const DRMX_Settings::DRMXMixerType& type,
                                      const DRMX_Settings::DRMXOutputSelector& selector, bool monitoring);
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
