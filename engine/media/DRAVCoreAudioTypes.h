#pragma once

#include <cstdint>

#include "sound/AudioStreamBasicDescription.h"

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

constexpr AudioObjectPropertyScope kAudioObjectPropertyScopeGlobal = DRAVFourCC("glob");
constexpr AudioObjectPropertyScope kAudioObjectPropertyScopeInput = DRAVFourCC("inpt");
constexpr AudioObjectPropertyScope kAudioObjectPropertyScopeOutput = DRAVFourCC("outp");

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
