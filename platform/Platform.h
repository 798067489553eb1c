#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/Applications.h"
#include "platform/AudioSystem.h"
#include "platform/EmptyPowerEvents.h"
#include "platform/EmptyUsbBus.h"
#include "platform/PowerEvents.h"
#include "platform/ProcessActivity.h"
#include "platform/UsbBus.h"
#include "portable-core/DplDispatchQueue.h"

namespace tidemix::platform
{

// Everything the portable code asks of the operating system. One Platform
// hands out the services of one backend: "linux" (PipeWire, libusb, logind;
// the default) or "sim" (the simulated world, which the demo and the tests
// choose). A service whose component is missing comes up empty and says so in
// the log.
class Platform
{
public:
    virtual ~Platform();

    virtual std::string Name() const = 0;
    virtual AudioSystem& Audio() = 0;
    virtual ProcessActivity& Activity() = 0;
    // The USB devices. A backend without a USB service offers a bus with no
    // devices.
    virtual UsbBus& Usb() { return noUsb_; }
    // Sleep and wake. A backend without a power service reports none.
    virtual PowerEvents& Power() { return noPower_; }
    // Running and installed applications and their capture devices. A
    // backend without them offers none.
    virtual Applications& Apps() { return noApps_; }
    // Asks real-time scheduling for the calling thread (a mix's own
    // host-clock audio thread). A backend may grant or refuse it; a refusal
    // is no error, and the thread keeps running as it is.
    virtual RealtimeGrant RequestRealtimeForCurrentThread() { return RealtimeGrant::NotOffered; }

    // The serial "main" queue: where listeners post their work, standing in
    // for the desktop platform's main dispatch queue.
    std::shared_ptr<DplDispatchQueue> MainQueue();

    // The choice of backend. The seam itself knows no backend: these three
    // are defined by the selection target (platform/select), which links the
    // backends; whatever calls them links that target.
    //
    // The backend in use. Made on first use from $TIDEMIX_PLATFORM ("sim" or
    // "linux"); nothing gives "linux", an unknown name "linux" with a warning.
    static std::shared_ptr<Platform> Current();
    // Chooses the backend; call before the manager's Init. Null returns to
    // the environment's choice at the next Current().
    static void Use(std::shared_ptr<Platform> platform);
    // A new backend by name, or null for an unknown name.
    static std::shared_ptr<Platform> Create(std::string_view name);

protected:
    Platform();

private:
    std::shared_ptr<DplDispatchQueue> mainQueue_;
    EmptyUsbBus noUsb_;
    EmptyPowerEvents noPower_;
    EmptyApplications noApps_;
};

}  // namespace tidemix::platform
