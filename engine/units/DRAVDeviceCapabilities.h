#pragma once

#include <cstdint>

// What a device can do; each kind of device has its own subclass.
class DRAVDeviceCapabilities
{
public:
    virtual ~DRAVDeviceCapabilities() = default;
};

// Terminal values of DRAVDeviceCapabilitiesAudioCapture::terminal.
enum DRAVDeviceTerminal : int32_t
{
    kDRAVDeviceTerminalUnknown = 0,
    kDRAVDeviceTerminalSpeaker = 1,
    kDRAVDeviceTerminalHeadphone = 2,
    kDRAVDeviceTerminalMicrophone = 3,
    kDRAVDeviceTerminalDrovaneMicrophoneOutput = 4,
    kDRAVDeviceTerminalApplicationAudio = 5,
};

class DRAVDeviceCapabilitiesAudioCapture : public DRAVDeviceCapabilities
{
public:
    int32_t usbInfoValid = 0;  // 1 when the next three were found
    uint16_t vendorId = 0;
    uint16_t productId = 0;
    uint32_t location = 0;   // the low 16 bits of the USB location id
    int32_t outputType = 0;  // a DRMXOutputType: 1 virtual, 2 hardware, 0 not known
    int32_t terminal = kDRAVDeviceTerminalUnknown;
};
