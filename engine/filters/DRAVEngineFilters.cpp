#include "engine/filters/DRAVEngineFilters.h"

#include "engine/filters/DRAVAudioLevelmeter.h"
#include "engine/filters/DRAVFilterDelay.h"

std::shared_ptr<DRAVFilter> DRAVCreateEngineFilter(const DRAVFilterConfig& config)
{
    switch (config.type)
    {
        case DRAVFilterDelay::kFilterType:
            return std::make_shared<DRAVFilterDelay>(config);
        case DRAVAudioLevelmeter::kFilterType:
            return std::make_shared<DRAVAudioLevelmeter>(config);
        default:
            return nullptr;
    }
}
