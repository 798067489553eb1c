#pragma once

#include "platform/EmptyAudioSystem.h"

namespace tidemix::platform::sim
{

// The simulated audio world. It starts empty; tests and the demo add devices.
class SimAudioWorld : public EmptyAudioSystem
{
};

}  // namespace tidemix::platform::sim
