#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "control/DRMXInputBase.h"
#include "microphones/DRMXMicrophoneInterface.h"
#include "settings/DRMXMicrophoneSettings.h"

// The main microphone as an input with the hardware's controls. It never
// holds the device: each operation looks up the control object of its
// hardware id, so an unplugged microphone fails softly (getters give zero,
// setters do nothing) and one plugged in again works at once.
class DRMXMicrophoneBase : public DRMXInputBase, public DRMXMicrophoneInterface
{
public:
    // Firmware from which the gain lock and the LED flip exist.
    static constexpr int64_t kFirmwareWithLocks = 0x110;

    DRMXMicrophoneBase(const std::string& name, DRMXMicrophoneType type, KVCMap* properties = nullptr);
    ~DRMXMicrophoneBase() override;

    static KVCMap* GetMyObjectProperties();

    // The control object of the hardware id; empty while the device is away.
    std::weak_ptr<DRMXMicrophoneInterface> GetMicrophoneHelper() const;

    DRAVResult Init() override;
    DRAVResult Deinit() override;
    DRMXMicrophoneType GetMicrophoneType() override;
    DRAVResult SetMicrophoneType(DRMXMicrophoneType type) override;
    bool IsMicrophoneConnected() override;
    DRAVResult ReadMicrophoneConfiguration(int& bytesRead) override;
    DRAVResult WriteMicrophoneConfiguration() override;
    // Reads the block, applies the settings (gain and output volume only with
    // applyLevels and a known type) and writes it once.
    virtual DRAVResult UpdateConfigurationBySettings(const DRMX_Settings::DRMXMicrophoneSettings& settings,
                                                     bool applyLevels);

    double GetMicrophoneGain() override;
    DRAVResult SetMicrophoneGain(double gain) override;
    bool GetMicrophoneMute() override;
    DRAVResult SetMicrophoneMute(bool mute) override;
    double GetMicrophoneOutputVolume() override;
    DRAVResult SetMicrophoneOutputVolume(double volume) override;
    bool GetMicrophoneOutputMute() override;
    // The hardware keeps its output mute: nothing is written.
    DRAVResult SetMicrophoneOutputMute(bool mute) override;
    double GetMicrophoneDirectMonitorVolume() override;
    DRAVResult SetMicrophoneDirectMonitorVolume(double volume) override;
    bool GetMicrophoneClipGuard() override;
    DRAVResult SetMicrophoneClipGuard(bool on) override;
    bool GetMicrophoneLowCut() override;
    DRAVResult SetMicrophoneLowCut(bool on) override;
    bool HasMicrophonePolarization() override;
    double GetMicrophonePolarization() override;
    DRAVResult SetMicrophonePolarization(double polarization) override;
    bool HasMicrophoneVolumeSelect() override;
    int64_t GetMicrophoneVolumeSelect() override;
    DRAVResult SetMicrophoneVolumeSelect(int64_t select) override;
    bool GetMicrophoneAllLEDOff() override;
    DRAVResult SetMicrophoneAllLEDOff(bool off) override;
    bool HasMicrophoneGainLock() override;
    bool GetMicrophoneGainLock() override;
    DRAVResult SetMicrophoneGainLock(bool locked) override;
    bool HasMicrophoneLEDFlip() override;
    bool GetMicrophoneLEDFlip() override;
    DRAVResult SetMicrophoneLEDFlip(bool flipped) override;
    virtual double GetMicrophoneVULevelChannel1();
    virtual double GetMicrophoneVULevelChannel2();
    virtual std::string GetMicrophoneDefaultName();
    virtual std::string GetMicrophoneCustomName();
    // Only the selector changes; nothing goes to the device.
    virtual void SetMicrophoneCustomName(const std::string& name);
    std::string GetHardwareId() const override;
    void SetHardwareId(const std::string& hardwareId) override;
    std::string GetSerialNumber() const override;
    int64_t GetFirmwareVersion() const override;

private:
    // Reads the block and gives the control object's answer; fallback without one.
    template <typename Value>
    Value Read(Value (DRMXMicrophoneInterface::*getter)(), Value fallback);
    // Sets the value on the control object and writes the block.
    template <typename Value>
    DRAVResult Write(DRAVResult (DRMXMicrophoneInterface::*setter)(Value), Value value);

    std::atomic<bool> initialized_{false};
    std::atomic<DRMXMicrophoneType> microphoneType_;
    mutable CDplThreadMutex hardwareIdLock_;
    std::string hardwareId_;
};
