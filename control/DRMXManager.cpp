// The manager's life cycle and mixing: Init and Deinit, loading the settings,
// starting and stopping the mixes, monitoring, levels and power changes. The
// settings façade lives in DRMXManagerSettings.cpp, devices and microphone
// facts in DRMXManagerDevices.cpp.
#include "control/DRMXManager.h"

#include <condition_variable>
#include <filesystem>
#include <mutex>

#include "control/DRMXManagerLocks.h"
#include "control/DRMXOutputBase.h"
#include "control/DRMXPlatformHooks.h"
#include "control/DRMXProcessActivity.h"
#include "engine/DRAVManager.h"
#include "engine/sinks/DRAVSinkMakers.h"
#include "observers/appaudio/DRMXDeviceObserverAppAudio.h"
#include "portable-core/DRAVLog.h"
#include "portable-core/DRAVPropertyNames.h"
#include "portable-core/DplDispatchQueue.h"

using namespace DRMX_Settings;

namespace
{
constexpr int64_t kLevelMeteringIntervalMicroseconds = 33333;  // about 30 passes a second

DRMXAudioUnitInterface* AudioUnitOf(const std::shared_ptr<DRMXOutputInterface>& output)
{
    return dynamic_cast<DRMXAudioUnitInterface*>(output.get());
}

// An output that is no audio unit can't be started: a state error, not a crash.
DRAVResult StartOutput(const std::shared_ptr<DRMXOutputInterface>& output, const DRAVTimestamp& ts)
{
    DRMXAudioUnitInterface* unit = AudioUnitOf(output);
    if (unit == nullptr)
    {
        DRAVResult result(kDRAVResultErrInvalidState);
        result.LogError("output is no audio unit");
        return result;
    }
    return unit->AudioUnitStart(ts);
}
}  // namespace

struct DRMXManager::Impl
{
    DplDispatchQueue levelQueue{"levels", 1};
    std::atomic<bool> levelMeteringEnabled{false};
    // True while a metering loop is queued or running, so that enabling twice
    // never runs two loops.
    std::atomic<bool> levelLoopScheduled{false};
    std::mutex levelWakeMutex;
    std::condition_variable levelWake;
    std::atomic<DRMXMixerType> monitorMixerType{kMixerLocal};
    DRMXProcessActivity processActivity;
    std::atomic<int64_t> audioBufferFrameCount{960};
    std::atomic<int64_t> audioBufferMSecInput{20};
    std::atomic<int64_t> audioBufferMSecOutput{20};
};

DRMXManager* DRMXManager::GetDRMXManager()
{
    // Made on first use, thread-safe, never destroyed: observers and queues
    // may still call into it while the process ends.
    static DRMXManager* manager = new DRMXManager();
    return manager;
}

DRMXManager::DRMXManager() : impl_(std::make_unique<Impl>())
{
    // The defaults of the settings come from the devices this manager sees.
    DRMXSettings::DeviceQueries queries;
    queries.availableOutputs = [this](DRMXOutputType type, const std::string& name)
    { return GetAvailableOutputs(type, name); };
    queries.availableInputs = [this](DRMXInputType type) { return GetAvailableInputs(type); };
    queries.defaultAppAudioInputs = [] { return DRMXDeviceObserverAppAudio::GetDefaultAppAudioInputs(); };
    settings_.SetDeviceQueries(std::move(queries));

    // Made once and never replaced: observers hold them by raw pointer.
    deviceDelegate_ = std::make_shared<KVObserverDelegate>(
        [this](void*, const std::string&, DRAVPropertyKVPair pair, KVCProperty*)
        { HandleDeviceChange(pair); },
        nullptr);
    powerDelegate_ = std::make_shared<KVObserverDelegate>(
        [this](void*, const std::string&, DRAVPropertyKVPair pair, KVCProperty*) { HandlePowerChange(pair); },
        nullptr);
}

DRMXManager::~DRMXManager() = default;

DRAVResult DRMXManager::Init(const std::string& /*logFile: nothing here opens it*/)
{
    DRAVResult result(kDRAVResultOk);

    DRAVSetProductNames(PRODUCT_NAME_SHORT, PRODUCT_NAME_LONG, PRODUCT_NAME_COMPACT);

    // The engine makes its sinks (the outputs' renderers) through makers that
    // live above it; they are installed once, before the first output starts.
    static std::once_flag sinkMakersInstalled;
    std::call_once(sinkMakersInstalled, DRAVInstallSinkMakers);

    DRAVManager* engine = DRAVManager::GetDRAVManager();
    if (!engine->IsInitialized())
    {
        result = engine->Init();
    }
    DRAVEngineSettings engineSettings = engine->GetEngineSettings();
    engineSettings.autoDefaultAudioSelection = false;
    engine->SetEngineSettings(engineSettings, false, false);
    engine->LoadEngineSettings(DRAVGetAppDataDirectory(true));

    if (result.Succeeded())
    {
        std::vector<std::shared_ptr<DRMXDeviceObserverBase>> observers =
            RegisterDeviceObserversPlatformSpecific();
        {
            CDplScopedLock lock(microphoneLock_);
            deviceObservers_ = observers;
        }

        const DRAVResult loaded = LoadSettings();
        loaded.Log("LoadSettings");

        for (const auto& observer : observers)
        {
            if (observer && (observer->GetNotification() == kDeviceNotificationAny ||
                             observer->GetNotification() == kDeviceNotificationCoreAudio))
            {
                observer->AttachObserver(deviceDelegate_.get());
            }
        }

        std::shared_ptr<DRMXPowerStateObserverBase> power = RegisterPowerStateObserverPlatformSpecific();
        if (power)
        {
            power->AttachObserver(powerDelegate_.get());
        }
        powerObserver_ = power;

        CDplScopedLock lock(mixerLock_);
        mixers_[kMixerLocal] = CreateMixerPlatformSpecific("Local Mixer", kMixerLocal);
        mixers_[kMixerStream] = CreateMixerPlatformSpecific("Remote Mixer", kMixerStream);
        // The mixes render the blocks every input and output is made for.
        for (const auto& [type, mixer] : mixers_)
        {
            if (mixer)
            {
                mixer->SetIntProperty(kPropertyAudioBufferSizeFrameCount,
                                      impl_->audioBufferFrameCount.load());
            }
        }
    }

    impl_->monitorMixerType.store(kMixerLocal);
    {
        CDplScopedLock lock(settingsLock_);
        impl_->audioBufferMSecInput.store(settings_.mixerConfiguration.audioBufferSizeInputMSec);
        impl_->audioBufferMSecOutput.store(settings_.mixerConfiguration.audioBufferSizeOutputMSec);
    }
    return result;
}

void DRMXManager::Deinit()
{
    std::vector<std::shared_ptr<DRMXDeviceObserverBase>> observers;
    std::shared_ptr<DRMXPowerStateObserverBase> power;
    {
        MixerThenMicrophoneLock lock(mixerLock_, microphoneLock_);
        StopMixing();
        DRAVResult saved;
        {
            CDplScopedLock settingsLock(settingsLock_);
            saved = settings_.SaveSettings(settingsPath_);
        }
        saved.LogError("Couldn't save mixer configuarion");
        observers.swap(deviceObservers_);
        power = powerObserver_;
    }
    // Observers call the manager while their list is locked, and the handlers
    // take the manager's locks: detach with none of those held, or a change
    // arriving now would wait for us while we wait for its list.
    for (const auto& observer : observers)
    {
        if (observer)
        {
            observer->DetachObserver(deviceDelegate_.get());
            observer->Deinit();
        }
    }
    if (power)
    {
        power->DetachObserver(powerDelegate_.get());
        power->Deinit();
    }
}

namespace
{
// The next save replaces a file that could not be used with the defaults. A
// copy beside it keeps what the user had (a newer version's layout, a file
// damaged by hand) from being lost without a trace.
void KeepUnusableSettingsFile(const std::string& path)
{
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error))
    {
        return;
    }
    const std::string copy = path + ".unusable";
    std::filesystem::copy_file(path, copy, std::filesystem::copy_options::overwrite_existing, error);
    DRAVResult(error ? kDRAVResultErrCouldNotOpenFile : kDRAVResultOk)
        .Log(error ? "Settings file unusable, no copy kept"
                   : "Settings file unusable, a copy is kept beside it");
}
}  // namespace

DRAVResult DRMXManager::LoadSettings()
{
    // Lock order: mixer, microphone, settings. The defaults and the microphone's
    // values reach the microphone while the settings are held.
    MixerThenMicrophoneLock outer(mixerLock_, microphoneLock_);
    CDplScopedLock lock(settingsLock_);
    DRAVResult result(kDRAVResultErrUnknown);

    const std::string folder = DRMXGetAppDataDirectory(true);
    settingsPath_ = folder;
    if (folder.empty())
    {
        return DRAVResult(kDRAVResultErrCouldNotOpenFile,
                          "no settings folder: no configuration home is known");
    }
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error))
    {
        return DRAVResult(kDRAVResultErrCouldNotOpenFile);
    }
    settingsPath_ = (std::filesystem::path(folder) / SETTINGS_JSON_FILENAME).string();

    // A load appends to the mixer lists: a second Init must start from empty ones.
    settings_.ResetSettings();
    result = settings_.LoadSettings(settingsPath_);
    if (result != kDRAVResultErrCouldNotOpenFile)
    {
        noSettingsFileAvailable_.store(false);
    }
    if (!result.Succeeded())
    {
        KeepUnusableSettingsFile(settingsPath_);
        settings_.ResetSettings();
        result = settings_.LoadDefaultSettings();
        UpdateMicSettingsByOS(settings_);
    }
    if (result.Succeeded())
    {
        result = settings_.Validate();
    }
    return result;
}

DRAVResult DRMXManager::ResetSettings()
{
    StopMixing();
    DRAVResult result;
    {
        MixerThenMicrophoneLock outer(mixerLock_, microphoneLock_);
        CDplScopedLock lock(settingsLock_);
        settings_.ResetSettings();
        result = settings_.LoadDefaultSettings();
        UpdateMicSettingsByOS(settings_);
        if (result.Succeeded())
        {
            result = settings_.Validate();
        }
    }
    if (result.Succeeded())
    {
        StartMixing();
    }
    return result;
}

DRAVResult DRMXManager::StartMixing()
{
    if (mixing_.load())
    {
        return DRAVResult(kDRAVResultOk);
    }

    CDplScopedLock lock(mixerLock_);
    if (mixing_.load())
    {
        return DRAVResult(kDRAVResultOk);  // another thread won the race for the lock
    }
    const DRAVTimestamp ts = DRAVGetHostTime();
    DRAVResult result(kDRAVResultOk);

    const auto local = mixers_.find(kMixerLocal);
    const auto stream = mixers_.find(kMixerStream);
    if (local == mixers_.end() || stream == mixers_.end() || !local->second || !stream->second)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    const std::shared_ptr<DRMXMixerBase> localMixer = local->second;
    const std::shared_ptr<DRMXMixerBase> streamMixer = stream->second;

    const std::vector<std::shared_ptr<DRMXInputInterface>> localInputs = localMixer->GetInputs();
    const std::vector<std::shared_ptr<DRMXInputInterface>> streamInputs = streamMixer->GetInputs();
    if (localInputs.empty())
    {
        result = kDRAVResultErrInvalidState;
        result.LogError("local mixer has no inputs");
    }
    if (streamInputs.empty())
    {
        result = kDRAVResultErrInvalidState;
        result.LogError("stream mixer has no inputs");
    }

    const std::shared_ptr<DRMXOutputInterface> localOutput = localMixer->GetOutput();
    const std::shared_ptr<DRMXOutputInterface> streamOutput = streamMixer->GetOutput();
    if (result.Succeeded() && !localOutput)
    {
        result = kDRAVResultErrInvalidState;
        result.LogError("local mixer has no output");
    }
    if (result.Succeeded() && !streamOutput)
    {
        result = kDRAVResultErrInvalidState;
        result.LogError("stream mixer has no output");
    }

    if (result.Succeeded())
    {
        std::vector<std::shared_ptr<DRMXInputInterface>> inputs = localInputs;
        inputs.insert(inputs.end(), streamInputs.begin(), streamInputs.end());
        for (const auto& input : inputs)
        {
            auto* unit = dynamic_cast<DRMXAudioUnitInterface*>(input.get());
            if (unit == nullptr)
            {
                result = kDRAVResultErrInvalidState;
                result.LogError("input is no audio unit");
                continue;
            }
            // One input that doesn't start doesn't stop the mix: it stays a silent channel.
            result = unit->AudioUnitStart(ts);
            if (!result.Succeeded())
            {
                result.LogError("input start fail");
                result = kDRAVResultOk;
            }
        }
    }

    const DRMXMixerType monitor = impl_->monitorMixerType.load();
    if (result.Succeeded())
    {
        result = StartOutput(localOutput, ts);
        localOutput->SetEngineMute(monitor == kMixerStream);
    }
    if (result.Succeeded())
    {
        result = StartOutput(streamOutput, ts);
        if (const std::shared_ptr<DRMXOutputInterface> monitoring = streamMixer->GetMonitoringOutput())
        {
            result = StartOutput(monitoring, ts);
            monitoring->SetOutputLevel(streamOutput->GetOutputLevel());
            monitoring->SetEngineMute(monitor == kMixerLocal);
        }
    }
    if (result.Succeeded())
    {
        result = localMixer->AudioUnitStart(ts);
    }
    if (result.Succeeded())
    {
        std::shared_ptr<DRMXMicrophoneInterface> microphone;
        result = GetMicrophoneInterface(DRMXInputSelector(), &microphone);
        if (result.Succeeded())
        {
            if (auto* unit = dynamic_cast<DRMXAudioUnitInterface*>(microphone.get()))
            {
                unit->AudioUnitStart(ts);
            }
        }
    }
    if (result.Succeeded())
    {
        result = streamMixer->AudioUnitStart(ts);
    }

    for (const auto& [type, mixer] : mixers_)
    {
        if (mixer)
        {
            mixer->EnableStreamMonitor(monitor == kMixerStream);
        }
    }

    if (result.Succeeded())
    {
        mixing_.store(true);
        SetLevelMeteringEnabled(true);
        impl_->processActivity.Begin();
    }
    else
    {
        // Take down whatever this attempt started.
        impl_->levelMeteringEnabled.store(false);
        impl_->levelWake.notify_all();
        impl_->processActivity.End();
        StopMixingLocked();
    }
    return result;
}

void DRMXManager::StopMixing()
{
    if (!mixing_.load())
    {
        return;
    }
    impl_->levelMeteringEnabled.store(false);
    impl_->levelWake.notify_all();
    impl_->processActivity.End();

    CDplScopedLock lock(mixerLock_);
    if (!mixing_.load())
    {
        return;
    }
    if (mixers_.count(kMixerLocal) == 0 || mixers_.count(kMixerStream) == 0)
    {
        return;  // mixing stays set: nothing here can be stopped
    }
    StopMixingLocked();
    mixing_.store(false);
}

// Stops outputs, then mixes, then inputs. The caller holds the mixer lock.
void DRMXManager::StopMixingLocked()
{
    const auto local = mixers_.find(kMixerLocal);
    const auto stream = mixers_.find(kMixerStream);
    if (local == mixers_.end() || stream == mixers_.end() || !local->second || !stream->second)
    {
        return;
    }
    const std::shared_ptr<DRMXMixerBase>& localMixer = local->second;
    const std::shared_ptr<DRMXMixerBase>& streamMixer = stream->second;

    for (const std::shared_ptr<DRMXOutputInterface>& output :
         {localMixer->GetOutput(), streamMixer->GetOutput(), streamMixer->GetMonitoringOutput()})
    {
        if (DRMXAudioUnitInterface* unit = AudioUnitOf(output))
        {
            unit->AudioUnitStop();
        }
    }
    localMixer->AudioUnitStop();
    streamMixer->AudioUnitStop();
    for (const auto& mixer : {localMixer, streamMixer})
    {
        for (const auto& input : mixer->GetInputs())
        {
            if (auto* unit = dynamic_cast<DRMXAudioUnitInterface*>(input.get()))
            {
                unit->AudioUnitStop();
            }
        }
    }
}

// Monitoring and levels.

std::shared_ptr<DRMXMixerBase> DRMXManager::GetMixerForType(const DRMXMixerType& type) const
{
    // The map is replaced by Init on another thread: a look-up under the lock.
    CDplScopedLock lock(mixerLock_);
    const auto found = mixers_.find(type);
    return found == mixers_.end() ? nullptr : found->second;
}

DRAVResult DRMXManager::SetAudioBufferFrameCountOnAllMixers(int frames)
{
    impl_->audioBufferFrameCount.store(frames);
    // Each mix hands it on to its unit, outputs and inputs, also while running.
    for (const auto type : {kMixerLocal, kMixerStream})
    {
        const std::shared_ptr<DRMXMixerBase> mixer = GetMixerForType(type);
        if (!mixer)
        {
            return DRAVResult(kDRAVResultErrNullPointer);
        }
        mixer->SetIntProperty(kPropertyAudioBufferSizeFrameCount, frames);
    }
    return DRAVResult(kDRAVResultOk);
}

std::vector<std::shared_ptr<DRMXMixerNodeBase>> DRMXManager::GetMixerNodes(const DRMXMixerType& type)
{
    const std::shared_ptr<DRMXMixerBase> mixer = GetMixerForType(type);
    return mixer ? mixer->GetMixerNodes() : std::vector<std::shared_ptr<DRMXMixerNodeBase>>();
}

DRAVResult DRMXManager::GetMixerNode(const DRMXMixerType& type, const DRMXInputSelector& selector,
                                     std::shared_ptr<DRMXMixerNodeBase>* out)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    for (const auto& node : GetMixerNodes(type))
    {
        if (node && node->GetInputSelector().GetInputID() == selector.GetInputID())
        {
            *out = node;
            return DRAVResult(kDRAVResultOk);
        }
    }
    return DRAVResult(kDRAVResultErrNotFound);
}

DRMXMixerType DRMXManager::GetMonitorMixerType() const
{
    return impl_->monitorMixerType.load();
}

void DRMXManager::SetMonitorMixerType(const DRMXMixerType& type)
{
    impl_->monitorMixerType.store(type);
    CDplScopedLock lock(mixerLock_);
    for (const auto& [mixerType, mixer] : mixers_)
    {
        if (mixer)
        {
            mixer->EnableStreamMonitor(type == kMixerStream);
        }
    }
}

bool DRMXManager::GetLevelMeteringEnabled() const
{
    return impl_->levelMeteringEnabled.load();
}

DRAVResult DRMXManager::SetLevelMeteringEnabled(bool enabled)
{
    if (!mixing_.load())
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    impl_->levelMeteringEnabled.store(enabled);
    if (enabled)
    {
        ScheduleLevelMeteringLoop();
    }
    else
    {
        impl_->levelWake.notify_all();
    }
    return DRAVResult(kDRAVResultOk);
}

void DRMXManager::ScheduleLevelMeteringLoop()
{
    bool expected = false;
    if (!impl_->levelLoopScheduled.compare_exchange_strong(expected, true))
    {
        return;  // a loop is queued or running and will see the flag
    }
    impl_->levelQueue.dispatch(
        [this]
        {
            for (;;)
            {
                while (impl_->levelMeteringEnabled.load())
                {
                    RunLevelMeteringPass();
                    std::unique_lock wait(impl_->levelWakeMutex);
                    impl_->levelWake.wait_for(wait,
                                              std::chrono::microseconds(kLevelMeteringIntervalMicroseconds),
                                              [this] { return !impl_->levelMeteringEnabled.load(); });
                }
                impl_->levelLoopScheduled.store(false);
                // Enabled again between the last test and the store: keep the loop,
                // unless another dispatch has taken it over.
                bool expected = false;
                if (!impl_->levelMeteringEnabled.load() ||
                    !impl_->levelLoopScheduled.compare_exchange_strong(expected, true))
                {
                    return;
                }
            }
        });
}

void DRMXManager::RunLevelMeteringPass()
{
    CDplScopedLock lock(mixerLock_);
    for (const DRMXMixerType type : {kMixerLocal, kMixerStream})
    {
        const auto found = mixers_.find(type);
        if (found == mixers_.end() || !found->second)
        {
            continue;
        }
        const std::shared_ptr<DRMXMixerBase>& mixer = found->second;
        mixer->EnumerateMixerNodes(
            [&mixer](const std::shared_ptr<DRMXMixerNodeBase>& node, bool*)
            {
                if (!node)
                {
                    return;
                }
                for (int channel = 0; channel < 2; ++channel)
                {
                    node->SetVULevel(mixer->GetMixerNodeVULevel(node, channel), channel);
                }
            });
        if (auto output = std::dynamic_pointer_cast<DRMXOutputBase>(mixer->GetOutput()))
        {
            for (int channel = 0; channel < 2; ++channel)
            {
                output->SetVULevel(mixer->GetMixerOutputVULevel(channel), channel);
            }
        }
    }
}

int64_t DRMXManager::GetAudioBufferFrameCount() const
{
    return impl_->audioBufferFrameCount.load();
}

int64_t DRMXManager::GetAudioBufferMSecInput() const
{
    return impl_->audioBufferMSecInput.load();
}

int64_t DRMXManager::GetAudioBufferMSecOutput() const
{
    return impl_->audioBufferMSecOutput.load();
}

void DRMXManager::HandlePowerChange(const DRAVPropertyKVPair& pair)
{
    std::shared_ptr<DRMXMicrophoneInterface> microphone;
    {
        CDplScopedLock lock(microphoneLock_);
        microphone = mainMicrophone_;
    }
    if (!microphone)
    {
        return;
    }
    const int64_t state = pair.GetInt();
    if (state >= 1 && state <= 3)
    {
        systemAwake_.store(false);
        StopMixing();
        microphone->SetMicrophoneAllLEDOff(true);
    }
    else
    {
        StartMixing();
        systemAwake_.store(true);
        microphone->SetMicrophoneAllLEDOff(false);
    }
}
