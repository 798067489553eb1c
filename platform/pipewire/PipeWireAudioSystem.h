#pragma once

#include <memory>
#include <string>

#include "platform/Applications.h"
#include "platform/AudioSystem.h"

namespace tidemix::platform::pipewire
{

// The audio devices and streams of a PipeWire daemon. The device snapshot
// follows the daemon's registry (audio sinks, sources and duplex nodes) and
// the "default" metadata's default output; listeners fire on PipeWire's
// thread. If the daemon goes away the snapshot empties, the listeners fire,
// streams fall silent and the log says why; the object stays usable.
class PipeWireAudioSystem : public AudioSystem
{
public:
    // True when this build has the PipeWire backend.
    static bool Available();
    // Connects and waits for the first complete snapshot. Null when no daemon
    // answers (or the build has no PipeWire); *whyNot then says why. An empty
    // remote name means the usual daemon ($PIPEWIRE_REMOTE or "pipewire-0").
    static std::unique_ptr<PipeWireAudioSystem> Connect(const std::string& remoteName, std::string* whyNot);

    ~PipeWireAudioSystem() override;

    std::vector<AudioDeviceInfo> Devices() override;
    std::optional<uint32_t> DefaultOutput() override;
    ListenerToken AddDeviceListListener(std::function<void()> listener) override;
    ListenerToken AddDefaultOutputListener(std::function<void()> listener) override;
    void RemoveListener(ListenerToken token) override;
    std::unique_ptr<CaptureStream> OpenCapture(uint32_t deviceId, CaptureCallback callback) override;
    std::unique_ptr<PlaybackStream> OpenPlayback(uint32_t deviceId, PlaybackCallback callback) override;

    // The applications that play audio on the same daemon, over the same
    // connection (so a capture device it makes is in this snapshot when it
    // returns); null without a connection.
    std::unique_ptr<Applications> CreateApplications();

    // False once the daemon has gone away.
    bool Connected() const;
    // Waits until every change the daemon has announced so far is in the
    // snapshot. False on time-out or without a daemon.
    bool Synchronize(int timeoutSeconds);

    struct Impl;

private:
    explicit PipeWireAudioSystem(std::shared_ptr<Impl> impl);
    std::shared_ptr<Impl> impl_;
};

}  // namespace tidemix::platform::pipewire
