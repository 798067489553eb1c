#pragma once

#include <memory>
#include <string>
#include <vector>

#include "engine/units/DRAVSourceDescriptor.h"
#include "engine/units/DRAVUnit.h"

// What the device change handler needs of the engine manager: the sources it
// can enumerate, the sources registered, and their units. The manager
// implements it, so the handler doesn't depend on the manager itself.
class DRAVSourceRegistryInterface
{
public:
    virtual ~DRAVSourceRegistryInterface() = default;

    // The last enumeration, or a new one with `reload`; kept to `type` and
    // `usage` where these are not 0.
    virtual std::vector<DRAVSourceDescriptor> GetAvailableSources(DRAVSourceType type,
                                                                  DRAVSourceUsageType usage, bool reload) = 0;
    // The registered sources, children of `parent` when given.
    virtual std::vector<DRAVSourceDescriptor> GetActiveSources(bool recursive,
                                                               std::shared_ptr<DRAVUnit> parent) = 0;
    // The registered unit with that id; null when there is none.
    virtual std::shared_ptr<DRAVUnit> GetUnit(const std::string& objectId) = 0;
    // The pipeline a returning source follows; null when there is none.
    virtual std::shared_ptr<DRAVUnit> GetPreviewPipeline() = 0;
};
