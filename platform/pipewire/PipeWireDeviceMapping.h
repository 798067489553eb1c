#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/AudioSystem.h"

namespace tidemix::platform::pipewire
{

// A PipeWire object's properties, as text.
using PropertyMap = std::map<std::string, std::string, std::less<>>;

// Turns what PipeWire says about a node (and about the device it belongs to,
// when it has one) into one device of the snapshot. Plain data in, plain
// data out: no PipeWire call, so it can be checked without a daemon.
class PipeWireDeviceMapping
{
public:
    // Null for nodes that aren't audio devices (streams, video, MIDI, drivers).
    static std::optional<AudioDeviceInfo> DeviceFromNode(uint32_t nodeId, const PropertyMap& node,
                                                         const PropertyMap& device);

    // "Audio/Sink" plays, "Audio/Source" (and "Audio/Source/Virtual")
    // records, "Audio/Duplex" does both.
    static bool IsAudioDeviceClass(std::string_view mediaClass);

    static AudioTransport Transport(const PropertyMap& node, const PropertyMap& device);
    static TerminalKind Terminal(const PropertyMap& node, const PropertyMap& device, bool capture);
    static std::optional<UsbIdentity> Usb(const PropertyMap& node, const PropertyMap& device);

    // Location id in the usual form: bus number in the top byte, then one
    // nibble per port of the hub chain. From a sysfs path
    // (".../usb1/1-2/1-2.1/1-2.1:1.0/...") or a bus path
    // ("pci-0000:00:14.0-usb-0:2.1:1.0", bus unknown: 0). 0 when neither helps.
    static uint32_t UsbLocationId(std::string_view sysfsPath, std::string_view busPath);

    // A hexadecimal or decimal id such as "0x7e11" or "7e11"; null when it isn't one.
    static std::optional<uint16_t> ParseUsbId(std::string_view text);

    // The node name in a default-device value such as {"name":"alsa_output.pci"}.
    static std::optional<std::string> DefaultNodeName(std::string_view jsonValue);
};

}  // namespace tidemix::platform::pipewire
