#pragma once

#include <memory>
#include <vector>

#include "engine/units/DRAVDeviceObserverSubjectInterface.h"
#include "engine/units/DRAVFilter.h"
#include "engine/units/DRAVSink.h"
#include "engine/units/DRAVSource.h"
#include "engine/units/DRAVSourceDescriptor.h"
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
// The platform's units for a configuration, or null. The classes live above
// the engine and come through the installed DRAVPlatformUnitMakers.
std::shared_ptr<DRAVSource> CreateSourcePlatformSpecific(const DRAVSourceConfig& config);
std::shared_ptr<DRAVSink> CreateSinkPlatformSpecific(const DRAVSinkConfig& config);
std::shared_ptr<DRAVFilter> CreateFilterPlatformSpecific(const DRAVFilterConfig& config);
// The platform's device observer subjects, ready for use; none without makers.
std::vector<std::shared_ptr<DRAVDeviceObserverSubjectInterface>>
RegisterDeviceObserverSubjectsPlatformSpecific();
