#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "platform/UsbDeviceHandle.h"
#include "platform/UsbDeviceInfo.h"

namespace tidemix::platform
{

enum class UsbEvent
{
    Arrived,
    Departed,
};

// The USB devices of the machine: listing, hot-plug events, opening.
class UsbBus
{
public:
    using Listener = std::function<void(UsbEvent, const UsbDeviceInfo&)>;

    virtual ~UsbBus() = default;

    // The devices present now, of one vendor or, with 0, of all.
    virtual std::vector<UsbDeviceInfo> Devices(uint16_t vendorId) = 0;

    // Opens the device at a location. With configure, its first
    // configuration is made the active one, and a device without any fails.
    // Null on failure, with the reason in *why when given.
    virtual std::unique_ptr<UsbDeviceHandle> Open(uint32_t locationId, bool configure, UsbStatus* why) = 0;

    // Arrivals and departures, once each, on a thread of the backend: the
    // listener must only post work elsewhere. After RemoveListener returns
    // the listener isn't running (unless it removes itself) and won't be
    // called again.
    virtual uint64_t AddListener(Listener listener) = 0;
    virtual void RemoveListener(uint64_t id) = 0;
};

}  // namespace tidemix::platform
