#pragma once

#include <cstdint>
#include <memory>

#include "engine/media/DRAVCoreAudioTypes.h"

// A buffer list for `frames` frames of `asbd`: one buffer per channel for a
// non-interleaved format, else one buffer of all channels. With allocate set
// each buffer gets 64-byte aligned memory; otherwise the data pointers stay
// null for a render that brings its own. Null when memory runs out or the
// sizes don't fit 32 bits. Free it with DestroyAudioBufferList.
AudioBufferList* AllocateAudioBufferList(AudioStreamBasicDescription asbd, uint32_t frames, bool allocate);

// Frees each buffer's data, then the list, and sets the pointer to null. A
// null pointer or list is ignored.
void DestroyAudioBufferList(AudioBufferList** list);

// Linear PCM with one frame per packet: float (32 bits) or signed integer (16
// bits), packed, and non-interleaved when planar.
AudioStreamBasicDescription ASBDForLinearPCM(double sampleRate, uint32_t channels, bool isFloat, bool planar);

class DRAVAudioFormat;

// The stream description of an engine format: float or 16-bit by its sample
// type, planar when the format's flag is set. A null format gives an empty
// description.
AudioStreamBasicDescription ASBDFromAudioFormat(const DRAVAudioFormat& format);
AudioStreamBasicDescription ASBDFromAudioFormatPtr(const std::shared_ptr<DRAVAudioFormat>& format);
