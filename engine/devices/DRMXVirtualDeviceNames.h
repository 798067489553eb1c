#pragma once

#include <map>
#include <string>
#include <vector>

// The devices the virtual audio driver publishes: display names, and the
// identifiers from which the driver builds its device paths.
class DRMXVirtualDeviceNames
{
public:
    static inline const std::string kTidemixSystem = "Tidemix System";
    static inline const std::string kTidemixMusic = "Tidemix Music";
    static inline const std::string kTidemixBrowser = "Tidemix Browser";
    static inline const std::string kTidemixChat = "Tidemix Voice Chat";
    static inline const std::string kTidemixSFX = "Tidemix SFX";
    static inline const std::string kTidemixGame = "Tidemix Game";
    static inline const std::string kTidemixAux1 = "Tidemix Aux 1";
    static inline const std::string kTidemixAux2 = "Tidemix Aux 2";
    static inline const std::string kTidemixMonitor = "Tidemix Monitor";
    static inline const std::string kTidemixStream = "Tidemix Stream";
    static inline const std::string kTidemixMicIn = "Tidemix Mic In";
    static inline const std::string kTidemixHeadphone = "Tidemix Headphone";

    // The eight channels, in order.
    static const std::vector<std::string> VirtualDeviceNames;
    // The identifiers of the eight channels, the monitor and the stream.
    static const std::map<std::string, std::string> VirtualDeviceIdentifiers;

    // No device is expected by default here.
    static std::vector<std::string> GetVirtualDefaultDeviceNames() { return {}; }
    // The identifier of a display name, empty for an unknown name.
    static std::string IdentifierForName(const std::string& name);
    // The device path the driver gives an output of that name: its
    // identifier followed by "Out"; empty for an unknown name.
    static std::string OutputDevicePathForName(const std::string& name);
};
