#pragma once

#include <cstdint>

namespace DRMX_Settings
{

// Stored as 32-bit integers, in files too.
enum DRMXInputType : int32_t
{
    kInputTypeAny = 0,
    kInputTypeMainMicrophone = 1,
    kInputTypeFurtherMicrophone = 2,
    kInputTypeVirtual = 3,
    kInputTypeHardware = 4,
    kInputTypeAppAudio = 5,
};

enum DRMXOutputType : int32_t
{
    kOutputTypeAny = 0,
    kOutputTypeVirtual = 1,
    kOutputTypeHardware = 2,
};

enum DRMXOutputTerminalType : int32_t
{
    kTerminalUnknown = 0,
    kTerminalSpeaker = 1,
    kTerminalHeadphone = 2,
    // The headphone jack of a Drovane microphone.
    kTerminalMicrophoneOutput = 3,
};

enum DRMXMixerType : int32_t
{
    kMixerLocal = 1,   // "Local Mixer"
    kMixerStream = 2,  // "Remote Mixer"
};

// The maker's USB vendor id and the product ids its microphones have while
// running (not in firmware-update mode).
constexpr uint32_t kDrovaneVendorId = 0x7E11;
constexpr uint32_t kDrovaneRuntimeProductIds[] = {0x0B21, 0x0B23, 0x0B25};

constexpr bool IsDrovaneRuntimeProduct(uint32_t vendorId, uint32_t productId)
{
    if (vendorId != kDrovaneVendorId)
    {
        return false;
    }
    for (uint32_t id : kDrovaneRuntimeProductIds)
    {
        if (id == productId)
        {
            return true;
        }
    }
    return false;
}

}  // namespace DRMX_Settings
