#pragma once

#include "portable-core/DRAVResult.h"
#include "settings/DRMXMicrophoneSettings.h"

// A microphone whose controls can be set from the stored settings in one go
// (the microphone unit implements it).
class DRMXMicrophoneConfigurable
{
public:
    virtual ~DRMXMicrophoneConfigurable() = default;
    virtual DRAVResult UpdateConfigurationBySettings(const DRMX_Settings::DRMXMicrophoneSettings& settings,
                                                     bool write) = 0;
};
