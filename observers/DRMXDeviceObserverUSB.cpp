#include "observers/DRMXDeviceObserverUSB.h"

#include <algorithm>
#include <mutex>
#include <optional>

#include "microphones/DRMXMicrophoneHelper.h"
#include "microphones/DRMXMicrophoneHelperInfo.h"
#include "microphones/DRMXMicrophoneReed.h"
#include "microphones/DRMXMicrophoneReedPro.h"
#include "microphones/IOKitUsb.h"
#include "platform/Platform.h"
#include "portable-core/DplSharedSlot.h"
#include "settings/DRMXSettingsTypes.h"

namespace
{
constexpr uint16_t kFirstProductId = 0x0B21;
constexpr uint16_t kLastReedProductId = 0x0B24;
constexpr uint16_t kLastProductId = 0x0B26;

// True or false for a control object of either model; nothing for others.
std::optional<bool> IsDFU(DRMXMicrophoneInterface* microphone)
{
    const auto info = DRMXMicrophoneHelperInfo::Of(microphone);
    return info ? std::optional<bool>(info->dfu) : std::nullopt;
}

std::mutex gSharedMutex;
std::shared_ptr<DRMXDeviceObserverUSB> gUsbObserver;
}  // namespace

struct DRMXDeviceObserverUSB::Impl
{
    explicit Impl(DRMXDeviceObserverUSB* owner) : owner(owner)
    {
        microphones.Store(std::make_shared<const MicrophoneList>());
    }

    ~Impl()
    {
        const auto alive = platform.lock();
        if (alive && listener != 0)
        {
            alive->Usb().RemoveListener(listener);
        }
    }

    // Plug events run on the main queue while the owner may be going away:
    // they hold this lock and find owner null once it has gone.
    std::mutex ownerMutex;
    DRMXDeviceObserverUSB* owner;
    std::atomic<bool> initialized{false};
    DplSharedSlot<const MicrophoneList> microphones;
    // Rebuilds come from the main queue and from Init; one at a time.
    std::mutex rebuildMutex;
    std::atomic<uint64_t> rebuilds{0};
    // Weak: the observer outlives the manager, and must not keep a platform
    // the host has let go (with its threads) alive until the process ends.
    std::weak_ptr<tidemix::platform::Platform> platform;
    uint64_t listener = 0;
};

DRMXDeviceObserverUSB::DRMXDeviceObserverUSB()
    : DRMXDeviceObserverBase("Device Observer USB"), impl_(std::make_shared<Impl>(this))
{
    impl_->platform = tidemix::platform::Platform::Current();
}

DRMXDeviceObserverUSB::~DRMXDeviceObserverUSB()
{
    std::lock_guard owner(impl_->ownerMutex);
    impl_->owner = nullptr;
}

DRAVResult DRMXDeviceObserverUSB::Init()
{
    impl_->initialized.store(true);
    ArmDeviceNotifications();
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXDeviceObserverUSB::Deinit()
{
    return DRAVResult(kDRAVResultOk);
}

bool DRMXDeviceObserverUSB::IsInitialized()
{
    return impl_->initialized.load();
}

DRAVResult DRMXDeviceObserverUSB::ArmDeviceNotifications()
{
    if (impl_->listener != 0)
    {
        return DRAVResult(kDRAVResultOk);
    }
    const std::shared_ptr<tidemix::platform::Platform> platform = impl_->platform.lock();
    if (!platform)
    {
        return DRAVResult(kDRAVResultErrUnknown);
    }
    std::weak_ptr<Impl> weak = impl_;
    std::weak_ptr<DplDispatchQueue> mainQueue = platform->MainQueue();
    // On the bus's thread: only post. Each arrival or departure of anything
    // on the bus rebuilds; the rebuild itself picks out the microphones.
    impl_->listener = platform->Usb().AddListener(
        [weak, mainQueue](tidemix::platform::UsbEvent, const tidemix::platform::UsbDeviceInfo& info)
        {
            if (info.vendorId != DRMX_Settings::kDrovaneVendorId)
            {
                return;
            }
            if (auto queue = mainQueue.lock())
            {
                queue->dispatch(
                    [weak]
                    {
                        auto impl = weak.lock();
                        if (!impl)
                        {
                            return;
                        }
                        std::lock_guard owner(impl->ownerMutex);
                        if (impl->owner != nullptr)
                        {
                            impl->owner->rebuildDeviceList();
                            if (impl->initialized.load())
                            {
                                impl->owner->NotifyChanges();
                            }
                        }
                    });
            }
        });
    rebuildDeviceList();
    if (impl_->initialized.load())
    {
        NotifyChanges();
    }
    return DRAVResult(kDRAVResultOk);
}

void DRMXDeviceObserverUSB::rebuildDeviceList()
{
    std::lock_guard rebuild(impl_->rebuildMutex);
    // Readers keep the old list until the new one is complete.
    auto microphones = std::make_shared<MicrophoneList>();
    IOKit::EnumerateDevices(
        DRMX_Settings::kDrovaneVendorId,
        [&](const IOKit::Device& device)
        {
            if (device.productId >= kFirstProductId && device.productId <= kLastReedProductId)
            {
                microphones->push_back(std::make_shared<DRMXMicrophoneHelper<DRMXMicrophoneReed>>(
                    device.locationId, device.vendorId, device.productId, device.serialNumber));
            }
            else if (device.productId > kLastReedProductId && device.productId <= kLastProductId)
            {
                microphones->push_back(std::make_shared<DRMXMicrophoneHelper<DRMXMicrophoneReedPro>>(
                    device.locationId, device.vendorId, device.productId, device.serialNumber));
            }
            return false;  // the walk never stops early
        });
    impl_->microphones.Store(std::move(microphones));
    impl_->rebuilds.fetch_add(1);
}

std::shared_ptr<const DRMXDeviceObserverUSB::MicrophoneList> DRMXDeviceObserverUSB::GetMicrophones() const
{
    return impl_->microphones.Load();
}

uint64_t DRMXDeviceObserverUSB::RebuildCount() const
{
    return impl_->rebuilds.load();
}

bool DRMXDeviceObserverUSB::IsAnyMicrophoneConnected() const
{
    return !GetMicrophones()->empty();
}

bool DRMXDeviceObserverUSB::IsAnyAudioMicrophoneConnected() const
{
    const auto list = GetMicrophones();
    return std::any_of(list->begin(), list->end(),
                       [](const auto& microphone) { return IsDFU(microphone.get()) == false; });
}

bool DRMXDeviceObserverUSB::IsAnyDFUMicrophoneConnected() const
{
    const auto list = GetMicrophones();
    return std::any_of(list->begin(), list->end(),
                       [](const auto& microphone) { return IsDFU(microphone.get()) == true; });
}

std::weak_ptr<DRMXMicrophoneInterface> DRMXDeviceObserverUSB::GetFirstDFUMicrophoneInterface() const
{
    for (const auto& microphone : *GetMicrophones())
    {
        if (IsDFU(microphone.get()) == true)
        {
            return microphone;
        }
    }
    return {};
}

std::weak_ptr<DRMXMicrophoneInterface> DRMXDeviceObserverUSB::GetMicrophoneInterfaceWithHardwareID(
    const std::string& id) const
{
    for (const auto& microphone : *GetMicrophones())
    {
        const std::string serial = microphone->GetSerialNumber();
        if (serial.empty() || id.find(serial) != std::string::npos)
        {
            return microphone;
        }
    }
    return {};
}

std::shared_ptr<DRMXDeviceObserverUSB> DRMXDeviceObserverUSB::Shared()
{
    std::lock_guard lock(gSharedMutex);
    return gUsbObserver;
}

bool DRMXDeviceObserverUSB::MakeShared()
{
    const auto platform = tidemix::platform::Platform::Current();
    std::shared_ptr<DRMXDeviceObserverUSB> former;
    {
        std::lock_guard lock(gSharedMutex);
        // One per process; a host (or a test) that changes platforms gets one
        // for the platform in use, since the old one watches the old bus.
        if (gUsbObserver && gUsbObserver->impl_->platform.lock() == platform)
        {
            return false;
        }
        former = std::move(gUsbObserver);
        gUsbObserver = std::make_shared<DRMXDeviceObserverUSB>();
    }
    return true;
}
