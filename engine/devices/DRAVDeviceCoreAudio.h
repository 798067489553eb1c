#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/media/DRAVCoreAudioTypes.h"
#include "engine/units/DRAVDeviceCapabilities.h"
#include "engine/units/DRAVDeviceDescriptor.h"
#include "engine/units/DRAVDeviceType.h"
#include "engine/units/DRAVSourceDescriptor.h"
#include "platform/AudioSystem.h"

// The audio devices of the system, as descriptors. Enumeration never
// reports a failure: it yields less, and callers treat an empty list or an
// empty descriptor as the device not being there.
class DRAVDeviceCoreAudio
{
public:
    // The USB identity of a device found by its registry entry's name.
    struct UsbRecord
    {
        uint16_t vendorId = 0;
        uint16_t productId = 0;
        uint32_t locationId = 0;
    };
    // Finds a USB device whose registry entry carries the given name. The
    // USB layer installs it; without one nothing is found.
    using UsbNameLookup = std::function<std::optional<UsbRecord>(const std::string& name)>;

    void Init() { initialized_ = true; }
    void Deinit() { initialized_ = false; }
    bool IsInitialized() const { return initialized_; }

    // The devices with streams in the direction of type (capture or output),
    // each hardware id once, in the order of the system's list.
    static std::vector<DRAVDeviceDescriptor> EnumDeviceDescriptors(const DRAVDeviceType& type);
    // The system's default output, or an empty descriptor.
    static DRAVDeviceDescriptor DefaultOutputDeviceDescriptor();
    // One source for each capture device: its name and path.
    static std::vector<DRAVSourceDescriptor> EnumDeviceSources();
    // The descriptor of one device, filling caps; empty when the device
    // doesn't exist or has no stream in scope.
    static DRAVDeviceDescriptor OutputDeviceDescriptorForAudioObjectID(
        AudioObjectID id, AudioObjectPropertyScope scope, DRAVDeviceType type,
        std::shared_ptr<DRAVDeviceCapabilitiesAudioCapture>& caps);
    // The same for a device of a snapshot already taken.
    static DRAVDeviceDescriptor DescriptorForDevice(const tidemix::platform::AudioDeviceInfo& device,
                                                    AudioObjectPropertyScope scope, DRAVDeviceType type,
                                                    DRAVDeviceCapabilitiesAudioCapture& caps);

    static void SetUsbNameLookup(UsbNameLookup lookup);

private:
    bool initialized_ = false;
};
