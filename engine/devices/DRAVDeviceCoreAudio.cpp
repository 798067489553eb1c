#include "engine/devices/DRAVDeviceCoreAudio.h"

#include <algorithm>
#include <cctype>
#include <mutex>

#include "platform/Platform.h"
#include "settings/DRMXSettingsTypes.h"

namespace
{
using tidemix::platform::AudioDeviceInfo;
using tidemix::platform::AudioTransport;
using tidemix::platform::TerminalKind;

std::mutex gUsbLookupLock;
DRAVDeviceCoreAudio::UsbNameLookup gUsbLookup;

bool ContainsIgnoringCase(const std::string& text, const std::string& word)
{
    auto lower = [](unsigned char c) { return static_cast<char>(std::tolower(c)); };
    auto found =
        std::search(text.begin(), text.end(), word.begin(), word.end(),
                    [&](char a, char b)
                    { return lower(static_cast<unsigned char>(a)) == lower(static_cast<unsigned char>(b)); });
    return found != text.end();
}

uint32_t StreamCount(const AudioDeviceInfo& device, AudioObjectPropertyScope scope)
{
    if (scope == kAudioObjectPropertyScopeInput)
    {
        return device.inputStreams;
    }
    if (scope == kAudioObjectPropertyScopeOutput)
    {
        return device.outputStreams;
    }
    return device.inputStreams + device.outputStreams;
}

int32_t TerminalFromKind(TerminalKind kind)
{
    switch (kind)
    {
        case TerminalKind::Headphone:
            return kDRAVDeviceTerminalHeadphone;
        case TerminalKind::Speaker:
            return kDRAVDeviceTerminalSpeaker;
        case TerminalKind::Microphone:
            return kDRAVDeviceTerminalMicrophone;
        case TerminalKind::Unknown:
        case TerminalKind::Other:
            break;
    }
    return kDRAVDeviceTerminalUnknown;
}

// When the terminal kind says nothing, the UID and then the name may.
int32_t TerminalFromWords(const AudioDeviceInfo& device, DRAVDeviceType type)
{
    if (ContainsIgnoringCase(device.uid, "microphone"))
    {
        return kDRAVDeviceTerminalMicrophone;
    }
    if (ContainsIgnoringCase(device.uid, "headphone"))
    {
        return kDRAVDeviceTerminalHeadphone;
    }
    if (ContainsIgnoringCase(device.uid, "speaker"))
    {
        return kDRAVDeviceTerminalSpeaker;
    }
    if (ContainsIgnoringCase(device.name, "airpods"))
    {
        return type == kDRAVDeviceTypeAudioCapture ? kDRAVDeviceTerminalMicrophone
                                                   : kDRAVDeviceTerminalHeadphone;
    }
    return kDRAVDeviceTerminalUnknown;
}

std::optional<DRAVDeviceCoreAudio::UsbRecord> UsbIdentityOf(const AudioDeviceInfo& device)
{
    if (device.usb)
    {
        return DRAVDeviceCoreAudio::UsbRecord{device.usb->vendorId, device.usb->productId,
                                              device.usb->locationId};
    }
    DRAVDeviceCoreAudio::UsbNameLookup lookup;
    {
        std::lock_guard guard(gUsbLookupLock);
        lookup = gUsbLookup;
    }
    return lookup ? lookup(device.name) : std::nullopt;
}

std::vector<AudioDeviceInfo> DeviceSnapshot()
{
    auto platform = tidemix::platform::Platform::Current();
    return platform ? platform->Audio().Devices() : std::vector<AudioDeviceInfo>();
}
}  // namespace

void DRAVDeviceCoreAudio::SetUsbNameLookup(UsbNameLookup lookup)
{
    std::lock_guard guard(gUsbLookupLock);
    gUsbLookup = std::move(lookup);
}

DRAVDeviceDescriptor DRAVDeviceCoreAudio::DescriptorForDevice(const AudioDeviceInfo& device,
                                                              AudioObjectPropertyScope scope,
                                                              DRAVDeviceType type,
                                                              DRAVDeviceCapabilitiesAudioCapture& caps)
{
    if (StreamCount(device, scope) == 0)
    {
        return {};
    }
    DRAVDeviceDescriptor descriptor(device.name, std::to_string(device.id), device.uid, type);
    const int32_t terminalKind =
        TerminalFromKind(type == kDRAVDeviceTypeAudioCapture ? device.inputTerminal : device.outputTerminal);
    // Terminal found so far by the USB identity; the kind comes later.
    int32_t terminal = kDRAVDeviceTerminalUnknown;
    if (device.transport == AudioTransport::Usb)
    {
        if (std::optional<UsbRecord> usb = UsbIdentityOf(device))
        {
            caps.usbInfoValid = 1;
            caps.vendorId = usb->vendorId;
            caps.productId = usb->productId;
            caps.location = usb->locationId & 0xFFFF;
            if (DRMX_Settings::IsDrovaneRuntimeProduct(usb->vendorId, usb->productId))
            {
                terminal = type == kDRAVDeviceTypeAudioOutput ? kDRAVDeviceTerminalDrovaneMicrophoneOutput
                                                              : kDRAVDeviceTerminalMicrophone;
            }
        }
    }
    if (device.transport == AudioTransport::Virtual)
    {
        caps.outputType = DRMX_Settings::kOutputTypeVirtual;
    }
    else
    {
        caps.outputType = DRMX_Settings::kOutputTypeHardware;
        if (terminal == kDRAVDeviceTerminalUnknown)
        {
            terminal =
                terminalKind != kDRAVDeviceTerminalUnknown ? terminalKind : TerminalFromWords(device, type);
        }
    }
    caps.terminal = terminal;
    return descriptor;
}

DRAVDeviceDescriptor DRAVDeviceCoreAudio::OutputDeviceDescriptorForAudioObjectID(
    AudioObjectID id, AudioObjectPropertyScope scope, DRAVDeviceType type,
    std::shared_ptr<DRAVDeviceCapabilitiesAudioCapture>& caps)
{
    if (!caps)
    {
        caps = std::make_shared<DRAVDeviceCapabilitiesAudioCapture>();
    }
    auto platform = tidemix::platform::Platform::Current();
    std::optional<AudioDeviceInfo> device = platform ? platform->Audio().Device(id) : std::nullopt;
    if (!device)
    {
        return {};
    }
    return DescriptorForDevice(*device, scope, type, *caps);
}

std::vector<DRAVDeviceDescriptor> DRAVDeviceCoreAudio::EnumDeviceDescriptors(const DRAVDeviceType& type)
{
    std::vector<DRAVDeviceDescriptor> result;
    if (type != kDRAVDeviceTypeAudioCapture && type != kDRAVDeviceTypeAudioOutput)
    {
        return result;
    }
    const AudioObjectPropertyScope scope = type == kDRAVDeviceTypeAudioCapture
                                               ? kAudioObjectPropertyScopeInput
                                               : kAudioObjectPropertyScopeOutput;
    // One snapshot: a device that goes away meanwhile is simply in it or not.
    for (const AudioDeviceInfo& device : DeviceSnapshot())
    {
        DRAVDeviceCapabilitiesAudioCapture caps;
        DRAVDeviceDescriptor descriptor = DescriptorForDevice(device, scope, type, caps);
        if (descriptor.IsEmpty())
        {
            continue;
        }
        const bool seen = std::any_of(result.begin(), result.end(),
                                      [&](const DRAVDeviceDescriptor& earlier)
                                      { return earlier.hardwareId == descriptor.hardwareId; });
        if (seen)
        {
            continue;
        }
        descriptor.capabilities = std::make_shared<DRAVDeviceCapabilitiesAudioCapture>(caps);
        result.push_back(std::move(descriptor));
    }
    return result;
}

DRAVDeviceDescriptor DRAVDeviceCoreAudio::DefaultOutputDeviceDescriptor()
{
    auto platform = tidemix::platform::Platform::Current();
    if (!platform)
    {
        return {};
    }
    std::optional<uint32_t> id = platform->Audio().DefaultOutput();
    if (!id)
    {
        return {};
    }
    std::shared_ptr<DRAVDeviceCapabilitiesAudioCapture> caps;
    DRAVDeviceDescriptor descriptor = OutputDeviceDescriptorForAudioObjectID(
        *id, kAudioObjectPropertyScopeGlobal, kDRAVDeviceTypeAudioOutput, caps);
    if (!descriptor.IsEmpty())
    {
        descriptor.capabilities = std::make_shared<DRAVDeviceCapabilitiesAudioCapture>(*caps);
    }
    return descriptor;
}

std::vector<DRAVSourceDescriptor> DRAVDeviceCoreAudio::EnumDeviceSources()
{
    std::vector<DRAVSourceDescriptor> sources;
    for (const DRAVDeviceDescriptor& descriptor : EnumDeviceDescriptors(kDRAVDeviceTypeAudioCapture))
    {
        sources.push_back(DRAVSourceDescriptor{descriptor.name, descriptor.devicePath});
    }
    return sources;
}
