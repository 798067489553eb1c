#include "engine/DRAVEngineFilters.h"

#include "engine/DRAVAudioLevelmeter.h"
#include "engine/DRAVFilterDelay.h"

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
