#pragma once

#include <cstdint>

// The common description of a linear PCM stream that device layers exchange.
struct AudioStreamBasicDescription
{
    double mSampleRate = 0.0;
    uint32_t mFormatID = 0;
    uint32_t mFormatFlags = 0;
    uint32_t mBytesPerPacket = 0;
    uint32_t mFramesPerPacket = 0;
    uint32_t mBytesPerFrame = 0;
    uint32_t mChannelsPerFrame = 0;
    uint32_t mBitsPerChannel = 0;
    uint32_t mReserved = 0;
};

// "lpcm"
inline constexpr uint32_t kAudioFormatLinearPCM = 0x6C70636Du;

inline constexpr uint32_t kAudioFormatFlagIsFloat = 1u << 0;
inline constexpr uint32_t kAudioFormatFlagIsBigEndian = 1u << 1;
inline constexpr uint32_t kAudioFormatFlagIsSignedInteger = 1u << 2;
inline constexpr uint32_t kAudioFormatFlagIsPacked = 1u << 3;
inline constexpr uint32_t kAudioFormatFlagIsAlignedHigh = 1u << 4;
inline constexpr uint32_t kAudioFormatFlagIsNonInterleaved = 1u << 5;
// Content bits of a sample narrower than its storage sit in bits 7 to 12.
inline constexpr uint32_t kLinearPCMFormatFlagsSampleFractionShift = 7;
inline constexpr uint32_t kLinearPCMFormatFlagsSampleFractionMask =
    0x3Fu << kLinearPCMFormatFlagsSampleFractionShift;
