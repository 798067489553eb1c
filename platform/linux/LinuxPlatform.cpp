#include "platform/linux/LinuxPlatform.h"

#include <string>

#include "platform/EmptyAudioSystem.h"
#include "platform/EmptyUsbBus.h"
#include "platform/linux/LibUsbBus.h"
#include "platform/linux/LinuxApplications.h"
#include "platform/linux/RealtimeScheduling.h"
#include "platform/pipewire/PipeWireAudioSystem.h"
#include "portable-core/DRAVLog.h"

namespace tidemix::platform
{
namespace linuxos
{
LinuxPlatform::LinuxPlatform()
{
    std::string whyNot;
    std::unique_ptr<pipewire::PipeWireAudioSystem> pipeWire =
        pipewire::PipeWireAudioSystem::Connect(std::string(), &whyNot);
    std::unique_ptr<Applications> running = pipeWire ? pipeWire->CreateApplications() : nullptr;
    apps_ = std::make_unique<LinuxApplications>(std::move(running));
    audio_ = std::move(pipeWire);
    if (audio_)
    {
        DRAVLogLine(kDbgPrintLevelInfo, "linux platform: audio devices from PipeWire");
    }
    else
    {
        // Never the simulation in its place: the host must see that audio is missing.
        DRAVLogPrintf(kDbgPrintLevelWarning, "linux platform: no audio devices: %s", whyNot.c_str());
        audio_ = std::make_unique<EmptyAudioSystem>();
    }
}

UsbBus& LinuxPlatform::Usb()
{
    std::call_once(usbOnce_,
                   [this]
                   {
                       std::string whyNot;
                       usb_ = LibUsbBus::Create(&whyNot);
                       if (usb_)
                       {
                           DRAVLogLine(kDbgPrintLevelInfo, "linux platform: USB devices from libusb");
                       }
                       else
                       {
                           DRAVLogPrintf(kDbgPrintLevelWarning, "linux platform: no USB devices: %s",
                                         whyNot.c_str());
                           usb_ = std::make_unique<EmptyUsbBus>();
                       }
                   });
    return *usb_;
}

RealtimeGrant LinuxPlatform::RequestRealtimeForCurrentThread()
{
    // One for the process, so that a refusal is logged once however many
    // platforms and audio threads there are.
    static RealtimeScheduling scheduling;
    return scheduling.RequestForCurrentThread();
}

LinuxPlatform::~LinuxPlatform() = default;
}  // namespace linuxos
}  // namespace tidemix::platform
