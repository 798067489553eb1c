#include "FirmwareUpdateDemo.h"

#include <chrono>
#include <cstdio>
#include <fstream>
#include <thread>
#include <vector>

#include "control/DRMXFirmwareUpdate.h"
#include "control/DRMXInput.h"
#include "control/DRMXManager.h"
#include "control/DRMXOutput.h"
#include "microphones/DRMXFirmwareVersion.h"
#include "microphones/IOKitUsb.h"
#include "platform/Platform.h"
#include "platform/sim/SimPlatform.h"
#include "portable-core/DRAVPropertyNames.h"

namespace
{
using namespace DRMX_Settings;
using tidemix::platform::sim::SimDeviceSpec;
using tidemix::platform::sim::SimUsbDeviceSpec;

constexpr char kSerial[] = "FWDEMO01";
constexpr char kMicrophoneUid[] = "usb-Drovane_Reed_FWDEMO01-00";

// The update's waits (seconds between steps, 50 ms polls) run ten times
// faster than real time: the simulated microphone needs no more.
class FastClock : public DRMXFirmwareUpdateClock
{
public:
    void SleepFor(std::chrono::milliseconds duration) override { std::this_thread::sleep_for(duration / 10); }
};

// The model the file's DFU suffix names, as its run-time product id; a Reed 1
// for a file for any product, or one without a suffix.
uint16_t ModelOf(const std::string& file)
{
    std::ifstream in(file, std::ios::binary | std::ios::ate);
    const auto size = static_cast<long long>(in ? static_cast<long long>(in.tellg()) : 0);
    if (size < 16)
    {
        return 0x0B21;
    }
    uint8_t suffix[16] = {};
    in.seekg(size - 16);
    in.read(reinterpret_cast<char*>(suffix), 16);
    const uint16_t product = static_cast<uint16_t>(suffix[2] | (suffix[3] << 8));
    if (product >= 0x0B21 && product <= 0x0B26)
    {
        return product % 2 == 1 ? product : static_cast<uint16_t>(product - 1);
    }
    return 0x0B21;
}

// The release number the microphone reports on the bus; -1 while it is away.
int64_t DeviceVersion(uint32_t location)
{
    int64_t version = -1;
    IOKit::EnumerateDevices(kDrovaneVendorId,
                            [&](const IOKit::Device& device)
                            {
                                if (device.locationId == location)
                                {
                                    version = device.release;
                                    return true;
                                }
                                return false;
                            });
    return version;
}

std::shared_ptr<DRMXOutput> MakeOutput(DRMXManager& manager, const std::string& uid)
{
    DRMXOutputSelector selector;
    selector.SetType(kOutputTypeHardware);
    selector.SetHardwareId(uid);
    auto output = std::make_shared<DRMXOutput>(selector);
    output->SetIntProperty(kPropertyAudioBufferSizeFrameCount, manager.GetAudioBufferFrameCount());
    return output;
}

// The microphone in both mixes, each to a simulated speaker.
void LayOut(DRMXManager& manager)
{
    for (const auto& [type, speaker] :
         {std::pair{kMixerLocal, "fw-phones"}, std::pair{kMixerStream, "fw-stream"}})
    {
        const auto mix = manager.GetMixerForType(type);
        DRMXInputSelector selector;
        selector.SetType(kInputTypeHardware);
        selector.SetHardwareId(kMicrophoneUid);
        selector.SetMixerNodeID(1);
        std::shared_ptr<DRMXInputInterface> input;
        if (manager.CreateInput(selector, &input).Succeeded())
        {
            mix->AddInput(input);
        }
        mix->SetOutput(MakeOutput(manager, speaker));
        mix->ConfigureMixerNodes();
    }
}

std::string VersionText(int64_t version)
{
    return version < 0 ? "(away)" : DRMXFirmwareVersion(version).ToString();
}
}  // namespace

int RunFirmwareUpdate(const std::string& file)
{
    auto platform = std::make_shared<tidemix::platform::sim::SimPlatform>();
    tidemix::platform::Platform::Use(platform);
    DRMXFirmwareUpdate::SetDefaultClock(std::make_shared<FastClock>());

    const uint16_t model = ModelOf(file);
    SimUsbDeviceSpec usb = SimUsbDeviceSpec::Microphone(model, kSerial);
    usb.release = 0x100;
    const uint32_t location = platform->UsbDevices().Plug(usb);
    SimDeviceSpec audio = SimDeviceSpec::Duplex(kMicrophoneUid, usb.productName);
    audio.usb = tidemix::platform::UsbIdentity{kDrovaneVendorId, model, location};
    platform->World().AddDevice(audio);
    platform->World().AddDevice(SimDeviceSpec::Speaker("fw-phones", "Headphones"));
    platform->World().AddDevice(SimDeviceSpec::Speaker("fw-stream", "Stream"));
    printf("simulated %s (product 0x%04x) at location 0x%08x, firmware %s\n", usb.productName.c_str(), model,
           location, VersionText(DeviceVersion(location)).c_str());

    DRMXManager* manager = DRMXManager::GetDRMXManager();
    const DRAVResult init = manager->Init("");
    if (!init.Succeeded())
    {
        fprintf(stderr, "the manager did not start: %s\n", init.toString().c_str());
        return 1;
    }
    manager->UpdateMainMicrophoneCache();
    LayOut(*manager);
    const DRAVResult started = manager->StartMixing();
    printf("mixing: %s\n", started.Succeeded() ? "running" : started.toString().c_str());

    const auto update = manager->GetFirmwareUpdater("");
    update->SetDeviceSelector(manager->GetMainMicrophoneInput());
    const int64_t fileVersion = update->GetFirmwareVersionFromFile(file);
    printf("file %s: firmware %s\n", file.c_str(), DRMXFirmwareVersion(fileVersion).ToString().c_str());

    const DRAVResult result = update->DoFirmwareUpdate(file);
    int code = 0;
    if (!result.Succeeded())
    {
        printf("update refused: %s; mixing %s\n", result.toString().c_str(),
               manager->IsMixing() ? "goes on" : "stopped");
        code = 1;
    }
    else
    {
        int lastState = -1;
        int lastProgress = -1;
        int state = update->GetDfuState();
        // The application polls; the update ends in 5 (done) or 6 (failed).
        for (; state != kDfuStateDone && state != kDfuStateFailed; state = update->GetDfuState())
        {
            const int progress = update->GetFirmwareUpdateProgress();
            if (state != lastState || progress != lastProgress)
            {
                printf("state %d, %d %%, mixing %s\n", state, progress, manager->IsMixing() ? "on" : "off");
                lastState = state;
                lastProgress = progress;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        printf("state %d, %d %%\n", state, update->GetFirmwareUpdateProgress());
        // Mixing comes back on the main queue once the update is done.
        for (int i = 0; i < 200 && state == kDfuStateDone && !manager->IsMixing(); ++i)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        const int64_t after = DeviceVersion(location);
        printf("microphone firmware after: %s; mixing %s\n", VersionText(after).c_str(),
               manager->IsMixing() ? "running" : "stopped");
        if (state != kDfuStateDone)
        {
            printf("update failed (state %d)\n", state);
            code = 1;
        }
        else if (after != fileVersion)
        {
            printf("the microphone reports %s, not the file's %s\n", VersionText(after).c_str(),
                   DRMXFirmwareVersion(fileVersion).ToString().c_str());
            code = 1;
        }
    }

    manager->StopMixing();
    for (const auto type : {kMixerLocal, kMixerStream})
    {
        manager->GetMixerForType(type)->EraseAllChannels();
    }
    manager->Deinit();
    DRMXFirmwareUpdate::SetDefaultClock(nullptr);
    tidemix::platform::Platform::Use(nullptr);
    printf("%s\n", code == 0 ? "firmware update done" : "firmware update not done");
    return code;
}
