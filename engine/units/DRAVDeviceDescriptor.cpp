#include "engine/units/DRAVDeviceDescriptor.h"

#include <functional>

DRAVDeviceDescriptor::DRAVDeviceDescriptor(std::string name_, std::string devicePath_,
                                           std::string hardwareId_, DRAVDeviceType deviceType_)
    : name(std::move(name_)),
      devicePath(std::move(devicePath_)),
      hardwareId(std::move(hardwareId_)),
      deviceType(deviceType_)
{
}

size_t DRAVDeviceDescriptor::hash() const
{
    const std::hash<std::string> hasher;
    return hasher(name) ^ (hasher(devicePath) << 1);
}

std::string DRAVDeviceDescriptor::hashString() const
{
    return std::to_string(hash());
}

bool DRAVDeviceDescriptor::operator==(const DRAVDeviceDescriptor& other) const
{
    return index == other.index && name == other.name && devicePath == other.devicePath &&
           hardwareId == other.hardwareId;
}
