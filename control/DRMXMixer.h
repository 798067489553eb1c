#pragma once

#include "control/DRMXMixerBase.h"

// A mix with its real-time unit. The unit is made on each start and dropped
// on each stop; until the engine's mixer unit is wired in, a start reports
// that it can't run.
class DRMXMixer : public DRMXMixerBase
{
public:
    DRMXMixer(const std::string& name, DRMX_Settings::DRMXMixerType type);
    ~DRMXMixer() override;
};
