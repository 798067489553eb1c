#include "platform/pipewire/PipeWireDeviceMapping.h"

#include <algorithm>
#include <limits>
#include <vector>

#if TIDEMIX_HAVE_PIPEWIRE
#include <spa/utils/json.h>
#endif

namespace tidemix::platform::pipewire
{
namespace
{
// The node's own value first: it is the more specific.
std::string_view Lookup(const PropertyMap& node, const PropertyMap& device, std::string_view key)
{
    if (auto it = node.find(key); it != node.end())
    {
        return it->second;
    }
    if (auto it = device.find(key); it != device.end())
    {
        return it->second;
    }
    return {};
}

#if TIDEMIX_HAVE_PIPEWIRE
// spa_json hands out a string cut off by the end of the text as a token too:
// a closed one ends in a quote that no backslash escapes.
bool IsClosedString(const char* token, int length)
{
    if (length < 2 || token[0] != '"' || token[length - 1] != '"')
    {
        return false;
    }
    int backslashes = 0;
    for (int i = length - 2; i > 0 && token[i] == '\\'; --i)
    {
        ++backslashes;
    }
    return backslashes % 2 == 0;
}
#endif

bool Contains(std::string_view haystack, std::string_view needle)
{
    return haystack.find(needle) != std::string_view::npos;
}

bool IsTrue(std::string_view value)
{
    return value == "true" || value == "1";
}

std::optional<uint32_t> ParseDecimal(std::string_view text)
{
    if (text.empty() || text.size() > 9)
    {
        return std::nullopt;
    }
    uint32_t value = 0;
    for (char c : text)
    {
        if (c < '0' || c > '9')
        {
            return std::nullopt;
        }
        value = value * 10 + static_cast<uint32_t>(c - '0');
    }
    return value;
}

std::vector<std::string_view> Split(std::string_view text, char separator)
{
    std::vector<std::string_view> parts;
    size_t start = 0;
    while (true)
    {
        size_t end = text.find(separator, start);
        parts.push_back(
            text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
        if (end == std::string_view::npos)
        {
            return parts;
        }
        start = end + 1;
    }
}

// "2.1.4" -> {2, 1, 4}; empty when any part isn't a number.
std::vector<uint32_t> ParsePortChain(std::string_view chain)
{
    std::vector<uint32_t> ports;
    for (std::string_view part : Split(chain, '.'))
    {
        std::optional<uint32_t> port = ParseDecimal(part);
        if (!port)
        {
            return {};
        }
        ports.push_back(*port);
    }
    return ports;
}

uint32_t ComposeLocation(uint32_t bus, const std::vector<uint32_t>& ports)
{
    uint32_t location = (bus & 0xFF) << 24;
    int shift = 20;
    for (uint32_t port : ports)
    {
        if (shift < 0)
        {
            break;
        }
        location |= std::min<uint32_t>(port, 0xF) << shift;
        shift -= 4;
    }
    return location;
}
}  // namespace

bool PipeWireDeviceMapping::IsAudioDeviceClass(std::string_view mediaClass)
{
    return mediaClass == "Audio/Sink" || mediaClass == "Audio/Source" ||
           mediaClass == "Audio/Source/Virtual" || mediaClass == "Audio/Duplex";
}

std::optional<AudioDeviceInfo> PipeWireDeviceMapping::DeviceFromNode(uint32_t nodeId, const PropertyMap& node,
                                                                     const PropertyMap& device)
{
    std::string_view mediaClass = Lookup(node, {}, "media.class");
    if (!IsAudioDeviceClass(mediaClass))
    {
        return std::nullopt;
    }
    std::string_view nodeName = Lookup(node, {}, "node.name");
    if (nodeName.empty())
    {
        return std::nullopt;
    }
    AudioDeviceInfo info;
    info.id = nodeId;
    info.uid = std::string(nodeName);
    std::string_view description = Lookup(node, {}, "node.description");
    if (description.empty())
    {
        description = Lookup(node, {}, "node.nick");
    }
    info.name = std::string(description.empty() ? nodeName : description);

    const bool plays = mediaClass == "Audio/Sink" || mediaClass == "Audio/Duplex";
    const bool records = mediaClass.starts_with("Audio/Source") || mediaClass == "Audio/Duplex";
    info.outputStreams = plays ? 1 : 0;
    info.inputStreams = records ? 1 : 0;
    info.transport = Transport(node, device);
    if (records)
    {
        info.inputTerminal = Terminal(node, device, true);
    }
    if (plays)
    {
        info.outputTerminal = Terminal(node, device, false);
    }
    if (info.transport == AudioTransport::Usb)
    {
        info.usb = Usb(node, device);
    }
    // The streams negotiate this format; PipeWire converts from the device's own.
    DeviceStreamFormat format;
    format.sampleRate = 48000;
    format.channels = 2;
    format.encoding = SampleEncoding::Float32;
    format.interleaved = false;
    info.inputFormat = format;
    info.outputFormat = format;
    return info;
}

AudioTransport PipeWireDeviceMapping::Transport(const PropertyMap& node, const PropertyMap& device)
{
    std::string_view mediaClass = Lookup(node, {}, "media.class");
    if (IsTrue(Lookup(node, {}, "node.virtual")) ||
        Lookup(node, {}, "factory.name") == "support.null-audio-sink" || mediaClass.ends_with("/Virtual"))
    {
        return AudioTransport::Virtual;
    }
    std::string_view bus = Lookup(node, device, "device.bus");
    if (bus == "usb")
    {
        return AudioTransport::Usb;
    }
    if (bus == "bluetooth" || Lookup(node, device, "device.api") == "bluez5")
    {
        return AudioTransport::Bluetooth;
    }
    if (bus == "pci" || bus == "isa" || Lookup(node, device, "device.form-factor") == "internal")
    {
        return AudioTransport::BuiltIn;
    }
    return AudioTransport::Other;
}

TerminalKind PipeWireDeviceMapping::Terminal(const PropertyMap& node, const PropertyMap& device, bool capture)
{
    std::string_view formFactor = Lookup(node, device, "device.form-factor");
    if (formFactor == "headphone" || formFactor == "headset" || formFactor == "handset" ||
        formFactor == "hands-free")
    {
        return capture ? TerminalKind::Microphone : TerminalKind::Headphone;
    }
    if (formFactor == "microphone" || formFactor == "webcam")
    {
        return capture ? TerminalKind::Microphone : TerminalKind::Other;
    }
    if (formFactor == "speaker" || formFactor == "tv" || formFactor == "hifi" || formFactor == "car" ||
        formFactor == "computer" || formFactor == "portable" || formFactor == "internal")
    {
        return capture ? TerminalKind::Microphone : TerminalKind::Speaker;
    }

    std::string_view icon = Lookup(node, device, "device.icon-name");
    if (Contains(icon, "headphone") || Contains(icon, "headset"))
    {
        return capture ? TerminalKind::Microphone : TerminalKind::Headphone;
    }
    if (Contains(icon, "microphone") || Contains(icon, "audio-input") || Contains(icon, "camera"))
    {
        return capture ? TerminalKind::Microphone : TerminalKind::Other;
    }
    if (Contains(icon, "speaker"))
    {
        return capture ? TerminalKind::Microphone : TerminalKind::Speaker;
    }
    return TerminalKind::Unknown;
}

std::optional<UsbIdentity> PipeWireDeviceMapping::Usb(const PropertyMap& node, const PropertyMap& device)
{
    std::optional<uint16_t> vendor = ParseUsbId(Lookup(node, device, "device.vendor.id"));
    std::optional<uint16_t> product = ParseUsbId(Lookup(node, device, "device.product.id"));
    if (!vendor || !product)
    {
        return std::nullopt;
    }
    UsbIdentity usb;
    usb.vendorId = *vendor;
    usb.productId = *product;
    usb.locationId =
        UsbLocationId(Lookup(node, device, "device.sysfs.path"), Lookup(node, device, "device.bus-path"));
    return usb;
}

uint32_t PipeWireDeviceMapping::UsbLocationId(std::string_view sysfsPath, std::string_view busPath)
{
    // In sysfs a USB device is a folder "<bus>-<port>.<port>..."; its
    // interfaces add ":<config>.<interface>". The deepest device folder wins.
    std::optional<uint32_t> sysfsLocation;
    for (std::string_view segment : Split(sysfsPath, '/'))
    {
        if (segment.find(':') != std::string_view::npos)
        {
            continue;
        }
        size_t dash = segment.find('-');
        if (dash == std::string_view::npos)
        {
            continue;
        }
        std::optional<uint32_t> bus = ParseDecimal(segment.substr(0, dash));
        std::vector<uint32_t> ports = ParsePortChain(segment.substr(dash + 1));
        if (bus && !ports.empty())
        {
            sysfsLocation = ComposeLocation(*bus, ports);
        }
    }
    if (sysfsLocation)
    {
        return *sysfsLocation;
    }

    // udev's path: "...-usb-<root>:<port chain>:<config>.<interface>".
    size_t usb = busPath.find("usb-");
    if (usb == std::string_view::npos)
    {
        return 0;
    }
    std::vector<std::string_view> fields = Split(busPath.substr(usb + 4), ':');
    if (fields.size() < 2)
    {
        return 0;
    }
    std::vector<uint32_t> ports = ParsePortChain(fields[1]);
    return ports.empty() ? 0 : ComposeLocation(0, ports);
}

std::optional<uint16_t> PipeWireDeviceMapping::ParseUsbId(std::string_view text)
{
    if (text.starts_with("0x") || text.starts_with("0X"))
    {
        text.remove_prefix(2);
    }
    if (text.empty() || text.size() > 4)
    {
        return std::nullopt;
    }
    uint32_t value = 0;
    for (char c : text)
    {
        int digit;
        if (c >= '0' && c <= '9')
        {
            digit = c - '0';
        }
        else if (c >= 'a' && c <= 'f')
        {
            digit = c - 'a' + 10;
        }
        else if (c >= 'A' && c <= 'F')
        {
            digit = c - 'A' + 10;
        }
        else
        {
            return std::nullopt;
        }
        value = value * 16 + static_cast<uint32_t>(digit);
    }
    return static_cast<uint16_t>(value);
}

std::optional<std::string> PipeWireDeviceMapping::DefaultNodeName(std::string_view json)
{
#if TIDEMIX_HAVE_PIPEWIRE
    // spa_json counts in int.
    if (json.size() >= static_cast<size_t>(std::numeric_limits<int>::max()))
    {
        return std::nullopt;
    }
    spa_json top;
    spa_json object;
    spa_json_init(&top, json.data(), json.size());
    if (spa_json_enter_object(&top, &object) <= 0)
    {
        return std::nullopt;
    }
    // Unescaped text is never longer than its escaped form.
    std::vector<char> text(json.size() + 1);
    const int capacity = static_cast<int>(text.size());
    while (true)
    {
        const char* key = nullptr;
        const char* value = nullptr;
        const int keyLength = spa_json_next(&object, &key);
        if (keyLength <= 0)
        {
            return std::nullopt;
        }
        const int valueLength = spa_json_next(&object, &value);
        if (valueLength <= 0)
        {
            return std::nullopt;
        }
        if (!IsClosedString(key, keyLength) ||
            spa_json_parse_stringn(key, keyLength, text.data(), capacity) <= 0 ||
            std::string_view(text.data()) != "name")
        {
            continue;  // nested values are skipped whole by the next spa_json_next
        }
        if (!IsClosedString(value, valueLength))
        {
            // A string cut off at the end of the text is no name; a number or
            // an object under "name" is none either, but another may follow.
            if (value[0] == '"')
            {
                return std::nullopt;
            }
            continue;
        }
        if (spa_json_parse_stringn(value, valueLength, text.data(), capacity) <= 0 || text[0] == '\0')
        {
            return std::nullopt;
        }
        return std::string(text.data());
    }
#else
    // Only the PipeWire backend reads default-node metadata.
    (void)json;
    return std::nullopt;
#endif
}

}  // namespace tidemix::platform::pipewire
