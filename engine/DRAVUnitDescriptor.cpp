#include "engine/DRAVUnitDescriptor.h"

#include "engine/DRAVManager.h"

std::vector<DRAVUnitDescriptor> DRAVUnitDescriptor::GetSiblings() const
{
    return DRAVManager::GetDRAVManager()->GetSiblings(objectId);
}
