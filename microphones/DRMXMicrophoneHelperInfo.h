#pragma once

#include <cstdint>
#include <optional>

#include "microphones/DRMXMicrophoneInterface.h"
#include "platform/UsbDeviceHandle.h"

// What a control object of either model knows of its device; nothing for an
// object that is no control object.
struct DRMXMicrophoneHelperInfo
{
    tidemix::platform::UsbDeviceHandle* device = nullptr;  // owned by the control object
    bool dfu = false;
    uint32_t locationId = 0;
    uint16_t vendorId = 0;
    uint16_t productId = 0;

    // The run-time and DFU product ids of the device's model.
    uint16_t RuntimeProductId() const { return productId % 2 == 1 ? productId : productId - 1; }
    uint16_t DfuProductId() const { return RuntimeProductId() + 1; }

    static std::optional<DRMXMicrophoneHelperInfo> Of(DRMXMicrophoneInterface* microphone);
};
