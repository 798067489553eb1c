#include "engine/units/DRAVTestSourceDescriptors.h"

namespace
{
constexpr DRAVSourceType kTestSourceType = 1;
constexpr DRAVSourceUsageType kTestSourceUsage = 4;
}  // namespace

std::vector<DRAVSourceDescriptor> DRAVTestSourceDescriptors()
{
    return {
        DRAVSourceDescriptor(kTestSourceType, kTestSourceUsage, "A/V Test Generator", "AVTESTGEN_1", ""),
        DRAVSourceDescriptor(kTestSourceType, kTestSourceUsage, "A/V Test Generator (2)", "AVTESTGEN_2", ""),
    };
}
