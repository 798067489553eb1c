#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/AudioSystem.h"
#include "platform/sim/SimDeviceSpec.h"
#include "platform/sim/SimRecorder.h"
#include "platform/sim/SimSignal.h"

namespace tidemix::platform::sim
{

enum class SimDirection : uint8_t
{
    Input,
    Output,
};

// What one direction of a simulated device runs with. It may change while
// the device runs; the device thread picks it up before its next packet.
struct SimEngineConfig
{
    DeviceStreamFormat format;
    uint32_t packetFrames = 480;
    double skewPpm = 0.0;
    SimSignal signal;
    SimDeviceFaults faults;
    std::shared_ptr<SimRecorder> recorder;
    // Output side of a loopback device: where the mix goes besides the speakers.
    std::shared_ptr<SimLoopback> loopback;
};

// One open stream as the device thread sees it.
struct SimStreamCore
{
    std::atomic<bool> started{false};
    std::atomic<float> volume{1.0f};
    CaptureCallback capture;
    PlaybackCallback playback;
};

// The clock and thread of one direction of a simulated device. While at least
// one stream runs, the thread wakes at absolute deadlines on the host clock,
// rate x (1 + skew) frames per host second, and calls every running stream:
// capture streams all receive the same packet, playback streams are each asked
// for the packet and their output (after volume) is mixed and recorded.
class SimDeviceEngine : public std::enable_shared_from_this<SimDeviceEngine>
{
public:
    SimDeviceEngine(uint32_t deviceId, SimDirection direction, SimEngineConfig config);
    ~SimDeviceEngine();
    SimDeviceEngine(const SimDeviceEngine&) = delete;
    SimDeviceEngine& operator=(const SimDeviceEngine&) = delete;

    // Starts the device thread; call once after construction.
    void Launch();
    // Ends the device thread: no callback runs after it returns (unless it is
    // called from a callback of this device, which can't wait for itself).
    void Shutdown();
    bool IsShutDown() const;

    void Configure(SimEngineConfig config);
    SimEngineConfig Config() const;
    DeviceStreamFormat Format() const;
    uint32_t DeviceId() const { return deviceId_; }
    SimDirection Direction() const { return direction_; }

    void Attach(SimStreamCore* core);
    // Stops the stream first.
    void Detach(SimStreamCore* core);
    DRAVResult StartStream(SimStreamCore* core);
    // Returns when no callback of this stream runs, and none will come.
    void StopStream(SimStreamCore* core);

    // Rounds of callbacks delivered since launch.
    uint64_t PacketsDelivered() const { return packets_.load(std::memory_order_acquire); }
    uint64_t FramesDelivered() const { return frames_.load(std::memory_order_acquire); }

private:
    void Run();
    void ApplyConfig(const SimEngineConfig& config);
    uint32_t NextPacketFrames();
    void DeliverCapture(uint32_t frames, int64_t hostTime);
    void DeliverPlayback(uint32_t frames, int64_t hostTime, double nanosecondsPerFrame);

    const uint32_t deviceId_;
    const SimDirection direction_;

    mutable std::mutex lock_;  // config, activity, quit
    std::condition_variable wake_;
    SimEngineConfig config_;
    uint64_t generation_ = 0;
    uint32_t activeStreams_ = 0;
    bool quit_ = false;
    std::thread thread_;
    std::thread::id threadId_;

    // Held for each round of callbacks; recursive so that a callback may stop
    // or open streams of its own device.
    std::recursive_mutex callbackLock_;
    std::vector<SimStreamCore*> members_;

    // The device thread's own state.
    SimEngineConfig running_;
    std::optional<SimSignalGenerator> generator_;
    std::vector<std::vector<float>> planar_;
    std::vector<float*> planarPointers_;
    std::vector<std::vector<float>> deviceBuffers_;
    std::vector<void*> devicePointers_;
    std::vector<float> mix_;
    uint64_t irregularState_ = 1;

    std::atomic<uint64_t> packets_{0};
    std::atomic<uint64_t> frames_{0};
};

}  // namespace tidemix::platform::sim
