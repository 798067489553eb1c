#pragma once

#include <memory>

#include "platform/CountingProcessActivity.h"
#include "platform/Platform.h"
#include "platform/sim/SimAudioWorld.h"

namespace tidemix::platform::sim
{

// The deterministic simulated world: the default backend of the demo and the tests.
class SimPlatform : public Platform
{
public:
    SimPlatform();
    ~SimPlatform() override;

    std::string Name() const override { return "sim"; }
    AudioSystem& Audio() override { return *audio_; }
    ProcessActivity& Activity() override { return activity_; }

    SimAudioWorld& World() { return *audio_; }
    CountingProcessActivity& Activities() { return activity_; }

private:
    std::unique_ptr<SimAudioWorld> audio_;
    CountingProcessActivity activity_;
};

}  // namespace tidemix::platform::sim
