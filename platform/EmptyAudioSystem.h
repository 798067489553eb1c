#pragma once

#include "platform/AudioSystem.h"

namespace tidemix::platform
{

// The audio service of a backend whose audio component is missing: no
// devices, no streams, listeners that never fire.
class EmptyAudioSystem : public AudioSystem
{
public:
    std::vector<AudioDeviceInfo> Devices() override { return {}; }
    std::optional<uint32_t> DefaultOutput() override { return std::nullopt; }
    ListenerToken AddDeviceListListener(std::function<void()>) override { return 0; }
    ListenerToken AddDefaultOutputListener(std::function<void()>) override { return 0; }
    void RemoveListener(ListenerToken) override {}
    std::unique_ptr<CaptureStream> OpenCapture(uint32_t, CaptureCallback) override { return nullptr; }
    std::unique_ptr<PlaybackStream> OpenPlayback(uint32_t, PlaybackCallback) override { return nullptr; }
};

}  // namespace tidemix::platform
