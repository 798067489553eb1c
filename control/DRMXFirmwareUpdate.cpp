#include "control/DRMXFirmwareUpdate.h"

#include <array>
#include <fstream>
#include <mutex>
#include <thread>

#include "control/DRMXPlatformHooks.h"
#include "microphones/DRMXDfuFileCheck.h"
#include "microphones/DRMXMicrophoneHelperInfo.h"
#include "microphones/IOKitDfu.h"
#include "microphones/IOKitUsb.h"
#include "platform/Platform.h"
#include "portable-core/DRAVLog.h"
#include "portable-core/DplDispatchQueue.h"
#include "settings/DRMXSettingsTypes.h"

using std::chrono::milliseconds;

namespace
{
class SystemClock : public DRMXFirmwareUpdateClock
{
public:
    void SleepFor(milliseconds duration) override { std::this_thread::sleep_for(duration); }
};

std::mutex gDefaultClockMutex;
std::shared_ptr<DRMXFirmwareUpdateClock> gDefaultClock;

// The worker's failures: they end in dfuState 6 and go nowhere else.
DRAVResult WorkerFailure()
{
    return DRAVResult(kDRAVResultCustomTypeIOKit, 2);
}

constexpr int kFindRounds = 50;        // of 100 ms: 5 seconds
constexpr int kStatusPollLimit = 100;  // of 50 ms: 5 seconds
constexpr milliseconds kRoundWait{100};
constexpr milliseconds kPollWait{50};

bool IsRuntimeId(uint16_t productId)
{
    return productId == 0x0B21 || productId == 0x0B23 || productId == 0x0B25;
}

bool IsDfuId(uint16_t productId)
{
    return productId == 0x0B22 || productId == 0x0B24 || productId == 0x0B26;
}

// Looks for a microphone at the location whose product id fits; nullopt when
// the listing itself failed.
std::optional<IOKit::Device> FindAtLocation(uint32_t locationId, bool (*fits)(uint16_t))
{
    std::optional<IOKit::Device> found;
    const int32_t status =
        IOKit::EnumerateDevices(DRMX_Settings::kDrovaneVendorId,
                                [&](const IOKit::Device& device)
                                {
                                    if (device.locationId == locationId && fits(device.productId))
                                    {
                                        found = device;
                                        return true;
                                    }
                                    return false;
                                });
    if (status != IOKit::kStatusSuccess)
    {
        return std::nullopt;
    }
    return found ? found : std::optional<IOKit::Device>(IOKit::Device{});
}
}  // namespace

std::shared_ptr<DRMXFirmwareUpdateClock> DRMXFirmwareUpdateClock::System()
{
    static const auto sClock = std::make_shared<SystemClock>();
    return sClock;
}

struct DRMXFirmwareUpdate::Impl
{
    explicit Impl(std::shared_ptr<DRMXFirmwareUpdateClock> clock) : clock(std::move(clock)) {}

    void SetState(int32_t value)
    {
        std::lock_guard lock(stateLock);
        state = value;
    }

    void SetProgress(int32_t value)
    {
        std::lock_guard lock(stateLock);
        progress = value;
    }

    // On the update's queue.
    void Run(const std::string& path, uint32_t locationId, bool inDfuMode)
    {
        clock->SleepFor(milliseconds(2000));
        DRAVResult result(kDRAVResultOk);
        if (!inDfuMode)
        {
            result = DetachMicInterface();
        }
        if (result.Succeeded())
        {
            result = OpenDFUInterface(locationId);
        }
        if (result.Succeeded())
        {
            result = DownloadFirmwareToDFUInterface(path);
        }
        if (result.Succeeded())
        {
            WaitForDFUDeviceDisconnect();
            WaitForMicInterface(locationId);
        }
        {
            // The device is gone or is another one now.
            std::lock_guard usb(usbLock);
            openedDevice.reset();
            controlObject.reset();
            usbDevice = nullptr;
        }
        if (!result.Succeeded())
        {
            result.LogError("firmware update");
            SetState(kDfuStateFailed);
            return;
        }
        if (const auto platform = tidemix::platform::Platform::Current())
        {
            // The update object may be gone by then: the manager's side needs none.
            platform->MainQueue()->dispatch([] { DRMXFirmwareUpdateBase::RestoreManager(); });
        }
    }

    DRAVResult DetachMicInterface()
    {
        clock->SleepFor(milliseconds(1000));
        std::lock_guard usb(usbLock);
        const int32_t found = IOKit::GetDFUInterface(usbDevice, dfuInterface);
        SetState(kDfuStateDetaching);
        if (found == IOKit::kStatusSuccess)
        {
            IOKit::DFUDetach(usbDevice, dfuInterface, 5000);
        }
        // The run-time device is leaving: its handle is used no more.
        usbDevice = nullptr;
        controlObject.reset();
        return DRAVResult(kDRAVResultOk);
    }

    DRAVResult OpenDFUInterface(uint32_t locationId)
    {
        std::lock_guard usb(usbLock);
        std::optional<IOKit::Device> device;
        for (int round = 0; round < kFindRounds; ++round)
        {
            device = FindAtLocation(locationId, IsDfuId);
            if (!device)
            {
                return WorkerFailure();
            }
            if (device->productId != 0)
            {
                break;
            }
            clock->SleepFor(kRoundWait);
        }
        if (!device || device->productId == 0)
        {
            return DRAVResult(kDRAVResultCustomTypeIOKit, 2, "no DFU device came at location 0x%08x",
                              locationId);
        }
        if (const auto ref = IOKit::GetDeviceRefAtLocation(device->vendorId, device->productId, locationId))
        {
            openedDevice = IOKit::GetDeviceInterfaceRefForDeviceRefAndOpenDevice(*ref, true);
        }
        usbDevice = openedDevice.get();
        if (usbDevice == nullptr)
        {
            return DRAVResult(kDRAVResultErrFirmwareInterface);
        }
        IOKit::GetDFUInterface(usbDevice, dfuInterface);
        return DRAVResult(kDRAVResultOk);
    }

    // Polls until the block is taken (dfuDNLOAD-IDLE). A device that stays
    // busy past the limit fails like one in dfuERROR rather than hang the
    // update.
    bool WaitForBlockTaken()
    {
        for (int poll = 0; poll < kStatusPollLimit; ++poll)
        {
            IOKit::DFUStatus status;
            IOKit::DFUGetStatus(usbDevice, dfuInterface, status);
            if (status.state == IOKit::kDFUStateDownloadIdle)
            {
                return true;
            }
            if (status.state == IOKit::kDFUStateError)
            {
                return false;
            }
            clock->SleepFor(kPollWait);
        }
        return false;
    }

    DRAVResult DownloadFirmwareToDFUInterface(const std::string& path)
    {
        std::ifstream file(path, std::ios::binary | std::ios::ate);
        SetState(kDfuStateDownloading);
        if (!file)
        {
            return WorkerFailure();
        }
        const auto size = static_cast<int64_t>(file.tellg());
        const int64_t total = size - static_cast<int64_t>(kSuffixSize);
        file.seekg(0);
        std::array<uint8_t, kBlockSize> chunk{};
        int64_t remaining = total;
        uint16_t block = 0;
        while (remaining > 0)
        {
            const auto length = static_cast<uint32_t>(std::min<int64_t>(remaining, kBlockSize));
            if (!file.read(reinterpret_cast<char*>(chunk.data()), length))
            {
                return WorkerFailure();
            }
            {
                std::lock_guard usb(usbLock);
                uint32_t moved = length;
                if (IOKit::DFUDownload(usbDevice, dfuInterface, block, moved, chunk.data()) !=
                        IOKit::kStatusSuccess ||
                    !WaitForBlockTaken())
                {
                    return DRAVResult(kDRAVResultCustomTypeIOKit, 2, "block %u was not taken", block);
                }
            }
            SetProgress(static_cast<int32_t>((total - remaining) * 100 / total));
            block = static_cast<uint16_t>(block + 1);
            remaining -= length;
        }
        std::lock_guard usb(usbLock);
        uint32_t none = 0;
        if (IOKit::DFUDownload(usbDevice, dfuInterface, block, none, nullptr) != IOKit::kStatusSuccess)
        {
            return DRAVResult(kDRAVResultCustomTypeIOKit, 2, "the end of the image was not taken");
        }
        return DRAVResult(kDRAVResultOk);
    }

    // Until the device has left (a device gone reads as dfuERROR) or is idle
    // again; one that does neither is left after the same five seconds as
    // the other waits, and the update goes on.
    void WaitForDFUDeviceDisconnect()
    {
        SetState(kDfuStateWaitingForDisconnect);
        for (int poll = 0; poll < kStatusPollLimit; ++poll)
        {
            {
                std::lock_guard usb(usbLock);
                IOKit::DFUStatus status;
                IOKit::DFUGetStatus(usbDevice, dfuInterface, status);
                if (status.state == IOKit::kDFUStateIdle || status.state == IOKit::kDFUStateError)
                {
                    return;
                }
            }
            clock->SleepFor(kPollWait);
        }
    }

    void WaitForMicInterface(uint32_t locationId)
    {
        for (int round = 0; round < kFindRounds; ++round)
        {
            const auto device = FindAtLocation(locationId, IsRuntimeId);
            if (device && device->productId != 0)
            {
                break;
            }
            clock->SleepFor(kRoundWait);
        }
        SetState(kDfuStateDone);
    }

    const std::shared_ptr<DRMXFirmwareUpdateClock> clock;
    // usbLock guards the device and every DFU request; stateLock the state
    // and the progress. Where both are held, usbLock comes first.
    std::recursive_mutex usbLock;
    std::shared_ptr<DRMXMicrophoneInterface> controlObject;  // keeps the run-time handle alive
    IOKit::DeviceInterface openedDevice;                     // the DFU device, opened here
    tidemix::platform::UsbDeviceHandle* usbDevice = nullptr;
    uint16_t dfuInterface = 0;
    std::recursive_mutex stateLock;
    int32_t state = kDfuStateIdle;
    int32_t progress = 0;
};

DRMXFirmwareUpdate::DRMXFirmwareUpdate(std::shared_ptr<DRMXFirmwareUpdateClock> clock)
{
    if (!clock)
    {
        std::lock_guard lock(gDefaultClockMutex);
        clock = gDefaultClock ? gDefaultClock : DRMXFirmwareUpdateClock::System();
    }
    impl_ = std::make_shared<Impl>(std::move(clock));
    queue_ = std::make_unique<DplDispatchQueue>("drmx.microphone.firmware-update", 1);
}

DRMXFirmwareUpdate::~DRMXFirmwareUpdate()
{
    queue_.reset();
}

void DRMXFirmwareUpdate::SetDefaultClock(std::shared_ptr<DRMXFirmwareUpdateClock> clock)
{
    std::lock_guard lock(gDefaultClockMutex);
    gDefaultClock = std::move(clock);
}

DRAVResult DRMXFirmwareUpdate::DoFirmwareUpdate(const std::string& path)
{
    impl_->SetState(kDfuStateStarted);
    const DRMX_Settings::DRMXInputSelector selector = GetDeviceSelector();
    const std::shared_ptr<DRMXMicrophoneInterface> control =
        GetMicrophoneHelperPlatformSpecific(selector.GetHardwareId()).lock();
    const std::optional<DRMXMicrophoneHelperInfo> info = DRMXMicrophoneHelperInfo::Of(control.get());

    // A file that can't be read or doesn't fit the microphone is refused
    // while the microphone still works: nothing has stopped yet.
    if (info)
    {
        const DRMXDfuFileCheck check(info->vendorId, info->RuntimeProductId(), info->DfuProductId());
        const DRMXDfuFileCheck::Problem problem = check.Check(path);
        if (problem != DRMXDfuFileCheck::Problem::None)
        {
            impl_->SetState(kDfuStateFailed);
            return DRAVResult(
                problem == DRMXDfuFileCheck::Problem::CannotOpen ? kDRAVResultErrCouldNotOpenFile
                                                                 : kDRAVResultErrInvalidFormat,
                "firmware file \"%s\" refused: %s", path.c_str(), DRMXDfuFileCheck::Describe(problem));
        }
    }
    else if (!std::ifstream(path, std::ios::binary))
    {
        impl_->SetState(kDfuStateFailed);
        return DRAVResult(kDRAVResultErrCouldNotOpenFile, "firmware file \"%s\"", path.c_str());
    }

    PrepareFirmwareUpdate();
    if (!info || info->device == nullptr)
    {
        return DRAVResult(kDRAVResultErrFirmwareInterface);
    }
    {
        std::lock_guard usb(impl_->usbLock);
        impl_->controlObject = control;
        impl_->usbDevice = info->device;
    }
    const std::shared_ptr<Impl> impl = impl_;
    const uint32_t locationId = info->locationId;
    const bool inDfuMode = info->dfu;
    queue_->dispatch([impl, path, locationId, inDfuMode] { impl->Run(path, locationId, inDfuMode); });
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXFirmwareUpdate::DoFirmwareUpdate(const unsigned char*, unsigned int)
{
    impl_->SetProgress(0);
    return DRAVResult(kDRAVResultErrNotImplemented);
}

int32_t DRMXFirmwareUpdate::GetFirmwareUpdateProgress()
{
    std::lock_guard lock(impl_->stateLock);
    return impl_->progress;
}

int32_t DRMXFirmwareUpdate::GetDfuState()
{
    std::lock_guard lock(impl_->stateLock);
    return impl_->state;
}
