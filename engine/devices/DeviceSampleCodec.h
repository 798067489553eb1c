#pragma once

#include <cstdint>

#include "platform/AudioSystem.h"

namespace tidemix::engine
{

// Moves samples between a device's layout (rate aside: any channel count,
// float or 16-bit, interleaved or planar) and two planar float channels.
//
// Into stereo: a mono device feeds both channels; with more than two channels
// the first two are taken. Out of stereo: a mono device gets the average of
// the two; channels beyond the second are zeroed. 16-bit samples are scaled
// by 32768 on the way in and by 32767 on the way out, clamped to the 16-bit
// range, with NaN written as 0.
class DeviceSampleCodec
{
public:
    // `buffers` holds format.BufferCount() pointers. Formats with no channels
    // write silence.
    static void DecodeToStereo(const platform::DeviceStreamFormat& format, const void* const* buffers,
                               uint32_t frames, float* left, float* right);
    static void EncodeFromStereo(const platform::DeviceStreamFormat& format, const float* left,
                                 const float* right, uint32_t frames, void* const* buffers);

    static void FloatToInt16(const float* in, int16_t* out, uint32_t count);
    static void Int16ToFloat(const int16_t* in, float* out, uint32_t count);
};

}  // namespace tidemix::engine
