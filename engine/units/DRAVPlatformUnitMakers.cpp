#include "engine/units/DRAVPlatformUnitMakers.h"

#include <utility>

#include "portable-core/CDplThreadMutex.h"

namespace
{
CDplThreadMutex& MakersMutex()
{
    static CDplThreadMutex* const sMutex = new CDplThreadMutex();
    return *sMutex;
}

DRAVPlatformUnitMakers& InstalledMakers()
{
    // Never destroyed: units may be made during static destruction.
    static DRAVPlatformUnitMakers* const sMakers = new DRAVPlatformUnitMakers();
    return *sMakers;
}
}  // namespace

DRAVPlatformUnitMakers DRAVPlatformUnitMakers::Install(DRAVPlatformUnitMakers makers)
{
    CDplScopedLock lock(MakersMutex());
    std::swap(InstalledMakers(), makers);
    return makers;
}

DRAVPlatformUnitMakers DRAVPlatformUnitMakers::Current()
{
    CDplScopedLock lock(MakersMutex());
    return InstalledMakers();
}
