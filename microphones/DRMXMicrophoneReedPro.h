#pragma once

#include "microphones/DRMXMicrophoneBlock.h"
#include "microphones/DRMXMicrophoneInterface.h"

// The block of a Reed Pro: byte 12 is the polarization; bytes 13 to 15 are
// carried as the device gave them, never written.
class DRMXMicrophoneReedPro : public DRMXMicrophoneBlock
{
public:
    static constexpr DRMXMicrophoneType kInterfaceType = kMicrophoneTypeReedPro;
    static constexpr bool kUseCommonRequest = true;

    bool HasMicrophonePolarization() const override { return true; }
    unsigned char GetMicrophonePolarization() const override { return bytes_[kModelByte]; }
    void SetMicrophonePolarization(unsigned char polarization) override { bytes_[kModelByte] = polarization; }
    bool HasMicrophoneVolumeSelect() const override { return false; }
    unsigned char GetMicrophoneVolumeSelect() const override { return 0; }
    void SetMicrophoneVolumeSelect(unsigned char) override {}
    bool GetMicrophoneAllLEDOff() const override { return false; }
    void SetMicrophoneAllLEDOff(bool) override {}
    bool HasMicrophoneGainLock() const override { return false; }
    bool GetMicrophoneGainLock() const override { return false; }
    void SetMicrophoneGainLock(bool) override {}
    bool HasMicrophoneLEDFlip() const override { return false; }
    bool GetMicrophoneLEDFlip() const override { return false; }
    void SetMicrophoneLEDFlip(bool) override {}
};
