#include "control/DRMXMixer.h"

DRMXMixer::DRMXMixer(const std::string& name, DRMX_Settings::DRMXMixerType type)
    : DRMXMixerBase(name, nullptr, type)
{
}

DRMXMixer::~DRMXMixer() = default;
