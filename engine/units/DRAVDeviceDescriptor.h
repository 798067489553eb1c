#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "engine/units/DRAVDeviceCapabilities.h"
#include "engine/units/DRAVDeviceType.h"

// Names one device. An audio device's path is its numeric id in decimal; its
// hardware id is stable over restarts. A deviceType of none marks a
// descriptor that holds nothing.
class DRAVDeviceDescriptor
{
public:
    DRAVDeviceDescriptor() = default;
    DRAVDeviceDescriptor(std::string name, std::string devicePath, std::string hardwareId,
                         DRAVDeviceType deviceType);

    // The hash of the name, xor twice the hash of the path.
    size_t hash() const;
    std::string hashString() const;
    bool IsEmpty() const { return deviceType == kDRAVDeviceTypeNone; }

    // Index, name, path and hardware id; the rest plays no part.
    bool operator==(const DRAVDeviceDescriptor& other) const;
    bool operator!=(const DRAVDeviceDescriptor& other) const { return !(*this == other); }

    std::string name;
    std::string devicePath;
    std::string hardwareId;
    std::string extraId;  // empty for audio devices
    int32_t index = 0;    // a running index for application audio, else 0
    DRAVDeviceType deviceType = kDRAVDeviceTypeNone;
    std::shared_ptr<DRAVDeviceCapabilities> capabilities;
};
