#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/AudioSystem.h"
#include "platform/sim/SimSignal.h"

namespace tidemix::platform::sim
{

// Faults a simulated device can show; all may change while it runs.
struct SimDeviceFaults
{
    // The device keeps its clock but stops calling back.
    bool stalled = false;
    // Packets of random sizes between 1 and twice the packet size, from a
    // seed, instead of the regular size.
    bool irregularPackets = false;
    uint64_t irregularSeed = 1;
    // The device thread spends this long after each round of callbacks, as a
    // slow driver would; the clock catches up with back-to-back packets.
    uint32_t slowCallbackMicroseconds = 0;
    bool operator==(const SimDeviceFaults&) const = default;
};

// Everything that makes a simulated device. A direction exists when its
// stream count is not 0.
struct SimDeviceSpec
{
    std::string uid;
    std::string name;
    uint32_t inputStreams = 0;
    uint32_t outputStreams = 0;
    AudioTransport transport = AudioTransport::Usb;
    TerminalKind inputTerminal = TerminalKind::Unknown;
    TerminalKind outputTerminal = TerminalKind::Unknown;
    std::optional<UsbIdentity> usb;
    DeviceStreamFormat inputFormat;
    DeviceStreamFormat outputFormat;
    uint32_t packetFrames = 480;
    double skewPpm = 0.0;
    SimSignal signal;
    SimDeviceFaults faults;
    // The input hears what the output plays, instead of the signal: the
    // virtual driver's devices work so.
    bool loopback = false;

    // Shorthands for the common shapes.
    static SimDeviceSpec Microphone(std::string uid, std::string name, DeviceStreamFormat format = {});
    static SimDeviceSpec Speaker(std::string uid, std::string name, DeviceStreamFormat format = {});
    static SimDeviceSpec Duplex(std::string uid, std::string name, DeviceStreamFormat format = {});
};

}  // namespace tidemix::platform::sim
