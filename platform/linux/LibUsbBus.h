#pragma once

#include <memory>
#include <string>

#include "platform/UsbBus.h"

namespace tidemix::platform::linuxos
{

// The USB devices through libusb-1.0. Arrivals and departures come from
// libusb's hot-plug callbacks, which the bus's own event thread drives; the
// listeners hear of them on a thread of their own. A location is
// the bus number in the top byte and the port path below it, four bits a
// port, as a desktop platform numbers them.
class LibUsbBus : public UsbBus
{
public:
    // Null, with the reason, when libusb can't start or the build has no libusb.
    static std::unique_ptr<LibUsbBus> Create(std::string* whyNot);
    ~LibUsbBus() override;
    LibUsbBus(const LibUsbBus&) = delete;
    LibUsbBus& operator=(const LibUsbBus&) = delete;

    std::vector<UsbDeviceInfo> Devices(uint16_t vendorId) override;
    std::unique_ptr<UsbDeviceHandle> Open(uint32_t locationId, bool configure, UsbStatus* why) override;
    uint64_t AddListener(Listener listener) override;
    void RemoveListener(uint64_t id) override;

    // Whether libusb delivers hot-plug events here.
    bool HasHotplug() const;

    struct State;

private:
    explicit LibUsbBus(std::shared_ptr<State> state);
    std::shared_ptr<State> state_;
};

}  // namespace tidemix::platform::linuxos
