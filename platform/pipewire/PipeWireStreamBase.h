#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "platform/AudioSystem.h"
#include "platform/pipewire/PipeWireContext.h"

namespace tidemix::platform::pipewire
{

// Where a stream connects: a node's serial and name (both empty: PipeWire's
// default for the direction), and whether the node is a sink whose monitor
// a capture stream records.
struct StreamTarget
{
    std::string serial;
    std::string nodeName;
    std::string displayName;
    bool captureFromSink = false;
};

// One pw_stream in the format the seam's streams use (48000 Hz, stereo,
// planar float), with a start and stop that are safe against the process
// callback in flight. The subclass handles the buffers on PipeWire's data
// thread.
class PipeWireStreamBase
{
public:
    static constexpr uint32_t kChannels = 2;
    static constexpr uint32_t kSampleRate = 48000;
    static DeviceStreamFormat StreamFormat();

    virtual ~PipeWireStreamBase();
    PipeWireStreamBase(const PipeWireStreamBase&) = delete;
    PipeWireStreamBase& operator=(const PipeWireStreamBase&) = delete;

protected:
    PipeWireStreamBase(std::shared_ptr<PipeWireContext> context, StreamTarget target, bool capture);

    DRAVResult StartStream();
    // Returns when no process callback is running and none will come. From
    // within the callback it only makes sure that no further one comes.
    void StopStream();
    // Connects anew to another node; a running stream keeps running there.
    DRAVResult Retarget(StreamTarget target);

    // On PipeWire's data thread: no allocation, no lock, no log.
    virtual void Process(pw_stream* stream) = 0;

    const std::shared_ptr<PipeWireContext>& Context() const { return context_; }
    // Host time of "now" in the stream's graph cycle, and the delay to the
    // device in nanoseconds; from the stream's clock when it has one.
    static void CycleTimes(pw_stream* stream, int64_t* now, int64_t* delay);

private:
    static void OnProcess(void* data);
    static void OnStateChanged(void* data, pw_stream_state old, pw_stream_state state, const char* error);
    // Under the loop's lock.
    DRAVResult ConnectLocked();
    void DestroyLocked();

    std::shared_ptr<PipeWireContext> context_;
    StreamTarget target_;  // under the loop's lock
    const bool capture_;
    std::atomic<pw_stream*> stream_{nullptr};  // written under the loop's lock
    spa_hook streamListener_{};
    std::atomic<bool> running_{false};
    std::atomic<bool> active_{false};
    std::atomic<int> inFlight_{0};
    std::atomic<std::thread::id> processThread_{};  // the thread inside Process, if any
    bool errorLogged_ = false;                      // loop thread
};

}  // namespace tidemix::platform::pipewire
