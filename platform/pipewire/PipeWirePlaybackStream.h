#pragma once

#include <functional>
#include <optional>

#include "platform/pipewire/PipeWireStreamBase.h"

namespace tidemix::platform::pipewire
{

// Plays to one node (or PipeWire's default output): PipeWire asks on its
// data thread for the frames of each cycle, the callback fills them, and
// the stream's volume scales them.
class PipeWirePlaybackStream final : public PlaybackStream, private PipeWireStreamBase
{
public:
    // Finds where a device id plays to; null for a device that can't play.
    using TargetResolver = std::function<std::optional<StreamTarget>(uint32_t deviceId)>;

    PipeWirePlaybackStream(std::shared_ptr<PipeWireContext> context, StreamTarget target,
                           TargetResolver resolver, PlaybackCallback callback);
    ~PipeWirePlaybackStream() override;

    DeviceStreamFormat Format() const override { return StreamFormat(); }
    DRAVResult Start() override { return StartStream(); }
    void Stop() override { StopStream(); }
    void SetVolume(float volume) override;
    float Volume() const override { return volume_.load(); }
    DRAVResult MoveTo(uint32_t deviceId) override;

private:
    void Process(pw_stream* stream) override;

    TargetResolver resolver_;
    PlaybackCallback callback_;
    std::atomic<float> volume_{1.0f};
};

}  // namespace tidemix::platform::pipewire
