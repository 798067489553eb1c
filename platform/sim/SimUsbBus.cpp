#include "platform/sim/SimUsbBus.h"

#include <algorithm>
#include <future>
#include <map>
#include <mutex>

#include "platform/UsbStringDescriptor.h"
#include "portable-core/DplDispatchQueue.h"

namespace tidemix::platform::sim
{
namespace
{
constexpr uint8_t kManufacturerIndex = 1;
constexpr uint8_t kProductIndex = 2;
constexpr uint8_t kSerialIndex = 3;

struct SimDevice
{
    SimUsbDeviceSpec spec;
    UsbDeviceInfo info;
    SimUsbFaults faults;
    bool attached = true;
    int openHandles = 0;
};
}  // namespace

struct SimUsbBus::State
{
    mutable std::mutex mutex;
    std::map<uint32_t, std::shared_ptr<SimDevice>> devices;
    std::vector<SimUsbRequest> log;
    uint32_t nextLocation = 0x14100000;
    uint64_t nextRegistryId = 0x100000A00;

    // Held while listeners run, so that RemoveListener waits for a running
    // call; recursive so that a listener may remove itself.
    std::recursive_mutex listenerMutex;
    std::map<uint64_t, Listener> listeners;
    uint64_t nextListener = 1;

    // The event thread; null once the bus is going away. Under mutex.
    std::shared_ptr<DplDispatchQueue> events = std::make_shared<DplDispatchQueue>("sim.usb", 1);
};

namespace
{
void PostEvent(const std::shared_ptr<SimUsbBus::State>& state, UsbEvent event, const UsbDeviceInfo& info)
{
    std::shared_ptr<DplDispatchQueue> events;
    {
        std::lock_guard lock(state->mutex);
        events = state->events;
    }
    if (!events)
    {
        return;
    }
    std::weak_ptr<SimUsbBus::State> weak = state;
    events->dispatch(
        [weak, event, info]
        {
            auto alive = weak.lock();
            if (!alive)
            {
                return;
            }
            std::lock_guard lock(alive->listenerMutex);
            std::vector<uint64_t> ids;
            for (const auto& [id, listener] : alive->listeners)
            {
                ids.push_back(id);
            }
            for (uint64_t id : ids)
            {
                // A listener removed by an earlier one isn't called.
                auto it = alive->listeners.find(id);
                if (it != alive->listeners.end())
                {
                    UsbBus::Listener listener = it->second;
                    listener(event, info);
                }
            }
        });
}

// What the device answers; called under the state's lock.
UsbTransferResult Answer(SimDevice& device, const UsbControlSetup& setup, uint8_t* data)
{
    const SimUsbDeviceSpec& spec = device.spec;
    std::string reply;
    bool answered = false;
    if (setup.requestType == 0x80 && setup.request == 6 && (setup.value >> 8) == 3)
    {
        const uint8_t index = setup.value & 0xFF;
        if (index == 0)
        {
            reply = std::string("\x04\x03\x09\x04", 4);  // US English only
            answered = true;
        }
        else if (index == kManufacturerIndex || index == kProductIndex ||
                 (index == kSerialIndex && !spec.serialNumber.empty()))
        {
            reply = EncodeUsbStringDescriptor(index == kManufacturerIndex ? "Drovane"
                                              : index == kProductIndex    ? spec.productName
                                                                          : spec.serialNumber);
            answered = true;
        }
    }
    else if (spec.hasConfigurationBlock && setup.value == 0 && setup.index == spec.blockIndex &&
             setup.length == device.spec.block.size())
    {
        if (setup.requestType == 0xA1 && setup.request == spec.readRequest)
        {
            reply.assign(spec.block.begin(), spec.block.end());
            answered = true;
        }
        else if (setup.requestType == 0x21 && setup.request == spec.writeRequest)
        {
            std::copy(data, data + setup.length, device.spec.block.begin());
            return {UsbStatus::Ok, setup.length};
        }
    }
    if (!answered)
    {
        return {UsbStatus::Stall, 0};
    }
    size_t bytes = std::min<size_t>(reply.size(), setup.length);
    if (device.faults.replyBytes >= 0)
    {
        if (static_cast<size_t>(device.faults.replyBytes) > setup.length)
        {
            return {UsbStatus::Overflow, 0};
        }
        bytes = std::min<size_t>(bytes, static_cast<size_t>(device.faults.replyBytes));
    }
    std::copy(reply.begin(), reply.begin() + static_cast<std::ptrdiff_t>(bytes), data);
    return {UsbStatus::Ok, bytes};
}

class SimUsbHandle : public UsbDeviceHandle
{
public:
    SimUsbHandle(std::weak_ptr<SimUsbBus::State> state, std::shared_ptr<SimDevice> device)
        : state_(std::move(state)), device_(std::move(device)), info_(device_->info)
    {
    }

    ~SimUsbHandle() override
    {
        if (auto state = state_.lock())
        {
            std::lock_guard lock(state->mutex);
            --device_->openHandles;
        }
    }

    const UsbDeviceInfo& Info() const override { return info_; }

    bool IsAttached() const override
    {
        auto state = state_.lock();
        if (!state)
        {
            return false;
        }
        std::lock_guard lock(state->mutex);
        return device_->attached;
    }

    UsbTransferResult ControlTransfer(const UsbControlSetup& setup, uint8_t* data, size_t capacity,
                                      std::chrono::milliseconds) override
    {
        if (setup.length > capacity || (setup.length > 0 && data == nullptr))
        {
            return {UsbStatus::InvalidParam, 0};
        }
        auto state = state_.lock();
        if (!state)
        {
            return {UsbStatus::NoDevice, 0};
        }
        bool unplugged = false;
        UsbTransferResult result;
        {
            std::lock_guard lock(state->mutex);
            SimUsbRequest entry;
            entry.locationId = info_.locationId;
            entry.setup = setup;
            if (!setup.IsDeviceToHost())
            {
                entry.dataOut.assign(data, data + setup.length);
            }
            SimUsbFaults& faults = device_->faults;
            if (device_->attached && faults.unplugOnNextRequest)
            {
                faults.unplugOnNextRequest = false;
                device_->attached = false;
                state->devices.erase(info_.locationId);
                unplugged = true;
            }
            if (!device_->attached)
            {
                result = {UsbStatus::NoDevice, 0};
            }
            else if (faults.stall)
            {
                result = {UsbStatus::Stall, 0};
            }
            else if (faults.timeout)
            {
                result = {UsbStatus::Timeout, 0};
            }
            else
            {
                result = Answer(*device_, setup, data);
            }
            entry.status = result.status;
            entry.transferred = result.transferred;
            state->log.push_back(std::move(entry));
        }
        if (unplugged)
        {
            PostEvent(state, UsbEvent::Departed, info_);
        }
        return result;
    }

private:
    std::weak_ptr<SimUsbBus::State> state_;
    std::shared_ptr<SimDevice> device_;
    const UsbDeviceInfo info_;
};
}  // namespace

SimUsbBus::SimUsbBus() : state_(std::make_shared<State>()) {}

SimUsbBus::~SimUsbBus()
{
    // Ends the event thread here, not in whoever drops the state last;
    // queued events are dropped.
    std::shared_ptr<DplDispatchQueue> events;
    {
        std::lock_guard lock(state_->mutex);
        events = std::move(state_->events);
    }
    events.reset();
}

uint32_t SimUsbBus::Plug(const SimUsbDeviceSpec& spec, uint32_t locationId)
{
    UsbDeviceInfo info;
    {
        std::lock_guard lock(state_->mutex);
        if (locationId == 0)
        {
            do
            {
                locationId = state_->nextLocation;
                state_->nextLocation += 0x10000;
            } while (state_->devices.count(locationId) != 0);
        }
        else if (state_->devices.count(locationId) != 0)
        {
            return 0;
        }
        auto device = std::make_shared<SimDevice>();
        device->spec = spec;
        info.locationId = locationId;
        info.vendorId = spec.vendorId;
        info.productId = spec.productId;
        info.release = spec.release;
        info.name = spec.productName;
        info.registryEntryId = state_->nextRegistryId++;
        info.serialNumberIndex = spec.serialNumber.empty() ? 0 : kSerialIndex;
        info.serialNumber = spec.serialNumber;
        info.interfaces = spec.interfaces;
        device->info = info;
        state_->devices[locationId] = std::move(device);
    }
    Post(UsbEvent::Arrived, info);
    return locationId;
}

bool SimUsbBus::Unplug(uint32_t locationId)
{
    UsbDeviceInfo info;
    {
        std::lock_guard lock(state_->mutex);
        auto it = state_->devices.find(locationId);
        if (it == state_->devices.end())
        {
            return false;
        }
        it->second->attached = false;
        info = it->second->info;
        state_->devices.erase(it);
    }
    Post(UsbEvent::Departed, info);
    return true;
}

bool SimUsbBus::SetFaults(uint32_t locationId, const SimUsbFaults& faults)
{
    std::lock_guard lock(state_->mutex);
    auto it = state_->devices.find(locationId);
    if (it == state_->devices.end())
    {
        return false;
    }
    it->second->faults = faults;
    return true;
}

std::optional<SimUsbBlock> SimUsbBus::Block(uint32_t locationId) const
{
    std::lock_guard lock(state_->mutex);
    auto it = state_->devices.find(locationId);
    if (it == state_->devices.end())
    {
        return std::nullopt;
    }
    return it->second->spec.block;
}

bool SimUsbBus::SetBlock(uint32_t locationId, const SimUsbBlock& block)
{
    std::lock_guard lock(state_->mutex);
    auto it = state_->devices.find(locationId);
    if (it == state_->devices.end())
    {
        return false;
    }
    it->second->spec.block = block;
    return true;
}

int SimUsbBus::OpenHandles(uint32_t locationId) const
{
    std::lock_guard lock(state_->mutex);
    auto it = state_->devices.find(locationId);
    return it == state_->devices.end() ? 0 : it->second->openHandles;
}

std::vector<SimUsbRequest> SimUsbBus::Requests() const
{
    std::lock_guard lock(state_->mutex);
    return state_->log;
}

void SimUsbBus::ClearRequests()
{
    std::lock_guard lock(state_->mutex);
    state_->log.clear();
}

void SimUsbBus::FlushNotifications()
{
    std::shared_ptr<DplDispatchQueue> events;
    {
        std::lock_guard lock(state_->mutex);
        events = state_->events;
    }
    if (!events || events->isCurrentWorker())
    {
        return;
    }
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> waited = done->get_future();
    events->dispatch([done] { done->set_value(); });
    waited.wait();
}

std::vector<UsbDeviceInfo> SimUsbBus::Devices(uint16_t vendorId)
{
    std::vector<UsbDeviceInfo> found;
    std::lock_guard lock(state_->mutex);
    for (const auto& [location, device] : state_->devices)
    {
        if (vendorId == 0 || device->info.vendorId == vendorId)
        {
            found.push_back(device->info);
        }
    }
    return found;
}

std::unique_ptr<UsbDeviceHandle> SimUsbBus::Open(uint32_t locationId, bool configure, UsbStatus* why)
{
    std::shared_ptr<SimDevice> device;
    {
        std::lock_guard lock(state_->mutex);
        auto it = state_->devices.find(locationId);
        UsbStatus status = UsbStatus::Ok;
        if (it == state_->devices.end())
        {
            status = UsbStatus::NoDevice;
        }
        else if (configure && it->second->spec.configurations == 0)
        {
            status = UsbStatus::IoError;
        }
        if (why)
        {
            *why = status;
        }
        if (status != UsbStatus::Ok)
        {
            return nullptr;
        }
        device = it->second;
        ++device->openHandles;
    }
    return std::make_unique<SimUsbHandle>(state_, std::move(device));
}

uint64_t SimUsbBus::AddListener(Listener listener)
{
    std::lock_guard lock(state_->listenerMutex);
    const uint64_t id = state_->nextListener++;
    state_->listeners[id] = std::move(listener);
    return id;
}

void SimUsbBus::RemoveListener(uint64_t id)
{
    std::lock_guard lock(state_->listenerMutex);
    state_->listeners.erase(id);
}

void SimUsbBus::Post(UsbEvent event, const UsbDeviceInfo& info)
{
    PostEvent(state_, event, info);
}

}  // namespace tidemix::platform::sim
