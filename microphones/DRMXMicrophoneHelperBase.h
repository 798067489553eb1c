#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <type_traits>

#include "microphones/DRMXBucketNormalizationService.h"
#include "microphones/DRMXMicrophoneInterface.h"
#include "microphones/DRMXMicrophoneReedPro.h"
#include "microphones/DRMXMicrophoneScaling.h"

// The controls of one microphone over its block T (DRMXMicrophoneReed or
// DRMXMicrophoneReedPro), scaled to 0.0..1.0. Getters and setters work on
// the block held here; reading it from and writing it to the device is the
// business of the derived control object.
template <typename T>
class DRMXMicrophoneHelperBase : public virtual DRMXMicrophoneInterface
{
public:
    static inline const DRMXBucketNormalizationService sBucketNormServiceOutputVolume{
        DRMXMicrophoneScaling::OutputVolumeSamples()};

    DRAVResult Init() override { return kDRAVResultErrNotImplemented; }
    DRAVResult Deinit() override { return kDRAVResultOk; }
    DRMXMicrophoneType GetMicrophoneType() override { return T::kInterfaceType; }
    DRAVResult SetMicrophoneType(DRMXMicrophoneType) override { return kDRAVResultOk; }

    double GetMicrophoneGain() override
    {
        return DRMXMicrophoneScaling::GainFromRaw(block.GetMicrophoneGain());
    }
    DRAVResult SetMicrophoneGain(double gain) override
    {
        block.SetMicrophoneGain(DRMXMicrophoneScaling::GainToRaw(gain));
        return kDRAVResultOk;
    }
    bool GetMicrophoneMute() override { return block.GetMicrophoneMute(); }
    DRAVResult SetMicrophoneMute(bool mute) override
    {
        block.SetMicrophoneMute(mute);
        return kDRAVResultOk;
    }
    double GetMicrophoneOutputVolume() override
    {
        if constexpr (std::is_same_v<T, DRMXMicrophoneReedPro>)
        {
            return DRMXMicrophoneScaling::OutputVolumeFromRawLinear(block.GetMicrophoneOutputVolume());
        }
        else
        {
            return DRMXMicrophoneScaling::OutputVolumeFromRawBuckets(sBucketNormServiceOutputVolume,
                                                                     block.GetMicrophoneOutputVolume());
        }
    }
    DRAVResult SetMicrophoneOutputVolume(double volume) override
    {
        block.SetMicrophoneOutputVolume(
            DRMXMicrophoneScaling::OutputVolumeToRaw(sBucketNormServiceOutputVolume, volume));
        return kDRAVResultOk;
    }
    bool GetMicrophoneOutputMute() override { return block.GetMicrophoneOutputMute(); }
    DRAVResult SetMicrophoneOutputMute(bool mute) override
    {
        block.SetMicrophoneOutputMute(mute);
        return kDRAVResultOk;
    }
    double GetMicrophoneDirectMonitorVolume() override
    {
        return DRMXMicrophoneScaling::DirectMonitorFromRaw(block.GetMicrophoneDirectMonitorVolume());
    }
    DRAVResult SetMicrophoneDirectMonitorVolume(double volume) override
    {
        block.SetMicrophoneDirectMonitorVolume(DRMXMicrophoneScaling::DirectMonitorToRaw(volume));
        return kDRAVResultOk;
    }
    bool GetMicrophoneClipGuard() override { return block.GetMicrophoneClipGuard(); }
    DRAVResult SetMicrophoneClipGuard(bool on) override
    {
        block.SetMicrophoneClipGuard(on);
        return kDRAVResultOk;
    }
    bool GetMicrophoneLowCut() override { return block.GetMicrophoneLowCut(); }
    DRAVResult SetMicrophoneLowCut(bool on) override
    {
        block.SetMicrophoneLowCut(on);
        return kDRAVResultOk;
    }
    bool HasMicrophonePolarization() override { return block.HasMicrophonePolarization(); }
    double GetMicrophonePolarization() override
    {
        return block.HasMicrophonePolarization()
                   ? DRMXMicrophoneScaling::PolarizationFromRaw(block.GetMicrophonePolarization())
                   : 0.0;
    }
    DRAVResult SetMicrophonePolarization(double polarization) override
    {
        block.SetMicrophonePolarization(DRMXMicrophoneScaling::PolarizationToRaw(polarization));
        return kDRAVResultOk;
    }
    bool GetMicrophoneAllLEDOff() override { return block.GetMicrophoneAllLEDOff(); }
    DRAVResult SetMicrophoneAllLEDOff(bool off) override
    {
        block.SetMicrophoneAllLEDOff(off);
        return kDRAVResultOk;
    }
    bool HasMicrophoneGainLock() override { return block.HasMicrophoneGainLock(); }
    bool GetMicrophoneGainLock() override { return block.GetMicrophoneGainLock(); }
    DRAVResult SetMicrophoneGainLock(bool locked) override
    {
        block.SetMicrophoneGainLock(locked);
        return kDRAVResultOk;
    }
    bool HasMicrophoneLEDFlip() override { return block.HasMicrophoneLEDFlip(); }
    bool GetMicrophoneLEDFlip() override { return block.GetMicrophoneLEDFlip(); }
    DRAVResult SetMicrophoneLEDFlip(bool flipped) override
    {
        block.SetMicrophoneLEDFlip(flipped);
        return kDRAVResultOk;
    }
    std::string GetHardwareId() const override { return std::string(); }
    void SetHardwareId(const std::string&) override {}
    // The version lives in the selector, not in the control object.
    int64_t GetFirmwareVersion() const override { return 0; }
    bool HasMicrophoneVolumeSelect() override { return block.HasMicrophoneVolumeSelect(); }
    int64_t GetMicrophoneVolumeSelect() override { return block.GetMicrophoneVolumeSelect(); }
    DRAVResult SetMicrophoneVolumeSelect(int64_t select) override
    {
        block.SetMicrophoneVolumeSelect(static_cast<unsigned char>(std::clamp<int64_t>(select, 0, 255)));
        return kDRAVResultOk;
    }

    // The block as last read from or written to the device.
    const T& Block() const { return block; }

protected:
    T block;
    bool useCommonRequest = T::kUseCommonRequest;
};
