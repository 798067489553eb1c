#pragma once

#include <cstdint>

// The desktop audio layer's format and buffer records, kept with the same
// fields and flag values so that the units' arithmetic carries over.

using AudioObjectID = uint32_t;
using AudioFormatID = uint32_t;
using AudioFormatFlags = uint32_t;
using AudioObjectPropertyScope = uint32_t;

constexpr uint32_t DRAVFourCC(const char (&code)[5])
{
    return (static_cast<uint32_t>(static_cast<uint8_t>(code[0])) << 24) |
           (static_cast<uint32_t>(static_cast<uint8_t>(code[1])) << 16) |
           (static_cast<uint32_t>(static_cast<uint8_t>(code[2])) << 8) |
           static_cast<uint32_t>(static_cast<uint8_t>(code[3]));
}

constexpr AudioFormatID kAudioFormatLinearPCM = DRAVFourCC("lpcm");
constexpr AudioFormatFlags kAudioFormatFlagIsFloat = 1u << 0;
constexpr AudioFormatFlags kAudioFormatFlagIsBigEndian = 1u << 1;
constexpr AudioFormatFlags kAudioFormatFlagIsSignedInteger = 1u << 2;
constexpr AudioFormatFlags kAudioFormatFlagIsPacked = 1u << 3;
constexpr AudioFormatFlags kAudioFormatFlagIsAlignedHigh = 1u << 4;
constexpr AudioFormatFlags kAudioFormatFlagIsNonInterleaved = 1u << 5;

constexpr AudioObjectPropertyScope kAudioObjectPropertyScopeGlobal = DRAVFourCC("glob");
constexpr AudioObjectPropertyScope kAudioObjectPropertyScopeInput = DRAVFourCC("inpt");
constexpr AudioObjectPropertyScope kAudioObjectPropertyScopeOutput = DRAVFourCC("outp");

struct AudioStreamBasicDescription
{
    double mSampleRate = 0.0;
    AudioFormatID mFormatID = 0;
    AudioFormatFlags mFormatFlags = 0;
    uint32_t mBytesPerPacket = 0;
    uint32_t mFramesPerPacket = 0;
    uint32_t mBytesPerFrame = 0;
    uint32_t mChannelsPerFrame = 0;
    uint32_t mBitsPerChannel = 0;
    uint32_t mReserved = 0;
};

struct AudioBuffer
{
    uint32_t mNumberChannels = 0;
    uint32_t mDataByteSize = 0;
    void* mData = nullptr;
};

// A count followed by that many buffers; allocated with room for the count.
struct AudioBufferList
{
    uint32_t mNumberBuffers = 0;
    AudioBuffer mBuffers[1];
};
