#include "engine/units/DRAVSourceDescriptor.h"

#include <array>
#include <cstdio>
#include <functional>

#include "engine/units/DRAVSource.h"

namespace
{
// Vendor and product ids of USB video capture devices whose paths carry a
// port-dependent tail. None is in use on this system's platforms.
struct UsbId
{
    uint16_t vendorId;
    uint16_t productId;
};
constexpr std::array<UsbId, 0> kPortDependentVideoDevices{};
constexpr size_t kComparablePathLength = 76;
constexpr size_t kMaxDescriptionLength = 127;

std::string UsbTag(uint16_t vendorId, uint16_t productId)
{
    char tag[32];
    snprintf(tag, sizeof(tag), "usb#vid_%04x&pid_%04x", vendorId, productId);
    return tag;
}
}  // namespace

DRAVSourceDescriptor::DRAVSourceDescriptor()
{
    unitKind = kUnitKindSource;
    objectId = std::to_string(hashString(false));
}

DRAVSourceDescriptor::DRAVSourceDescriptor(const std::string& name, const std::string& path)
    : DRAVSourceDescriptor(0, 0, name, path, std::string())
{
}

DRAVSourceDescriptor::DRAVSourceDescriptor(DRAVSourceType sourceType, DRAVSourceUsageType sourceUsage,
                                           const std::string& name, const std::string& path,
                                           const std::string& hardware)
    : type(sourceType), usage(sourceUsage), devicePath(path), hardwareId(hardware)
{
    friendlyName = name;
    unitKind = kUnitKindSource;
    objectId = std::to_string(hashString(false));
}

std::string DRAVSourceDescriptor::ComparableDevicePath() const
{
    for (const UsbId& id : kPortDependentVideoDevices)
    {
        if (devicePath.find(UsbTag(id.vendorId, id.productId)) != std::string::npos)
        {
            return devicePath.substr(0, kComparablePathLength);
        }
    }
    return devicePath;
}

size_t DRAVSourceDescriptor::hashString(bool forComparing) const
{
    const std::string text = forComparing ? ComparableDevicePath() + std::to_string(type)
                                          : friendlyName + ComparableDevicePath() + std::to_string(type);
    return std::hash<std::string>{}(text);
}

bool DRAVSourceDescriptor::IsUsbDevice(uint16_t vendorId, uint16_t productId) const
{
    return devicePath.find(UsbTag(vendorId, productId)) != std::string::npos;
}

std::string DRAVSourceDescriptor::toString() const
{
    std::string text =
        std::string(DRAVSourceTypeToString(type)) + ": " + friendlyName + " <" + devicePath + ">";
    if (text.size() > kMaxDescriptionLength)
    {
        text.resize(kMaxDescriptionLength);
    }
    return text;
}
