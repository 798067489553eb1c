#include "engine/devices/DRMXVirtualDeviceNames.h"

const std::vector<std::string> DRMXVirtualDeviceNames::VirtualDeviceNames = {
    kTidemixSystem, kTidemixMusic, kTidemixBrowser, kTidemixChat,
    kTidemixSFX,    kTidemixGame,  kTidemixAux1,    kTidemixAux2,
};

// Channels 5 to 8 carry a tab and two blanks before their identifier: the
// driver publishes them so, and the device paths built from them follow.
const std::map<std::string, std::string> DRMXVirtualDeviceNames::VirtualDeviceIdentifiers = {
    {kTidemixSystem, "DrovaneTidemixCh1"},      {kTidemixMusic, "DrovaneTidemixCh2"},
    {kTidemixBrowser, "DrovaneTidemixCh3"},     {kTidemixChat, "DrovaneTidemixCh4"},
    {kTidemixSFX, "\t  DrovaneTidemixCh5"},     {kTidemixGame, "\t  DrovaneTidemixCh6"},
    {kTidemixAux1, "\t  DrovaneTidemixCh7"},    {kTidemixAux2, "\t  DrovaneTidemixCh8"},
    {kTidemixMonitor, "DrovaneTidemixMonitor"}, {kTidemixStream, "DrovaneTidemixStream"},
};

std::string DRMXVirtualDeviceNames::IdentifierForName(const std::string& name)
{
    auto found = VirtualDeviceIdentifiers.find(name);
    return found == VirtualDeviceIdentifiers.end() ? std::string() : found->second;
}

std::string DRMXVirtualDeviceNames::OutputDevicePathForName(const std::string& name)
{
    const std::string identifier = IdentifierForName(name);
    return identifier.empty() ? identifier : identifier + "Out";
}
