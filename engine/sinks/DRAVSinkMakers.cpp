#include "engine/sinks/DRAVSinkMakers.h"

#include <memory>

#include "engine/units/DRAVPlatformUnitMakers.h"
#include "engine/sinks/DRAVSinkAudioRendererAudioUnit.h"
#include "engine/sinks/DRAVSinkPreview.h"

namespace
{
// Sinks that the platform's devices need; asked first.
std::shared_ptr<DRAVSink> MakePlatformSink(const DRAVSinkConfig& config)
{
    switch (config.type)
    {
        case DRAVSink::kTypeAudioRenderer:
            return std::make_shared<DRAVSinkAudioRendererAudioUnit>(config);
        default:
            return nullptr;
    }
}

// Sinks that need no platform; asked when the platform makes nothing.
std::shared_ptr<DRAVSink> MakeDefaultSink(const DRAVSinkConfig& config)
{
    switch (config.type)
    {
        case DRAVSink::kTypePreview:
            return std::make_shared<DRAVSinkPreview>(config);
        default:
            return nullptr;
    }
}
}  // namespace

void DRAVInstallSinkMakers()
{
    DRAVPlatformUnitMakers makers = DRAVPlatformUnitMakers::Current();
    // Types this folder doesn't know stay with whoever made them before.
    makers.platformSink = [former = makers.platformSink](const DRAVSinkConfig& config)
    {
        std::shared_ptr<DRAVSink> sink = MakePlatformSink(config);
        return sink || !former ? sink : former(config);
    };
    makers.defaultSink = [former = makers.defaultSink](const DRAVSinkConfig& config)
    {
        std::shared_ptr<DRAVSink> sink = MakeDefaultSink(config);
        return sink || !former ? sink : former(config);
    };
    DRAVPlatformUnitMakers::Install(std::move(makers));
}
