#pragma once

#include <vector>

#include "engine/DRAVSourceDescriptor.h"
#include "portable-core/DRAVResult.h"

// The engine's hooks into the platform; each has one definition.
DRAVResult InitManagerPlatformSpecific();
void DestroyManagerPlatformSpecific();
void DeinitManagerPlatformSpecific();
void LogAdditionalSystemInfo();
std::vector<DRAVSourceDescriptor> GetAvailableSourcesPlatformSpecific();
// Device sample rates are the devices' own here: not settable.
DRAVResult GetSupportedSampleRatesPlatformSpecific(std::vector<double>& rates);
DRAVResult GetCurrentSampleRatePlatformSpecific(double& rate);
DRAVResult SetSampleRatePlatformSpecific(double rate);
