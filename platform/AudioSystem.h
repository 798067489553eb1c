#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "portable-core/DRAVResult.h"

namespace tidemix::platform
{

enum class SampleEncoding : uint8_t
{
    Float32,
    Int16,
};

// The format a device delivers or expects.
struct DeviceStreamFormat
{
    uint32_t sampleRate = 48000;
    uint32_t channels = 2;
    SampleEncoding encoding = SampleEncoding::Float32;
    bool interleaved = true;

    uint32_t BytesPerSample() const { return encoding == SampleEncoding::Float32 ? 4 : 2; }
    // Buffers per packet: one per channel when planar, else one.
    uint32_t BufferCount() const { return interleaved ? 1 : channels; }
    bool operator==(const DeviceStreamFormat&) const = default;
};

enum class AudioTransport : uint8_t
{
    Unknown,
    BuiltIn,
    Usb,
    Virtual,
    Bluetooth,
    Other,
};

// What the device's terminal is, as far as the backend knows.
enum class TerminalKind : uint8_t
{
    Unknown,
    Speaker,
    Headphone,
    Microphone,
    Other,
};

struct UsbIdentity
{
    uint16_t vendorId = 0;
    uint16_t productId = 0;
    uint32_t locationId = 0;
    bool operator==(const UsbIdentity&) const = default;
};

// One device of the snapshot. Its "device path" is `id` in decimal.
struct AudioDeviceInfo
{
    uint32_t id = 0;
    std::string uid;   // stable over restarts: the hardware id
    std::string name;  // display name
    uint32_t inputStreams = 0;
    uint32_t outputStreams = 0;
    AudioTransport transport = AudioTransport::Unknown;
    TerminalKind inputTerminal = TerminalKind::Unknown;
    TerminalKind outputTerminal = TerminalKind::Unknown;
    std::optional<UsbIdentity> usb;  // when the backend knows it
    DeviceStreamFormat inputFormat;
    DeviceStreamFormat outputFormat;
};

// One packet delivered by a capture device, on the device's thread.
struct CapturePacket
{
    const void* const* buffers = nullptr;  // BufferCount() pointers
    uint32_t bufferCount = 0;
    uint32_t frames = 0;
    int64_t hostTimeNanoseconds = 0;  // when the packet was captured
};

// One request of a playback device, on the device's thread. The callback
// fills all `frames` of every buffer.
struct PlaybackRequest
{
    void* const* buffers = nullptr;
    uint32_t bufferCount = 0;
    uint32_t frames = 0;
    int64_t hostTimeNanoseconds = 0;  // when the first frame will play
};

// Called on the device's own thread: must not block beyond a short lock,
// allocate or log.
using CaptureCallback = std::function<void(const CapturePacket&)>;
using PlaybackCallback = std::function<void(const PlaybackRequest&)>;

class CaptureStream
{
public:
    virtual ~CaptureStream() = default;
    virtual DeviceStreamFormat Format() const = 0;
    virtual DRAVResult Start() = 0;
    // Returns only when no callback is running and none will come.
    virtual void Stop() = 0;
};

class PlaybackStream
{
public:
    virtual ~PlaybackStream() = default;
    virtual DeviceStreamFormat Format() const = 0;
    virtual DRAVResult Start() = 0;
    // Returns only when no callback is running and none will come.
    virtual void Stop() = 0;
    // 0.0 to 1.0; applied by the backend to what the callback wrote.
    virtual void SetVolume(float volume) = 0;
    virtual float Volume() const = 0;
    // Moves a running (or stopped) stream to another device.
    virtual DRAVResult MoveTo(uint32_t deviceId) = 0;
};

using ListenerToken = uint64_t;

// The audio devices of the system. Listeners fire on a backend thread and
// must only post work elsewhere.
class AudioSystem
{
public:
    virtual ~AudioSystem() = default;

    virtual std::vector<AudioDeviceInfo> Devices() = 0;
    virtual std::optional<AudioDeviceInfo> Device(uint32_t id);
    // The default output device's id, if there is one.
    virtual std::optional<uint32_t> DefaultOutput() = 0;

    virtual ListenerToken AddDeviceListListener(std::function<void()> listener) = 0;
    virtual ListenerToken AddDefaultOutputListener(std::function<void()> listener) = 0;
    // After it returns, the listener is not running and will not be called.
    virtual void RemoveListener(ListenerToken token) = 0;

    // Null when the device doesn't exist or has no stream in that direction.
    virtual std::unique_ptr<CaptureStream> OpenCapture(uint32_t deviceId, CaptureCallback callback) = 0;
    // deviceId 0 means the default output.
    virtual std::unique_ptr<PlaybackStream> OpenPlayback(uint32_t deviceId, PlaybackCallback callback) = 0;
};

}  // namespace tidemix::platform
