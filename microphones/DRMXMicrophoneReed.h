#pragma once

#include "microphones/DRMXMicrophoneBlock.h"
#include "microphones/DRMXMicrophoneInterface.h"

// The block of a Reed 1 or Reed 3: byte 12 is the dial function, bytes 13
// to 15 the LEDs and the gain lock.
class DRMXMicrophoneReed : public DRMXMicrophoneBlock
{
public:
    // What a control object of this block says it is, whatever the product id.
    static constexpr DRMXMicrophoneType kInterfaceType = kMicrophoneTypeReed3;
    static constexpr bool kUseCommonRequest = false;

    bool HasMicrophonePolarization() const override { return false; }
    unsigned char GetMicrophonePolarization() const override { return 0; }
    void SetMicrophonePolarization(unsigned char) override {}
    bool HasMicrophoneVolumeSelect() const override { return true; }
    unsigned char GetMicrophoneVolumeSelect() const override { return bytes_[kModelByte]; }
    void SetMicrophoneVolumeSelect(unsigned char select) override { bytes_[kModelByte] = select; }
    bool GetMicrophoneAllLEDOff() const override { return FlagAt(kAllLEDOff); }
    void SetMicrophoneAllLEDOff(bool off) override { SetFlagAt(kAllLEDOff, off); }
    bool HasMicrophoneGainLock() const override { return true; }
    bool GetMicrophoneGainLock() const override { return FlagAt(kGainLock); }
    void SetMicrophoneGainLock(bool locked) override { SetFlagAt(kGainLock, locked); }
    bool HasMicrophoneLEDFlip() const override { return true; }
    bool GetMicrophoneLEDFlip() const override { return FlagAt(kLEDFlip); }
    void SetMicrophoneLEDFlip(bool flipped) override { SetFlagAt(kLEDFlip, flipped); }
};
