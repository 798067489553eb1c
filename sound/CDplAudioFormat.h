#pragma once

#include <cstdint>

// Rate and channel count of the sound a level filter watches.
struct CDplAudioFormat
{
    int32_t sampleRate = 0;
    int32_t channels = 0;
};
