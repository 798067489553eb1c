#include "platform/linux/LibUsbBus.h"

#if TIDEMIX_HAVE_LIBUSB
#include <libusb.h>

#include <atomic>
#include <map>
#include <mutex>
#include <thread>

#include "platform/UsbStringDescriptor.h"
#include "portable-core/DRAVLog.h"
#include "portable-core/DplDispatchQueue.h"
#include "portable-core/DplThreadName.h"
#endif

namespace tidemix::platform::linuxos
{
#if TIDEMIX_HAVE_LIBUSB
namespace
{
constexpr uint16_t kLanguageUsEnglish = 0x0409;
constexpr unsigned kStringTimeoutMs = 500;

UsbStatus StatusOf(int error)
{
    switch (error)
    {
        case LIBUSB_SUCCESS:
            return UsbStatus::Ok;
        case LIBUSB_ERROR_PIPE:
            return UsbStatus::Stall;
        case LIBUSB_ERROR_TIMEOUT:
            return UsbStatus::Timeout;
        case LIBUSB_ERROR_NO_DEVICE:
        case LIBUSB_ERROR_NOT_FOUND:
            return UsbStatus::NoDevice;
        case LIBUSB_ERROR_OVERFLOW:
            return UsbStatus::Overflow;
        case LIBUSB_ERROR_INVALID_PARAM:
            return UsbStatus::InvalidParam;
        case LIBUSB_ERROR_ACCESS:
            return UsbStatus::Access;
        default:
            return UsbStatus::IoError;
    }
}

uint32_t LocationOf(libusb_device* device)
{
    uint8_t ports[7] = {};
    const int depth = libusb_get_port_numbers(device, ports, sizeof(ports));
    uint32_t location = static_cast<uint32_t>(libusb_get_bus_number(device)) << 24;
    for (int i = 0; i < depth && i < 6; ++i)
    {
        location |= static_cast<uint32_t>(ports[i] & 0x0F) << (20 - 4 * i);
    }
    return location;
}

std::string StringOf(libusb_device_handle* handle, uint8_t index)
{
    if (handle == nullptr || index == 0)
    {
        return {};
    }
    unsigned char buffer[256] = {};
    const int got = libusb_control_transfer(handle, LIBUSB_ENDPOINT_IN, LIBUSB_REQUEST_GET_DESCRIPTOR,
                                            static_cast<uint16_t>((LIBUSB_DT_STRING << 8) | index),
                                            kLanguageUsEnglish, buffer, sizeof(buffer), kStringTimeoutMs);
    std::string text;
    if (got > 0)
    {
        DecodeUsbStringDescriptor(buffer, static_cast<size_t>(got), text);
    }
    return text;
}

// The identity from the descriptors alone; withStrings opens the device to
// read its product name and serial number (not from a hot-plug callback,
// where no I/O may be done).
bool Describe(libusb_device* device, bool withStrings, UsbDeviceInfo& info)
{
    libusb_device_descriptor descriptor{};
    if (libusb_get_device_descriptor(device, &descriptor) != LIBUSB_SUCCESS)
    {
        return false;
    }
    info.locationId = LocationOf(device);
    info.vendorId = descriptor.idVendor;
    info.productId = descriptor.idProduct;
    info.release = descriptor.bcdDevice;
    info.serialNumberIndex = descriptor.iSerialNumber;
    info.registryEntryId =
        (static_cast<uint64_t>(libusb_get_bus_number(device)) << 8) | libusb_get_device_address(device);
    libusb_config_descriptor* config = nullptr;
    if (descriptor.bNumConfigurations > 0 &&
        libusb_get_config_descriptor(device, 0, &config) == LIBUSB_SUCCESS)
    {
        for (int i = 0; i < config->bNumInterfaces; ++i)
        {
            if (config->interface[i].num_altsetting > 0)
            {
                const libusb_interface_descriptor& alt = config->interface[i].altsetting[0];
                info.interfaces.push_back(
                    {alt.bInterfaceNumber, alt.bInterfaceClass, alt.bInterfaceSubClass});
            }
        }
        libusb_free_config_descriptor(config);
    }
    if (withStrings)
    {
        libusb_device_handle* handle = nullptr;
        if (libusb_open(device, &handle) == LIBUSB_SUCCESS)
        {
            info.name = StringOf(handle, descriptor.iProduct);
            info.serialNumber = StringOf(handle, descriptor.iSerialNumber);
            libusb_close(handle);
        }
    }
    return true;
}
}  // namespace

struct LibUsbBus::State
{
    libusb_context* context = nullptr;
    std::atomic<bool> running{false};
    std::thread events;
    libusb_hotplug_callback_handle hotplug = 0;
    bool hasHotplug = false;

    std::recursive_mutex listenerMutex;
    std::map<uint64_t, Listener> listeners;
    uint64_t nextListener = 1;
    // Listeners run here: libusb calls hot-plug callbacks on whichever thread
    // handles its events, which may be a caller waiting for its own transfer.
    std::unique_ptr<DplDispatchQueue> notifications = std::make_unique<DplDispatchQueue>("usb.hotplug", 1);

    // Attached flags of the open handles, by device, so a departure reaches them.
    std::mutex handlesMutex;
    std::multimap<libusb_device*, std::weak_ptr<std::atomic<bool>>> handles;

    ~State()
    {
        if (context != nullptr)
        {
            libusb_exit(context);
        }
    }

    void Notify(UsbEvent event, const UsbDeviceInfo& info)
    {
        std::lock_guard lock(listenerMutex);
        std::vector<uint64_t> ids;
        for (const auto& entry : listeners)
        {
            ids.push_back(entry.first);
        }
        for (uint64_t id : ids)
        {
            auto it = listeners.find(id);
            if (it != listeners.end())
            {
                Listener listener = it->second;
                listener(event, info);
            }
        }
    }

    void MarkGone(libusb_device* device)
    {
        std::lock_guard lock(handlesMutex);
        auto [first, last] = handles.equal_range(device);
        for (auto it = first; it != last; ++it)
        {
            if (auto attached = it->second.lock())
            {
                attached->store(false);
            }
        }
    }
};

namespace
{
int LIBUSB_CALL OnHotplug(libusb_context*, libusb_device* device, libusb_hotplug_event event, void* user)
{
    auto* state = static_cast<LibUsbBus::State*>(user);
    UsbDeviceInfo info;
    if (!Describe(device, false, info))
    {
        return 0;
    }
    const UsbEvent kind = event == LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT ? UsbEvent::Departed : UsbEvent::Arrived;
    if (kind == UsbEvent::Departed)
    {
        // At once, so that no request goes to the device from now on.
        state->MarkGone(device);
    }
    state->notifications->dispatch([state, kind, info] { state->Notify(kind, info); });
    return 0;  // stay registered
}

class LibUsbHandle : public UsbDeviceHandle
{
public:
    LibUsbHandle(std::shared_ptr<LibUsbBus::State> state, libusb_device_handle* handle, UsbDeviceInfo info)
        : state_(std::move(state)), handle_(handle), info_(std::move(info))
    {
        std::lock_guard lock(state_->handlesMutex);
        state_->handles.emplace(libusb_get_device(handle_), attached_);
    }

    ~LibUsbHandle() override
    {
        {
            std::lock_guard lock(state_->handlesMutex);
            auto [first, last] = state_->handles.equal_range(libusb_get_device(handle_));
            for (auto it = first; it != last; ++it)
            {
                if (it->second.lock() == attached_)
                {
                    state_->handles.erase(it);
                    break;
                }
            }
        }
        libusb_close(handle_);
    }

    const UsbDeviceInfo& Info() const override { return info_; }
    bool IsAttached() const override { return attached_->load(); }

    UsbTransferResult ControlTransfer(const UsbControlSetup& setup, uint8_t* data, size_t capacity,
                                      std::chrono::milliseconds timeout) override
    {
        if (setup.length > capacity || (setup.length > 0 && data == nullptr))
        {
            return {UsbStatus::InvalidParam, 0};
        }
        if (!attached_->load())
        {
            return {UsbStatus::NoDevice, 0};
        }
        const int got =
            libusb_control_transfer(handle_, setup.requestType, setup.request, setup.value, setup.index, data,
                                    setup.length, static_cast<unsigned>(timeout.count()));
        if (got < 0)
        {
            const UsbStatus status = StatusOf(got);
            if (status == UsbStatus::NoDevice)
            {
                attached_->store(false);
            }
            return {status, 0};
        }
        return {UsbStatus::Ok, static_cast<size_t>(got)};
    }

private:
    std::shared_ptr<LibUsbBus::State> state_;  // keeps the context until the handle is closed
    libusb_device_handle* handle_;
    const UsbDeviceInfo info_;
    std::shared_ptr<std::atomic<bool>> attached_ = std::make_shared<std::atomic<bool>>(true);
};
}  // namespace

std::unique_ptr<LibUsbBus> LibUsbBus::Create(std::string* whyNot)
{
    auto state = std::make_shared<State>();
    const int error = libusb_init(&state->context);
    if (error != LIBUSB_SUCCESS)
    {
        state->context = nullptr;
        if (whyNot)
        {
            *whyNot = std::string("libusb_init: ") + libusb_error_name(error);
        }
        return nullptr;
    }
    if (libusb_has_capability(LIBUSB_CAP_HAS_HOTPLUG) != 0)
    {
        const auto events =
            static_cast<int>(LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT);
        state->hasHotplug =
            libusb_hotplug_register_callback(state->context, events, 0, LIBUSB_HOTPLUG_MATCH_ANY,
                                             LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_MATCH_ANY, OnHotplug,
                                             state.get(), &state->hotplug) == LIBUSB_SUCCESS;
    }
    state->running.store(true);
    State* raw = state.get();
    state->events = std::thread(
        [raw]
        {
            DplSetCurrentThreadName("usb.events");
            while (raw->running.load())
            {
                timeval wait{0, 200000};
                libusb_handle_events_timeout_completed(raw->context, &wait, nullptr);
            }
        });
    return std::unique_ptr<LibUsbBus>(new LibUsbBus(std::move(state)));
}

LibUsbBus::LibUsbBus(std::shared_ptr<State> state) : state_(std::move(state)) {}

LibUsbBus::~LibUsbBus()
{
    state_->running.store(false);
    if (state_->hasHotplug)
    {
        libusb_hotplug_deregister_callback(state_->context, state_->hotplug);
    }
    libusb_interrupt_event_handler(state_->context);
    if (state_->events.joinable())
    {
        state_->events.join();
    }
    // Ends the listeners' thread while the state is still whole; events not
    // yet delivered are dropped.
    state_->notifications.reset();
}

bool LibUsbBus::HasHotplug() const
{
    return state_->hasHotplug;
}

std::vector<UsbDeviceInfo> LibUsbBus::Devices(uint16_t vendorId)
{
    std::vector<UsbDeviceInfo> found;
    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(state_->context, &list);
    for (ssize_t i = 0; i < count; ++i)
    {
        libusb_device_descriptor descriptor{};
        if (libusb_get_device_descriptor(list[i], &descriptor) != LIBUSB_SUCCESS ||
            (vendorId != 0 && descriptor.idVendor != vendorId))
        {
            continue;
        }
        UsbDeviceInfo info;
        if (Describe(list[i], true, info))
        {
            found.push_back(std::move(info));
        }
    }
    if (list != nullptr)
    {
        libusb_free_device_list(list, 1);
    }
    return found;
}

std::unique_ptr<UsbDeviceHandle> LibUsbBus::Open(uint32_t locationId, bool configure, UsbStatus* why)
{
    UsbStatus status = UsbStatus::NoDevice;
    std::unique_ptr<UsbDeviceHandle> opened;
    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(state_->context, &list);
    for (ssize_t i = 0; i < count && !opened; ++i)
    {
        if (LocationOf(list[i]) != locationId)
        {
            continue;
        }
        UsbDeviceInfo info;
        libusb_device_handle* handle = nullptr;
        int error = Describe(list[i], true, info) ? libusb_open(list[i], &handle) : LIBUSB_ERROR_IO;
        if (error == LIBUSB_SUCCESS && configure)
        {
            libusb_config_descriptor* config = nullptr;
            error = libusb_get_config_descriptor(list[i], 0, &config);
            if (error == LIBUSB_SUCCESS)
            {
                int current = 0;
                // Set only when another is active: setting it anew would reset the device.
                if (libusb_get_configuration(handle, &current) != LIBUSB_SUCCESS ||
                    current != config->bConfigurationValue)
                {
                    error = libusb_set_configuration(handle, config->bConfigurationValue);
                }
                libusb_free_config_descriptor(config);
            }
        }
        if (error != LIBUSB_SUCCESS)
        {
            if (handle != nullptr)
            {
                libusb_close(handle);
            }
            status = StatusOf(error);
            break;
        }
        status = UsbStatus::Ok;
        opened = std::make_unique<LibUsbHandle>(state_, handle, std::move(info));
    }
    if (list != nullptr)
    {
        libusb_free_device_list(list, 1);
    }
    if (why)
    {
        *why = status;
    }
    return opened;
}

uint64_t LibUsbBus::AddListener(Listener listener)
{
    std::lock_guard lock(state_->listenerMutex);
    const uint64_t id = state_->nextListener++;
    state_->listeners[id] = std::move(listener);
    return id;
}

void LibUsbBus::RemoveListener(uint64_t id)
{
    std::lock_guard lock(state_->listenerMutex);
    state_->listeners.erase(id);
}

#else  // without libusb

struct LibUsbBus::State
{
};

std::unique_ptr<LibUsbBus> LibUsbBus::Create(std::string* whyNot)
{
    if (whyNot)
    {
        *whyNot = "built without libusb-1.0";
    }
    return nullptr;
}

LibUsbBus::LibUsbBus(std::shared_ptr<State> state) : state_(std::move(state)) {}
LibUsbBus::~LibUsbBus() = default;
bool LibUsbBus::HasHotplug() const
{
    return false;
}
std::vector<UsbDeviceInfo> LibUsbBus::Devices(uint16_t)
{
    return {};
}
std::unique_ptr<UsbDeviceHandle> LibUsbBus::Open(uint32_t, bool, UsbStatus* why)
{
    if (why)
    {
        *why = UsbStatus::NoDevice;
    }
    return nullptr;
}
uint64_t LibUsbBus::AddListener(Listener)
{
    return 0;
}
void LibUsbBus::RemoveListener(uint64_t) {}
#endif

}  // namespace tidemix::platform::linuxos
