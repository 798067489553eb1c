#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "platform/UsbBus.h"
#include "platform/sim/SimUsbDeviceSpec.h"

namespace tidemix::platform::sim
{

// One request as the simulated bus saw it, with what came of it.
struct SimUsbRequest
{
    uint32_t locationId = 0;
    UsbControlSetup setup;
    std::vector<uint8_t> dataOut;  // host-to-device data
    UsbStatus status = UsbStatus::Ok;
    size_t transferred = 0;
};

// A simulated USB bus. Devices are plugged and unplugged at run time; the
// listeners hear of it on the bus's own event thread. Microphones answer the
// requests of their configuration block from a real 16-byte block and the
// standard string-descriptor request; every request lands in a log. A
// device with a DFU interface runs the DFU state machine (SimDfuDevice):
// after a detach, and after the manifestation of a new image, it leaves
// and comes back at the same location in the other mode, after the delay
// of its SimDfuTiming.
class SimUsbBus : public UsbBus
{
public:
    SimUsbBus();
    ~SimUsbBus() override;
    SimUsbBus(const SimUsbBus&) = delete;
    SimUsbBus& operator=(const SimUsbBus&) = delete;

    // Plugs a device in at a location (0: the next free one) and returns the
    // location, or 0 if the location is taken.
    uint32_t Plug(const SimUsbDeviceSpec& spec, uint32_t locationId = 0);
    // Takes the device away: its open handles fail from now on.
    bool Unplug(uint32_t locationId);

    bool SetFaults(uint32_t locationId, const SimUsbFaults& faults);
    std::optional<SimUsbBlock> Block(uint32_t locationId) const;
    bool SetBlock(uint32_t locationId, const SimUsbBlock& block);
    // How many handles of the device are open now.
    int OpenHandles(uint32_t locationId) const;

    // Brings back the devices that left with SimDfuTiming::kHeld, now.
    void ReturnHeldDevices();
    // The images the devices at a location have manifested, oldest first.
    std::vector<std::vector<uint8_t>> ManifestedImages(uint32_t locationId) const;

    std::vector<SimUsbRequest> Requests() const;
    void ClearRequests();

    // Waits until the listener calls posted so far have run.
    void FlushNotifications();

    std::vector<UsbDeviceInfo> Devices(uint16_t vendorId) override;
    std::unique_ptr<UsbDeviceHandle> Open(uint32_t locationId, bool configure, UsbStatus* why) override;
    uint64_t AddListener(Listener listener) override;
    void RemoveListener(uint64_t id) override;

    struct State;

private:
    void Post(UsbEvent event, const UsbDeviceInfo& info);

    std::shared_ptr<State> state_;
};

}  // namespace tidemix::platform::sim
