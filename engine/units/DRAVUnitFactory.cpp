#include "engine/units/DRAVUnitFactory.h"

#include <utility>

#include "portable-core/CDplThreadMutex.h"

namespace
{
CDplThreadMutex& FactoryMutex()
{
    static CDplThreadMutex* const sMutex = new CDplThreadMutex();
    return *sMutex;
}

DRAVUnitFactory& InstalledFactory()
{
    // Never destroyed: units may be released during static destruction.
    static DRAVUnitFactory* const sFactory = new DRAVUnitFactory();
    return *sFactory;
}
}  // namespace

DRAVUnitFactory DRAVUnitFactory::Install(DRAVUnitFactory factory)
{
    CDplScopedLock lock(FactoryMutex());
    std::swap(InstalledFactory(), factory);
    return factory;
}

DRAVUnitFactory DRAVUnitFactory::Current()
{
    CDplScopedLock lock(FactoryMutex());
    return InstalledFactory();
}

DRAVResult DRAVUnitFactory::CreateSource(int32_t type, int32_t usage, std::shared_ptr<DRAVUnit> owner,
                                         bool init, std::shared_ptr<DRAVUnit>* out)
{
    const SourceCreate create = Current().createSource;
    if (!create)
    {
        return DRAVResult(kDRAVResultErrUnknownUnit, "No source of type %d", type);
    }
    return create(type, usage, std::move(owner), init, out);
}

DRAVResult DRAVUnitFactory::CreateSink(int32_t type, std::shared_ptr<DRAVUnit> owner, bool init,
                                       std::shared_ptr<DRAVUnit>* out)
{
    const Create create = Current().createSink;
    if (!create)
    {
        return DRAVResult(kDRAVResultErrUnknownUnit, "No sink of type %d", type);
    }
    return create(type, std::move(owner), init, out);
}

DRAVResult DRAVUnitFactory::CreateFilter(int32_t type, std::shared_ptr<DRAVUnit> owner, bool init,
                                         std::shared_ptr<DRAVUnit>* out)
{
    const Create create = Current().createFilter;
    if (!create)
    {
        return DRAVResult(kDRAVResultErrUnknownUnit, "No filter of type %d", type);
    }
    return create(type, std::move(owner), init, out);
}

void DRAVUnitFactory::RemoveUnit(const std::shared_ptr<DRAVUnit>& unit)
{
    const Remove remove = Current().removeUnit;
    if (remove && unit)
    {
        remove(unit);
    }
}

std::vector<DRAVUnitDescriptor> DRAVUnitFactory::ListSiblings(const std::string& objectId)
{
    const Siblings list = Current().listSiblings;
    return list ? list(objectId) : std::vector<DRAVUnitDescriptor>{};
}
