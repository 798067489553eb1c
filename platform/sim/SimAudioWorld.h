#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/AudioSystem.h"
#include "platform/sim/SimDeviceEngine.h"
#include "platform/sim/SimDeviceSpec.h"
#include "platform/sim/SimRecorder.h"
#include "portable-core/DplDispatchQueue.h"

namespace tidemix::platform::sim
{

// The simulated audio world. It starts empty; tests and the demo add and
// remove devices while it runs, shape their formats, clocks and signals,
// record what outputs play and inject faults. Device threads run on the host
// clock; listeners fire on the world's own event thread.
class SimAudioWorld : public AudioSystem
{
public:
    SimAudioWorld();
    ~SimAudioWorld() override;
    SimAudioWorld(const SimAudioWorld&) = delete;
    SimAudioWorld& operator=(const SimAudioWorld&) = delete;

    // AudioSystem
    std::vector<AudioDeviceInfo> Devices() override;
    std::optional<AudioDeviceInfo> Device(uint32_t id) override;
    std::optional<uint32_t> DefaultOutput() override;
    ListenerToken AddDeviceListListener(std::function<void()> listener) override;
    ListenerToken AddDefaultOutputListener(std::function<void()> listener) override;
    void RemoveListener(ListenerToken token) override;
    std::unique_ptr<CaptureStream> OpenCapture(uint32_t deviceId, CaptureCallback callback) override;
    std::unique_ptr<PlaybackStream> OpenPlayback(uint32_t deviceId, PlaybackCallback callback) override;

    // Adds a device and returns its id (never 0). The first output device
    // becomes the default output.
    uint32_t AddDevice(SimDeviceSpec spec);
    // Its threads end and its streams get no more callbacks; streams opened on
    // it fail to start. False for an unknown id.
    bool RemoveDevice(uint32_t id);
    bool SetDefaultOutput(uint32_t id);

    // Changes that reach running streams before their next packet. False for
    // an unknown id, a direction the device lacks, a format of 0 or more than
    // 64 channels or a rate above 768 kHz, or a packet size above 65536
    // frames. AddDevice replaces such formats by the default and clamps the
    // packet size.
    bool SetInputFormat(uint32_t id, const DeviceStreamFormat& format);
    bool SetOutputFormat(uint32_t id, const DeviceStreamFormat& format);
    bool SetPacketFrames(uint32_t id, uint32_t frames);
    bool SetSkewPpm(uint32_t id, double partsPerMillion);
    bool SetSignal(uint32_t id, const SimSignal& signal);
    bool SetFaults(uint32_t id, const SimDeviceFaults& faults);

    // Records what the device's output plays (all its streams mixed, after
    // their volumes), up to maxSeconds; a new recording replaces the last.
    bool StartRecording(uint32_t id, double maxSeconds);
    void StopRecording(uint32_t id);
    // The current or last recording.
    std::shared_ptr<SimRecorder> Recording(uint32_t id);
    DRAVResult SaveRecording(uint32_t id, const std::string& path, SampleEncoding encoding);

    // Publishes the devices of the virtual audio driver: its eight channels,
    // "Tidemix Monitor" and "Tidemix Stream", each with both directions, the
    // virtual transport and a loopback from output to input. Returns their
    // ids in that order.
    std::vector<uint32_t> PublishVirtualDevices();

    // Rounds of callbacks a direction of the device delivered; 0 when unknown.
    uint64_t PacketsDelivered(uint32_t id, SimDirection direction);
    // Waits until every listener notification posted so far has run.
    void FlushNotifications();

    struct Listeners;

private:
    struct DeviceRecord
    {
        AudioDeviceInfo info;
        SimDeviceSpec spec;
        std::shared_ptr<SimDeviceEngine> input;
        std::shared_ptr<SimDeviceEngine> output;
        std::shared_ptr<SimRecorder> recording;
        std::shared_ptr<SimLoopback> loopback;
    };

    static std::shared_ptr<SimLoopback> MakeLoopback(const DeviceStreamFormat& format);
    SimEngineConfig MakeConfig(const DeviceRecord& record, SimDirection direction) const;
    bool Reconfigure(uint32_t id, const std::function<bool(DeviceRecord&)>& change);
    std::shared_ptr<SimDeviceEngine> PlaybackEngine(uint32_t deviceId);
    void Notify(bool deviceList, bool defaultOutput);

    std::mutex lock_;
    std::map<uint32_t, DeviceRecord> devices_;
    std::optional<uint32_t> defaultOutput_;
    uint32_t nextId_ = 100;
    std::shared_ptr<Listeners> listeners_;
    // Shared with playback streams, which may outlive the world.
    std::shared_ptr<std::function<std::shared_ptr<SimDeviceEngine>(uint32_t)>> resolver_;
    std::shared_ptr<DplDispatchQueue> events_;
};

}  // namespace tidemix::platform::sim
