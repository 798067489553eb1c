#include "engine/DRAVPlatformSpecific.h"

#include "engine/DRAVDeviceCoreAudio.h"

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
