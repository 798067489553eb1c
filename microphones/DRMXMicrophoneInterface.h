#pragma once

#include <cstdint>
#include <string>

#include "portable-core/DRAVResult.h"

// USB product ids of vendor 0x7E11 and the microphone types they stand for.
constexpr uint16_t kDrovaneUSBVendorID = 0x7E11;

enum DrovaneUSBProductID : uint16_t
{
    kProductIdReed1 = 0x0B21,
    kProductIdReed1DFU = 0x0B22,
    kProductIdReed3 = 0x0B23,
    kProductIdReed3DFU = 0x0B24,
    kProductIdReedPro = 0x0B25,
    kProductIdReedProDFU = 0x0B26,
};

enum DRMXMicrophoneType : int32_t
{
    kMicrophoneTypeUnknown = 0,
    kMicrophoneTypeReed1 = 1,
    kMicrophoneTypeReed3 = 2,
    kMicrophoneTypeReedPro = 3,
    kMicrophoneTypeReed1DFU = 4,
    kMicrophoneTypeReed3DFU = 5,
    kMicrophoneTypeReedProDFU = 6,
};

// The microphone type of a product id of vendor 0x7E11; 0 for any other id.
DRMXMicrophoneType GetTypeById(uint32_t productId);

// Everything that can be used as a microphone. All levels are 0.0 to 1.0.
class DRMXMicrophoneInterface
{
public:
    virtual DRAVResult Init() = 0;
    virtual DRAVResult Deinit() = 0;
    virtual ~DRMXMicrophoneInterface() = default;
    virtual DRMXMicrophoneType GetMicrophoneType() = 0;
    virtual DRAVResult SetMicrophoneType(DRMXMicrophoneType type) = 0;
    virtual bool IsMicrophoneConnected() = 0;
    virtual DRAVResult ReadMicrophoneConfiguration(int& bytesRead) = 0;
    virtual DRAVResult WriteMicrophoneConfiguration() = 0;
    virtual double GetMicrophoneGain() = 0;
    virtual DRAVResult SetMicrophoneGain(double gain) = 0;
    virtual bool GetMicrophoneMute() = 0;
    virtual DRAVResult SetMicrophoneMute(bool mute) = 0;
    virtual double GetMicrophoneOutputVolume() = 0;
    virtual DRAVResult SetMicrophoneOutputVolume(double volume) = 0;
    virtual bool GetMicrophoneOutputMute() = 0;
    virtual DRAVResult SetMicrophoneOutputMute(bool mute) = 0;
    virtual double GetMicrophoneDirectMonitorVolume() = 0;
    virtual DRAVResult SetMicrophoneDirectMonitorVolume(double volume) = 0;
    virtual bool GetMicrophoneClipGuard() = 0;
    virtual DRAVResult SetMicrophoneClipGuard(bool on) = 0;
    virtual bool GetMicrophoneLowCut() = 0;
    virtual DRAVResult SetMicrophoneLowCut(bool on) = 0;
    virtual bool HasMicrophonePolarization() = 0;
    virtual double GetMicrophonePolarization() = 0;
    virtual DRAVResult SetMicrophonePolarization(double polarization) = 0;
    virtual bool GetMicrophoneAllLEDOff() = 0;
    virtual DRAVResult SetMicrophoneAllLEDOff(bool off) = 0;
    virtual bool HasMicrophoneGainLock() = 0;
    virtual bool GetMicrophoneGainLock() = 0;
    virtual DRAVResult SetMicrophoneGainLock(bool locked) = 0;
    virtual bool HasMicrophoneLEDFlip() = 0;
    virtual bool GetMicrophoneLEDFlip() = 0;
    virtual DRAVResult SetMicrophoneLEDFlip(bool flipped) = 0;
    virtual std::string GetHardwareId() const = 0;
    virtual void SetHardwareId(const std::string& hardwareId) = 0;
    virtual std::string GetSerialNumber() const = 0;
    virtual int64_t GetFirmwareVersion() const = 0;
    virtual bool HasMicrophoneVolumeSelect() = 0;
    virtual int64_t GetMicrophoneVolumeSelect() = 0;
    virtual DRAVResult SetMicrophoneVolumeSelect(int64_t select) = 0;
};
