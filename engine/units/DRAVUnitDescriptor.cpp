#include "engine/units/DRAVUnitDescriptor.h"

#include "engine/units/DRAVUnitFactory.h"

std::vector<DRAVUnitDescriptor> DRAVUnitDescriptor::GetSiblings() const
{
    // Through the installed factory: the registry lives above the units.
    return DRAVUnitFactory::ListSiblings(objectId);
}
