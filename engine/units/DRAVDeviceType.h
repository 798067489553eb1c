#pragma once

#include <cstdint>

enum DRAVDeviceType : int32_t
{
    kDRAVDeviceTypeNone = 0,
    kDRAVDeviceTypeAudioCapture = 1,
    kDRAVDeviceTypeAudioOutput = 2,
};
