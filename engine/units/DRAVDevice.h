#pragma once

#include <memory>
#include <string>

#include "engine/units/DRAVFilter.h"

// What is known of one device: its name, its path and whether it is there.
struct DRAVDeviceDescription
{
    std::string name;
    std::string path;
    bool present = false;

    // {"Device Name", "Device Path", "Device Present"}.
    std::string ToJSON() const;
    // Reads name and path and marks the device present. A text that is no
    // object, or lacks either key, gives ErrInvalidParameter and changes nothing.
    DRAVResult FromJSON(const std::string& text);
};

// A unit without pins that stands for a device of its owner.
class DRAVDevice : public DRAVFilter
{
public:
    DRAVDevice(const std::string& name, KVCMap* propertyMap, std::shared_ptr<DRAVUnit> owner);

    static KVCMap* GetMyObjectProperties();

    // The description as JSON, the read-only "Device Description".
    std::string DeviceInfo();
    DRAVDeviceDescription GetDescription();
    void SetDescription(const DRAVDeviceDescription& description);
    std::shared_ptr<DRAVUnit> GetDeviceOwner() const { return deviceOwner_.lock(); }

private:
    CDplThreadMutex descriptionMutex_;
    DRAVDeviceDescription description_;
    std::weak_ptr<DRAVUnit> deviceOwner_;
};
