#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// The 16-byte configuration block of a microphone, little-endian, in raw
// terms. The fields both models share live here; the model classes answer
// the rest. What a model lacks answers false or 0 and sets nothing.
class DRMXMicrophoneBlock
{
public:
    static constexpr size_t kSize = 16;

    virtual ~DRMXMicrophoneBlock() = default;

    virtual short GetMicrophoneGain() const;
    virtual void SetMicrophoneGain(short gain);
    virtual bool GetMicrophoneMute() const;
    virtual void SetMicrophoneMute(bool mute);
    virtual short GetMicrophoneOutputVolume() const;
    virtual void SetMicrophoneOutputVolume(short volume);
    virtual bool GetMicrophoneOutputMute() const;
    virtual void SetMicrophoneOutputMute(bool mute);
    virtual short GetMicrophoneDirectMonitorVolume() const;
    virtual void SetMicrophoneDirectMonitorVolume(short volume);
    virtual bool GetMicrophoneClipGuard() const;
    virtual void SetMicrophoneClipGuard(bool on);
    virtual bool GetMicrophoneLowCut() const;
    virtual void SetMicrophoneLowCut(bool on);
    virtual bool HasMicrophonePolarization() const = 0;
    virtual unsigned char GetMicrophonePolarization() const = 0;
    virtual void SetMicrophonePolarization(unsigned char polarization) = 0;
    virtual bool HasMicrophoneVolumeSelect() const = 0;
    virtual unsigned char GetMicrophoneVolumeSelect() const = 0;
    virtual void SetMicrophoneVolumeSelect(unsigned char select) = 0;
    virtual bool GetMicrophoneAllLEDOff() const = 0;
    virtual void SetMicrophoneAllLEDOff(bool off) = 0;
    virtual bool HasMicrophoneGainLock() const = 0;
    virtual bool GetMicrophoneGainLock() const = 0;
    virtual void SetMicrophoneGainLock(bool locked) = 0;
    virtual bool HasMicrophoneLEDFlip() const = 0;
    virtual bool GetMicrophoneLEDFlip() const = 0;
    virtual void SetMicrophoneLEDFlip(bool flipped) = 0;

    uint8_t* Data() { return bytes_.data(); }
    const std::array<uint8_t, kSize>& Bytes() const { return bytes_; }

protected:
    DRMXMicrophoneBlock() = default;
    DRMXMicrophoneBlock(const DRMXMicrophoneBlock&) = default;
    DRMXMicrophoneBlock& operator=(const DRMXMicrophoneBlock&) = default;

    short Int16At(size_t offset) const;
    void SetInt16At(size_t offset, short value);
    bool FlagAt(size_t offset) const { return bytes_[offset] != 0; }
    void SetFlagAt(size_t offset, bool value) { bytes_[offset] = value ? 1 : 0; }

    static constexpr size_t kGain = 0;
    static constexpr size_t kMute = 4;
    static constexpr size_t kClipGuard = 5;
    static constexpr size_t kLowCut = 6;
    static constexpr size_t kOutputVolume = 7;  // an odd offset: read bytewise
    static constexpr size_t kOutputMute = 9;
    static constexpr size_t kDirectMonitorVolume = 10;
    static constexpr size_t kModelByte = 12;  // dial function or polarization
    static constexpr size_t kAllLEDOff = 13;
    static constexpr size_t kLEDFlip = 14;
    static constexpr size_t kGainLock = 15;

    std::array<uint8_t, kSize> bytes_{};
};
