#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "engine/units/DRAVUnitDescriptor.h"

// As in DRAVSource.h, which this light record doesn't need.
using DRAVSourceType = int32_t;
using DRAVSourceUsageType = int32_t;

// A source the engine can make or has made: its kind of source, its use and
// the device behind it.
struct DRAVSourceDescriptor : DRAVUnitDescriptor
{
    DRAVSourceType type = 0;
    DRAVSourceUsageType usage = 0;
    std::string devicePath;
    std::string hardwareId;

    DRAVSourceDescriptor();
    // A capture device of unknown type and use, by name and path.
    DRAVSourceDescriptor(const std::string& name, const std::string& path);
    // The object id is derived from name, path and type (hashString(false)).
    DRAVSourceDescriptor(DRAVSourceType type, DRAVSourceUsageType usage, const std::string& name,
                         const std::string& path, const std::string& hardwareId);

    // The path, cut to what stays the same when a USB video capture device
    // comes back on another port.
    std::string ComparableDevicePath() const;
    // The standard hash of a text: with `forComparing` the comparable path and
    // the type; otherwise name, comparable path and type.
    size_t hashString(bool forComparing) const;
    bool IsUsbDevice(uint16_t vendorId, uint16_t productId) const;
    // "<type word>: <name> <<path>>", at most 127 characters.
    std::string toString() const;

    bool operator==(const DRAVSourceDescriptor&) const = default;
};
