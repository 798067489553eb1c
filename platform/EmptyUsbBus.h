#pragma once

#include "platform/UsbBus.h"

namespace tidemix::platform
{

// A bus without devices: what a backend offers when its USB service is missing.
class EmptyUsbBus : public UsbBus
{
public:
    std::vector<UsbDeviceInfo> Devices(uint16_t) override { return {}; }
    std::unique_ptr<UsbDeviceHandle> Open(uint32_t, bool, UsbStatus* why) override
    {
        if (why)
        {
            *why = UsbStatus::NoDevice;
        }
        return nullptr;
    }
    uint64_t AddListener(Listener) override { return 0; }
    void RemoveListener(uint64_t) override {}
};

}  // namespace tidemix::platform
