// The engine manager's source enumeration: the platform's sources, the test
// sources and the device change handler's.
#include "engine/DRAVManager.h"

#include "engine/DRAVPlatformSpecific.h"
#include "engine/units/DRAVTestSourceDescriptors.h"

void DRAVManager::SetAllowAllSources(bool)
{
    sourcesChanged_.store(true);
}

std::vector<DRAVSourceDescriptor> DRAVManager::GetAllSources()
{
    CDplScopedLock lock(availableSourcesMutex_);
    std::vector<DRAVSourceDescriptor> sources = GetAvailableSourcesPlatformSpecific();
    const std::vector<DRAVSourceDescriptor> tests = DRAVTestSourceDescriptors();
    sources.insert(sources.end(), tests.begin(), tests.end());
    if (deviceChangeHandler_.IsInitialized())
    {
        const std::vector<DRAVSourceDescriptor> more = deviceChangeHandler_.EnumDevices();
        sources.insert(sources.end(), more.begin(), more.end());
    }
    allSources_ = sources;
    return sources;
}

std::vector<DRAVSourceDescriptor> DRAVManager::GetAvailableSources(DRAVSourceType type,
                                                                   DRAVSourceUsageType usage, bool reload)
{
    std::vector<DRAVSourceDescriptor> sources;
    {
        CDplScopedLock lock(availableSourcesMutex_);
        if (!reload && !sourcesChanged_.load() && !allSources_.empty())
        {
            sources = availableSources_;
        }
        else
        {
            // Cleared before the enumeration, so that a change told meanwhile
            // asks for the next one.
            sourcesChanged_.store(false);
            sources = GetAllSources();
            availableSources_ = sources;
        }
    }
    if (type == 0 && usage == 0)
    {
        return sources;
    }
    std::vector<DRAVSourceDescriptor> kept;
    std::copy_if(sources.begin(), sources.end(), std::back_inserter(kept),
                 [&](const DRAVSourceDescriptor& source)
                 { return (type == 0 || source.type == type) && (usage == 0 || source.usage == usage); });
    return kept;
}
