#include "platform/sim/SimUsbBus.h"

#include <algorithm>
#include <future>
#include <map>
#include <mutex>

#include "platform/UsbStringDescriptor.h"
#include "portable-core/DplDispatchQueue.h"
#include "portable-core/DplDispatchTimer.h"

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
    std::unique_ptr<SimDfuDevice> dfu;  // null without a DFU interface
    bool attached = true;
    int openHandles = 0;
};

// A device that has left and is to come back at its location.
struct SimReturn
{
    SimUsbDeviceSpec spec;
    uint32_t locationId = 0;
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
    // Returns that wait for a delay, or for ReturnHeldDevices(). Under mutex.
    std::vector<std::unique_ptr<DplDispatchTimer>> returnTimers;
    std::vector<SimReturn> heldReturns;
    std::map<uint32_t, std::vector<std::vector<uint8_t>>> manifested;
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

// Adds the device; nullopt if the location is taken (0: the next free one).
std::optional<UsbDeviceInfo> AddDevice(SimUsbBus::State& state, const SimUsbDeviceSpec& spec,
                                       uint32_t locationId)
{
    std::lock_guard lock(state.mutex);
    if (locationId == 0)
    {
        do
        {
            locationId = state.nextLocation;
            state.nextLocation += 0x10000;
        } while (state.devices.count(locationId) != 0);
    }
    else if (state.devices.count(locationId) != 0)
    {
        return std::nullopt;
    }
    auto device = std::make_shared<SimDevice>();
    device->spec = spec;
    UsbDeviceInfo& info = device->info;
    info.locationId = locationId;
    info.vendorId = spec.vendorId;
    info.productId = spec.productId;
    info.release = spec.release;
    info.name = spec.productName;
    info.registryEntryId = state.nextRegistryId++;
    info.serialNumberIndex = spec.serialNumber.empty() ? 0 : kSerialIndex;
    info.serialNumber = spec.serialNumber;
    info.interfaces = spec.interfaces;
    if (const int number = spec.DfuInterface(); number >= 0 && spec.dfuProductId != 0)
    {
        device->dfu = std::make_unique<SimDfuDevice>(spec.InDfuMode(), static_cast<uint8_t>(number),
                                                     spec.dfuFaults, spec.dfuTiming, spec.firmware);
    }
    state.devices[locationId] = device;
    return info;
}

void Return(const std::shared_ptr<SimUsbBus::State>& state, const SimReturn& back)
{
    if (auto info = AddDevice(*state, back.spec, back.locationId))
    {
        PostEvent(state, UsbEvent::Arrived, *info);
    }
}

// Brings a device back after its delay, on the event thread, so that its
// arrival follows its departure; a held one waits for ReturnHeldDevices().
void ScheduleReturn(const std::shared_ptr<SimUsbBus::State>& state, SimReturn back)
{
    const auto delay = back.spec.dfuTiming.returnDelay;
    std::lock_guard lock(state->mutex);
    if (!state->events)
    {
        return;
    }
    if (delay == SimDfuTiming::kHeld)
    {
        state->heldReturns.push_back(std::move(back));
        return;
    }
    std::weak_ptr<SimUsbBus::State> weak = state;
    auto task = [weak, back]
    {
        if (auto alive = weak.lock())
        {
            Return(alive, back);
        }
    };
    if (delay.count() <= 0)
    {
        state->events->dispatch(std::move(task));
        return;
    }
    state->returnTimers.push_back(std::make_unique<DplDispatchTimer>(
        state->events, static_cast<float>(delay.count()) / 1000.0f, task, false, true));
}

// Takes the device off the bus, under the state's lock, and tells what
// comes back in its place, if anything.
std::optional<SimReturn> Leave(SimUsbBus::State& state, SimDevice& device, SimDfuDevice::Leave why)
{
    device.attached = false;
    auto it = state.devices.find(device.info.locationId);
    if (it != state.devices.end() && it->second.get() == &device)
    {
        state.devices.erase(it);
    }
    const SimUsbDeviceSpec& spec = device.spec;
    if (why == SimDfuDevice::Leave::Detach && !spec.dfuFaults.staysAwayAfterDetach)
    {
        return SimReturn{spec.AsDfuMode(), device.info.locationId};
    }
    if (why == SimDfuDevice::Leave::Manifest)
    {
        const std::vector<uint8_t>& image = device.dfu->Firmware();
        state.manifested[device.info.locationId].push_back(image);
        if (!spec.dfuFaults.staysAwayAfterManifest)
        {
            SimReturn back{spec.AsRuntimeMode(), device.info.locationId};
            back.spec.firmware = image;
            if (const int version = SimDfuDevice::ImageVersion(image); version >= 0)
            {
                back.spec.release = static_cast<uint16_t>(version);
            }
            return back;
        }
    }
    return std::nullopt;
}

// A device-to-host answer cut to the bytes the faults allow.
UsbTransferResult LimitReply(const SimUsbFaults& faults, const UsbControlSetup& setup,
                             UsbTransferResult result)
{
    if (!result.Ok() || !setup.IsDeviceToHost() || faults.replyBytes < 0)
    {
        return result;
    }
    if (static_cast<size_t>(faults.replyBytes) > setup.length)
    {
        return {UsbStatus::Overflow, 0};
    }
    result.transferred = std::min<size_t>(result.transferred, static_cast<size_t>(faults.replyBytes));
    return result;
}

// What the DFU state machine answers; called under the state's lock.
SimDfuDevice::Answer AnswerDfu(SimDevice& device, const UsbControlSetup& setup, uint8_t* data)
{
    // The machine answers into a buffer of its own, so that a reply cut
    // short by the faults leaves the rest of the caller's buffer alone.
    std::vector<uint8_t> buffer(setup.length);
    if (!setup.IsDeviceToHost())
    {
        std::copy(data, data + setup.length, buffer.begin());
    }
    SimDfuDevice::Answer answer = device.dfu->Handle(setup, buffer.data());
    answer.result = LimitReply(device.faults, setup, answer.result);
    if (setup.IsDeviceToHost())
    {
        std::copy(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(answer.result.transferred),
                  data);
    }
    return answer;
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
    const UsbTransferResult result =
        LimitReply(device.faults, setup, {UsbStatus::Ok, std::min<size_t>(reply.size(), setup.length)});
    std::copy(reply.begin(), reply.begin() + static_cast<std::ptrdiff_t>(result.transferred), data);
    return result;
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
        std::optional<SimReturn> back;
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
            else if (device_->dfu && device_->dfu->Takes(setup))
            {
                const SimDfuDevice::Answer answer = AnswerDfu(*device_, setup, data);
                result = answer.result;
                if (answer.leave != SimDfuDevice::Leave::No)
                {
                    back = Leave(*state, *device_, answer.leave);
                    unplugged = true;
                }
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
        if (back)
        {
            ScheduleReturn(state, std::move(*back));
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
    std::vector<std::unique_ptr<DplDispatchTimer>> timers;
    {
        std::lock_guard lock(state_->mutex);
        events = std::move(state_->events);
        timers = std::move(state_->returnTimers);
    }
    // Stopped outside the lock, which their callbacks take.
    timers.clear();
    events.reset();
}

uint32_t SimUsbBus::Plug(const SimUsbDeviceSpec& spec, uint32_t locationId)
{
    const std::optional<UsbDeviceInfo> info = AddDevice(*state_, spec, locationId);
    if (!info)
    {
        return 0;
    }
    Post(UsbEvent::Arrived, *info);
    return info->locationId;
}

void SimUsbBus::ReturnHeldDevices()
{
    std::vector<SimReturn> held;
    {
        std::lock_guard lock(state_->mutex);
        held.swap(state_->heldReturns);
    }
    for (const SimReturn& back : held)
    {
        Return(state_, back);
    }
}

std::vector<std::vector<uint8_t>> SimUsbBus::ManifestedImages(uint32_t locationId) const
{
    std::lock_guard lock(state_->mutex);
    auto it = state_->manifested.find(locationId);
    return it == state_->manifested.end() ? std::vector<std::vector<uint8_t>>{} : it->second;
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
