#include "microphones/DRMXMicrophoneBlock.h"

short DRMXMicrophoneBlock::Int16At(size_t offset) const
{
    return static_cast<short>(static_cast<uint16_t>(bytes_[offset] | (bytes_[offset + 1] << 8)));
}

void DRMXMicrophoneBlock::SetInt16At(size_t offset, short value)
{
    const auto bits = static_cast<uint16_t>(value);
    bytes_[offset] = static_cast<uint8_t>(bits & 0xFF);
    bytes_[offset + 1] = static_cast<uint8_t>(bits >> 8);
}

short DRMXMicrophoneBlock::GetMicrophoneGain() const
{
    return Int16At(kGain);
}

void DRMXMicrophoneBlock::SetMicrophoneGain(short gain)
{
    SetInt16At(kGain, gain);
}

bool DRMXMicrophoneBlock::GetMicrophoneMute() const
{
    return FlagAt(kMute);
}

void DRMXMicrophoneBlock::SetMicrophoneMute(bool mute)
{
    SetFlagAt(kMute, mute);
}

short DRMXMicrophoneBlock::GetMicrophoneOutputVolume() const
{
    return Int16At(kOutputVolume);
}

void DRMXMicrophoneBlock::SetMicrophoneOutputVolume(short volume)
{
    SetInt16At(kOutputVolume, volume);
}

bool DRMXMicrophoneBlock::GetMicrophoneOutputMute() const
{
    return FlagAt(kOutputMute);
}

void DRMXMicrophoneBlock::SetMicrophoneOutputMute(bool mute)
{
    SetFlagAt(kOutputMute, mute);
}

short DRMXMicrophoneBlock::GetMicrophoneDirectMonitorVolume() const
{
    return Int16At(kDirectMonitorVolume);
}

void DRMXMicrophoneBlock::SetMicrophoneDirectMonitorVolume(short volume)
{
    SetInt16At(kDirectMonitorVolume, volume);
}

bool DRMXMicrophoneBlock::GetMicrophoneClipGuard() const
{
    return FlagAt(kClipGuard);
}

void DRMXMicrophoneBlock::SetMicrophoneClipGuard(bool on)
{
    SetFlagAt(kClipGuard, on);
}

bool DRMXMicrophoneBlock::GetMicrophoneLowCut() const
{
    return FlagAt(kLowCut);
}

void DRMXMicrophoneBlock::SetMicrophoneLowCut(bool on)
{
    SetFlagAt(kLowCut, on);
}
