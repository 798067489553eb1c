#include "engine/DRAVPlatformSpecific.h"

#include "engine/devices/DRAVDeviceCoreAudio.h"
#include "engine/units/DRAVPlatformUnitMakers.h"

DRAVResult InitManagerPlatformSpecific()
{
    return kDRAVResultOk;
}

void DestroyManagerPlatformSpecific() {}

void DeinitManagerPlatformSpecific() {}

void LogAdditionalSystemInfo() {}

std::vector<DRAVSourceDescriptor> GetAvailableSourcesPlatformSpecific()
{
    return DRAVDeviceCoreAudio::EnumDeviceSources();
}

DRAVResult GetSupportedSampleRatesPlatformSpecific(std::vector<double>&)
{
    return kDRAVResultErrNotImplemented;
}

DRAVResult GetCurrentSampleRatePlatformSpecific(double&)
{
    return kDRAVResultErrNotImplemented;
}

DRAVResult SetSampleRatePlatformSpecific(double)
{
    return kDRAVResultErrNotImplemented;
}

std::shared_ptr<DRAVSource> CreateSourcePlatformSpecific(const DRAVSourceConfig& config)
{
    const auto maker = DRAVPlatformUnitMakers::Current().platformSource;
    return maker ? maker(config) : nullptr;
}

std::shared_ptr<DRAVSink> CreateSinkPlatformSpecific(const DRAVSinkConfig& config)
{
    const auto maker = DRAVPlatformUnitMakers::Current().platformSink;
    return maker ? maker(config) : nullptr;
}

std::shared_ptr<DRAVFilter> CreateFilterPlatformSpecific(const DRAVFilterConfig& config)
{
    const auto maker = DRAVPlatformUnitMakers::Current().platformFilter;
    return maker ? maker(config) : nullptr;
}

std::vector<std::shared_ptr<DRAVDeviceObserverSubjectInterface>>
RegisterDeviceObserverSubjectsPlatformSpecific()
{
    const auto maker = DRAVPlatformUnitMakers::Current().deviceObserverSubjects;
    return maker ? maker() : std::vector<std::shared_ptr<DRAVDeviceObserverSubjectInterface>>();
}
