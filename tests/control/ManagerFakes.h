#pragma once

// Stand-ins for the manager's collaborators: mixes, inputs, outputs, a
// microphone and observers that record what is done to them.

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "control/DRMXAudioUnitInterface.h"
#include "control/DRMXInputInterface.h"
#include "control/DRMXMixerBase.h"
#include "control/DRMXOutputBase.h"
#include "microphones/DRMXMicrophoneInterface.h"
#include "observers/DRMXDeviceObserverBase.h"
#include "observers/DRMXPowerStateObserverBase.h"

namespace tidemix::test
{

// The order in which units were started and stopped, by name.
class EventLog
{
public:
    void Add(const std::string& event)
    {
        std::lock_guard lock(mutex_);
        events_.push_back(event);
    }
    std::vector<std::string> Events() const
    {
        std::lock_guard lock(mutex_);
        return events_;
    }
    size_t Count(const std::string& event) const
    {
        std::lock_guard lock(mutex_);
        size_t count = 0;
        for (const auto& e : events_)
        {
            count += e == event ? 1 : 0;
        }
        return count;
    }
    void Clear()
    {
        std::lock_guard lock(mutex_);
        events_.clear();
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> events_;
};

class FakeInput : public DRMXInputInterface, public DRMXAudioUnitInterface
{
public:
    FakeInput(std::string name, EventLog& log, bool startSucceeds = true)
        : name_(std::move(name)), log_(log), startSucceeds_(startSucceeds)
    {
        selector_.SetHardwareId(name_);
    }
    DRMX_Settings::DRMXInputSelector GetSelector() const override
    {
        std::lock_guard lock(mutex_);
        return selector_;
    }
    void SetSelector(const DRMX_Settings::DRMXInputSelector& selector) override
    {
        std::lock_guard lock(mutex_);
        selector_ = selector;
    }
    void UpdateMixerNodeId(int) override {}
    std::shared_ptr<DRAVSource> GetSource() const override { return nullptr; }
    DRAVResult AudioUnitStart(const DRAVTimestamp&) override
    {
        log_.Add("start " + name_);
        started.store(startSucceeds_);
        return DRAVResult(startSucceeds_ ? kDRAVResultOk : kDRAVResultErrNotFound);
    }
    void AudioUnitStop() override
    {
        log_.Add("stop " + name_);
        started.store(false);
    }

private:
    mutable std::mutex mutex_;
    std::string name_;
    EventLog& log_;
    bool startSucceeds_;
    DRMX_Settings::DRMXInputSelector selector_;
};

class FakeOutput : public DRMXOutputBase
{
public:
    FakeOutput(const std::string& name, EventLog& log) : DRMXOutputBase(name), log_(log) {}
    DRAVResult AudioUnitStart(const DRAVTimestamp&) override
    {
        log_.Add("start " + GetFriendlyName());
        started.store(true);
        return DRAVResult(kDRAVResultOk);
    }
    void AudioUnitStop() override
    {
        log_.Add("stop " + GetFriendlyName());
        started.store(false);
    }

private:
    EventLog& log_;
};

// A mix whose start succeeds and whose meters read fixed powers.
class FakeMixer : public DRMXMixerBase
{
public:
    FakeMixer(const std::string& name, DRMX_Settings::DRMXMixerType type, EventLog& log)
        : DRMXMixerBase(name, nullptr, type), log_(log)
    {
    }
    DRAVResult AudioUnitStart(const DRAVTimestamp&) override
    {
        log_.Add("start " + GetFriendlyName());
        started.store(true);
        return DRAVResult(kDRAVResultOk);
    }
    void AudioUnitStop() override
    {
        log_.Add("stop " + GetFriendlyName());
        started.store(false);
    }
    double GetMixerNodeVULevel(std::shared_ptr<DRMXMixerNodeBase>, int channel) override
    {
        ++levelReads;
        return channel == 0 ? -25.0 : -10.0;
    }
    double GetMixerOutputVULevel(int channel) override
    {
        ++levelReads;
        return channel == 0 ? 0.0 : -50.0;
    }

    std::atomic<int> levelReads{0};

private:
    EventLog& log_;
};

// The main microphone: an input that is also a microphone interface.
class FakeMicrophone : public FakeInput, public DRMXMicrophoneInterface
{
public:
    explicit FakeMicrophone(EventLog& log) : FakeInput("microphone", log) {}

    DRAVResult Init() override
    {
        ++inits;
        return DRAVResult(kDRAVResultOk);
    }
    DRAVResult Deinit() override { return DRAVResult(kDRAVResultOk); }
    DRMXMicrophoneType GetMicrophoneType() override { return type; }
    DRAVResult SetMicrophoneType(DRMXMicrophoneType t) override
    {
        type = t;
        return DRAVResult(kDRAVResultOk);
    }
    bool IsMicrophoneConnected() override { return true; }
    DRAVResult ReadMicrophoneConfiguration(int& bytesRead) override
    {
        bytesRead = 16;
        return DRAVResult(kDRAVResultOk);
    }
    DRAVResult WriteMicrophoneConfiguration() override { return DRAVResult(kDRAVResultOk); }
    double GetMicrophoneGain() override { return 0.5; }
    DRAVResult SetMicrophoneGain(double) override { return DRAVResult(kDRAVResultOk); }
    bool GetMicrophoneMute() override { return false; }
    DRAVResult SetMicrophoneMute(bool) override { return DRAVResult(kDRAVResultOk); }
    double GetMicrophoneOutputVolume() override { return 0.5; }
    DRAVResult SetMicrophoneOutputVolume(double) override { return DRAVResult(kDRAVResultOk); }
    bool GetMicrophoneOutputMute() override { return false; }
    DRAVResult SetMicrophoneOutputMute(bool) override { return DRAVResult(kDRAVResultOk); }
    double GetMicrophoneDirectMonitorVolume() override { return 0.0; }
    DRAVResult SetMicrophoneDirectMonitorVolume(double) override { return DRAVResult(kDRAVResultOk); }
    bool GetMicrophoneClipGuard() override { return false; }
    DRAVResult SetMicrophoneClipGuard(bool) override { return DRAVResult(kDRAVResultOk); }
    bool GetMicrophoneLowCut() override { return false; }
    DRAVResult SetMicrophoneLowCut(bool) override { return DRAVResult(kDRAVResultOk); }
    bool HasMicrophonePolarization() override { return false; }
    double GetMicrophonePolarization() override { return 0.0; }
    DRAVResult SetMicrophonePolarization(double) override { return DRAVResult(kDRAVResultOk); }
    bool GetMicrophoneAllLEDOff() override { return ledsOff.load(); }
    DRAVResult SetMicrophoneAllLEDOff(bool off) override
    {
        ledsOff.store(off);
        return DRAVResult(kDRAVResultOk);
    }
    bool HasMicrophoneGainLock() override { return false; }
    bool GetMicrophoneGainLock() override { return false; }
    DRAVResult SetMicrophoneGainLock(bool) override { return DRAVResult(kDRAVResultOk); }
    bool HasMicrophoneLEDFlip() override { return false; }
    bool GetMicrophoneLEDFlip() override { return false; }
    DRAVResult SetMicrophoneLEDFlip(bool) override { return DRAVResult(kDRAVResultOk); }
    std::string GetHardwareId() const override { return hardwareId; }
    void SetHardwareId(const std::string& id) override { hardwareId = id; }
    std::string GetSerialNumber() const override { return {}; }
    int64_t GetFirmwareVersion() const override { return 0; }
    bool HasMicrophoneVolumeSelect() override { return false; }
    int64_t GetMicrophoneVolumeSelect() override { return 0; }
    DRAVResult SetMicrophoneVolumeSelect(int64_t) override { return DRAVResult(kDRAVResultOk); }

    std::atomic<int> inits{0};
    std::atomic<bool> ledsOff{false};
    DRMXMicrophoneType type = kMicrophoneTypeUnknown;
    std::string hardwareId;
};

class FakeDeviceObserver : public DRMXDeviceObserverBase
{
public:
    FakeDeviceObserver() : DRMXDeviceObserverBase("Fake device observer") {}
    DRAVResult Init() override { return DRAVResult(kDRAVResultOk); }
    DRAVResult Deinit() override { return DRAVResult(kDRAVResultOk); }
    bool IsInitialized() override { return true; }
};

class FakePowerObserver : public DRMXPowerStateObserverBase
{
public:
    FakePowerObserver() : DRMXPowerStateObserverBase("Fake power observer") {}
    DRAVResult Init() override { return DRAVResult(kDRAVResultOk); }
    DRAVResult Deinit() override { return DRAVResult(kDRAVResultOk); }
    bool IsInitialized() override { return true; }
};

}  // namespace tidemix::test
