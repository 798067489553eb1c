// The engine manager's registry: making units, finding, listing and removing
// them, and the (still empty) pipelines.
#include "engine/DRAVManager.h"

#include <algorithm>
#include <functional>

#include "engine/DRAVPlatformSpecific.h"
#include "engine/filters/DRAVEngineFilters.h"
#include "engine/units/DRAVPlatformUnitMakers.h"

namespace
{
template <class T>
bool EraseUnit(std::vector<std::shared_ptr<T>>& list, const DRAVUnit* unit)
{
    const auto it = std::find_if(list.begin(), list.end(),
                                 [unit](const std::shared_ptr<T>& entry) { return entry.get() == unit; });
    if (it == list.end())
    {
        return false;
    }
    list.erase(it);
    return true;
}

// The unit, made a child of `owner` when given, then initialised by `init`
// when asked; `*out` only on success.
template <class T>
DRAVResult FinishCreation(std::shared_ptr<T> unit, std::shared_ptr<T>* out,
                          const std::shared_ptr<DRAVUnit>& owner, bool init,
                          const std::function<DRAVResult(T&)>& initialize)
{
    if (owner)
    {
        owner->AddChild(unit);
        unit->SetOwner(owner);
    }
    DRAVResult result(kDRAVResultOk);
    if (init)
    {
        result = initialize(*unit);
    }
    if (result.Succeeded())
    {
        *out = std::move(unit);
    }
    return result;
}
}  // namespace

// Making units

DRAVResult DRAVManager::CreateSourceStatic(const DRAVSourceConfig& config, std::shared_ptr<DRAVSource>* out,
                                           std::shared_ptr<DRAVUnit> owner, bool init)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    std::shared_ptr<DRAVSource> source = CreateSourcePlatformSpecific(config);
    if (!source)
    {
        return DRAVResult(kDRAVResultErrUnknown, "No source of type %d (%s), usage %d", config.type,
                          DRAVSourceTypeToString(config.type), config.usage);
    }
    return FinishCreation<DRAVSource>(std::move(source), out, owner, init,
                                      [](DRAVSource& unit) { return unit.InitSource(kDRAVPinTypePull); });
}

DRAVResult DRAVManager::CreateSinkStatic(const DRAVSinkConfig& config, std::shared_ptr<DRAVSink>* out,
                                         std::shared_ptr<DRAVUnit> owner, bool init)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    std::shared_ptr<DRAVSink> sink = CreateSinkPlatformSpecific(config);
    if (!sink)
    {
        if (const auto makeDefault = DRAVPlatformUnitMakers::Current().defaultSink)
        {
            sink = makeDefault(config);
        }
    }
    if (!sink)
    {
        return DRAVResult(kDRAVResultErrUnknownUnit, "No sink of type %d", config.type);
    }
    return FinishCreation<DRAVSink>(std::move(sink), out, owner, init,
                                    [](DRAVSink& unit) { return unit.Init(); });
}

DRAVResult DRAVManager::CreateFilterStatic(const DRAVFilterConfig& config, std::shared_ptr<DRAVFilter>* out,
                                           std::shared_ptr<DRAVUnit> owner, bool init)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    std::shared_ptr<DRAVFilter> filter = CreateFilterPlatformSpecific(config);
    if (!filter)
    {
        filter = DRAVCreateEngineFilter(config);
    }
    if (!filter)
    {
        return DRAVResult(kDRAVResultErrUnknownUnit, "No filter of type %d", config.type);
    }
    return FinishCreation<DRAVFilter>(std::move(filter), out, owner, init,
                                      [](DRAVFilter& unit) { return unit.Init(); });
}

DRAVResult DRAVManager::CreateSource(const DRAVSourceConfig& config, std::shared_ptr<DRAVSource>* out,
                                     std::shared_ptr<DRAVUnit> owner, bool init)
{
    DRAVResult result = CreateSourceStatic(config, out, std::move(owner), init);
    if (result.Succeeded())
    {
        CDplScopedLock lock(unitsMutex_);
        sources_.push_back(*out);
    }
    return result;
}

DRAVResult DRAVManager::CreateSink(const DRAVSinkConfig& config, std::shared_ptr<DRAVSink>* out,
                                   std::shared_ptr<DRAVUnit> owner, bool init)
{
    DRAVResult result = CreateSinkStatic(config, out, std::move(owner), init);
    if (result.Succeeded())
    {
        CDplScopedLock lock(unitsMutex_);
        sinks_.push_back(*out);
    }
    return result;
}

DRAVResult DRAVManager::CreateFilter(const DRAVFilterConfig& config, std::shared_ptr<DRAVFilter>* out,
                                     std::shared_ptr<DRAVUnit> owner, bool init)
{
    DRAVResult result = CreateFilterStatic(config, out, std::move(owner), init);
    if (result.Succeeded())
    {
        CDplScopedLock lock(unitsMutex_);
        filters_.push_back(*out);
    }
    return result;
}

// Finding and removing units

DRAVResult DRAVManager::FindSource(DRAVSourceType type, DRAVSourceUsageType usage,
                                   std::shared_ptr<DRAVSource>* out, std::shared_ptr<DRAVUnit> owner)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    std::vector<std::shared_ptr<DRAVSource>> sources;
    {
        CDplScopedLock lock(unitsMutex_);
        sources = sources_;
    }
    for (const auto& source : sources)
    {
        if ((type == 0 || source->GetType() == type) && (usage == 0 || source->GetUsageType() == usage) &&
            (!owner || source->IsChildOf(owner)))
        {
            *out = source;
            return DRAVResult(kDRAVResultOk);
        }
    }
    return DRAVResult(kDRAVResultErrNotFound);
}

DRAVResult DRAVManager::FindSink(DRAVSinkType type, std::shared_ptr<DRAVSink>* out,
                                 std::shared_ptr<DRAVUnit> owner, const std::string& name)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    std::vector<std::shared_ptr<DRAVSink>> sinks;
    {
        CDplScopedLock lock(unitsMutex_);
        sinks = sinks_;
    }
    for (const auto& sink : sinks)
    {
        if (sink->GetType() == type && (!owner || sink->IsChildOf(owner)) &&
            (name.empty() || sink->GetFriendlyName() == name))
        {
            *out = sink;
            return DRAVResult(kDRAVResultOk);
        }
    }
    return DRAVResult(kDRAVResultErrNotFound);
}

DRAVResult DRAVManager::FindFilter(DRAVFilterType type, std::shared_ptr<DRAVFilter>* out,
                                   std::shared_ptr<DRAVUnit> owner, const std::string& name)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    std::vector<std::shared_ptr<DRAVFilter>> filters;
    {
        CDplScopedLock lock(unitsMutex_);
        filters = filters_;
    }
    for (const auto& filter : filters)
    {
        if (filter->GetType() == type && (!owner || filter->IsChildOf(owner)) &&
            (name.empty() || filter->GetFriendlyName() == name))
        {
            *out = filter;
            return DRAVResult(kDRAVResultOk);
        }
    }
    return DRAVResult(kDRAVResultErrNotFound);
}

DRAVResult DRAVManager::RemoveUnit(const std::shared_ptr<DRAVUnit>& unit)
{
    if (!unit)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    if (std::shared_ptr<DRAVUnit> owner = unit->GetOwner())
    {
        owner->RemoveChild(unit->GetObjectID());
    }
    CDplScopedLock lock(unitsMutex_);
    if (EraseUnit(sources_, unit.get()) || EraseUnit(sinks_, unit.get()) || EraseUnit(filters_, unit.get()))
    {
        return DRAVResult(kDRAVResultOk);
    }
    return DRAVResult(kDRAVResultErrNotFound);
}

std::vector<std::shared_ptr<DRAVUnit>> DRAVManager::GetActiveUnitList()
{
    CDplScopedLock lock(unitsMutex_);
    std::vector<std::shared_ptr<DRAVUnit>> units;
    units.reserve(pipelines_.size() + sources_.size() + filters_.size() + sinks_.size());
    units.insert(units.end(), pipelines_.begin(), pipelines_.end());
    units.insert(units.end(), sources_.begin(), sources_.end());
    units.insert(units.end(), filters_.begin(), filters_.end());
    units.insert(units.end(), sinks_.begin(), sinks_.end());
    return units;
}

std::shared_ptr<DRAVUnit> DRAVManager::FindRegisteredUnit(const std::string& objectId)
{
    if (objectId.empty())
    {
        return nullptr;
    }
    for (const auto& unit : GetActiveUnitList())
    {
        if (unit->GetObjectID() == objectId)
        {
            return unit;
        }
    }
    return nullptr;
}

std::shared_ptr<DRAVUnit> DRAVManager::GetUnit(const std::string& objectId)
{
    return FindRegisteredUnit(objectId);
}

bool DRAVManager::IsActiveUnit(const std::string& objectId)
{
    return FindRegisteredUnit(objectId) != nullptr;
}

DRAVUnitState DRAVManager::GetUnitState(const std::string& objectId)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    return unit ? unit->GetUnitState() : static_cast<DRAVUnitState>(0);
}

DRAVResult DRAVManager::SetUnitState(const std::string& objectId, DRAVUnitState state)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    if (!unit)
    {
        return DRAVResult(kDRAVResultErrNotFound);
    }
    return unit->SetUnitState(state);
}

bool DRAVManager::IsPipeline(const std::shared_ptr<DRAVUnit>& unit)
{
    CDplScopedLock lock(unitsMutex_);
    return std::find(pipelines_.begin(), pipelines_.end(), unit) != pipelines_.end();
}

DRAVUnitDescriptor DRAVManager::GetUnitDescriptor(const std::string& objectId)
{
    return GetUnitDescriptor(FindRegisteredUnit(objectId));
}

DRAVUnitDescriptor DRAVManager::GetUnitDescriptor(const std::shared_ptr<DRAVUnit>& unit)
{
    DRAVUnitDescriptor descriptor;
    if (!unit)
    {
        return descriptor;
    }
    descriptor.friendlyName = unit->GetFriendlyName();
    if (IsPipeline(unit))
    {
        descriptor.unitKind = DRAVUnitDescriptor::kUnitKindPipeline;
    }
    else if (dynamic_cast<DRAVSource*>(unit.get()) != nullptr)
    {
        descriptor.unitKind = DRAVUnitDescriptor::kUnitKindSource;
    }
    else if (dynamic_cast<DRAVSink*>(unit.get()) != nullptr)
    {
        descriptor.unitKind = DRAVUnitDescriptor::kUnitKindSink;
    }
    else if (dynamic_cast<DRAVFilter*>(unit.get()) != nullptr)
    {
        descriptor.unitKind = DRAVUnitDescriptor::kUnitKindFilter;
    }
    descriptor.objectId = unit->GetObjectID();
    if (std::shared_ptr<DRAVUnit> owner = unit->GetOwner())
    {
        descriptor.hasOwner = true;
        descriptor.ownerName = owner->GetFriendlyName();
        descriptor.ownerId = owner->GetObjectID();
    }
    return descriptor;
}

// Listing units

void DRAVManager::CollectChildren(const std::shared_ptr<DRAVUnit>& unit,
                                  const std::vector<std::shared_ptr<DRAVUnit>>& list,
                                  std::vector<std::shared_ptr<DRAVUnit>>& out, bool recursive, int depth)
{
    if (!unit || depth > kMaxOwnershipDepth)
    {
        return;
    }
    const std::string& id = unit->GetObjectID();
    for (const auto& candidate : list)
    {
        if (candidate != unit && candidate->GetOwnerID() == id)
        {
            out.push_back(candidate);
            if (recursive)
            {
                CollectChildren(candidate, list, out, recursive, depth + 1);
            }
        }
    }
}

std::vector<std::shared_ptr<DRAVUnit>> DRAVManager::CollectUnits(bool recursive,
                                                                 const std::shared_ptr<DRAVUnit>& parent)
{
    const std::vector<std::shared_ptr<DRAVUnit>> list = GetActiveUnitList();
    std::vector<std::shared_ptr<DRAVUnit>> out;
    if (parent)
    {
        CollectChildren(parent, list, out, recursive, 0);
        return out;
    }
    for (const auto& unit : list)
    {
        if (!unit->GetOwner())
        {
            out.push_back(unit);
            if (recursive)
            {
                CollectChildren(unit, list, out, recursive, 0);
            }
        }
    }
    return out;
}

std::vector<DRAVUnitDescriptor> DRAVManager::GetActiveUnits(bool recursive, std::shared_ptr<DRAVUnit> parent)
{
    std::vector<DRAVUnitDescriptor> descriptors;
    for (const auto& unit : CollectUnits(recursive, parent))
    {
        descriptors.push_back(GetUnitDescriptor(unit));
    }
    return descriptors;
}

std::vector<DRAVUnitDescriptor> DRAVManager::GetActiveUnits(bool recursive, const std::string& parentId)
{
    if (parentId.empty())
    {
        return GetActiveUnits(recursive, std::shared_ptr<DRAVUnit>());
    }
    std::shared_ptr<DRAVUnit> parent = FindRegisteredUnit(parentId);
    return parent ? GetActiveUnits(recursive, parent) : std::vector<DRAVUnitDescriptor>();
}

std::vector<DRAVSourceDescriptor> DRAVManager::GetActiveSources(bool recursive,
                                                                std::shared_ptr<DRAVUnit> parent)
{
    std::vector<DRAVSourceDescriptor> descriptors;
    for (const auto& unit : CollectUnits(recursive, parent))
    {
        auto source = std::dynamic_pointer_cast<DRAVSource>(unit);
        if (!source || IsPipeline(unit))
        {
            continue;
        }
        DRAVSourceDescriptor descriptor;
        static_cast<DRAVUnitDescriptor&>(descriptor) = GetUnitDescriptor(unit);
        descriptor.type = source->GetType();
        descriptor.usage = source->GetUsageType();
        if (source->HasProperty(kPropertyCaptureDevicePath))
        {
            descriptor.devicePath = source->GetStringProperty(kPropertyCaptureDevicePath);
        }
        if (source->HasProperty(kPropertyCaptureDeviceHardwareId))
        {
            descriptor.hardwareId = source->GetStringProperty(kPropertyCaptureDeviceHardwareId);
        }
        descriptors.push_back(std::move(descriptor));
    }
    return descriptors;
}

std::vector<DRAVSourceDescriptor> DRAVManager::GetActiveSources(bool recursive, const std::string& parentId)
{
    if (parentId.empty())
    {
        return GetActiveSources(recursive, std::shared_ptr<DRAVUnit>());
    }
    std::shared_ptr<DRAVUnit> parent = FindRegisteredUnit(parentId);
    return parent ? GetActiveSources(recursive, parent) : std::vector<DRAVSourceDescriptor>();
}

std::vector<DRAVFilterDescriptor> DRAVManager::GetActiveFilters(bool recursive,
                                                                std::shared_ptr<DRAVUnit> parent)
{
    std::vector<DRAVFilterDescriptor> descriptors;
    for (const auto& unit : CollectUnits(recursive, parent))
    {
        auto filter = std::dynamic_pointer_cast<DRAVFilter>(unit);
        if (!filter || IsPipeline(unit))
        {
            continue;
        }
        DRAVFilterDescriptor descriptor;
        static_cast<DRAVUnitDescriptor&>(descriptor) = GetUnitDescriptor(unit);
        descriptor.type = filter->GetType();
        descriptors.push_back(std::move(descriptor));
    }
    return descriptors;
}

std::vector<DRAVFilterDescriptor> DRAVManager::GetActiveFilters(bool recursive, const std::string& parentId)
{
    if (parentId.empty())
    {
        return GetActiveFilters(recursive, std::shared_ptr<DRAVUnit>());
    }
    std::shared_ptr<DRAVUnit> parent = FindRegisteredUnit(parentId);
    return parent ? GetActiveFilters(recursive, parent) : std::vector<DRAVFilterDescriptor>();
}

std::vector<DRAVSinkDescriptor> DRAVManager::GetActiveSinks(bool recursive, std::shared_ptr<DRAVUnit> parent)
{
    std::vector<DRAVSinkDescriptor> descriptors;
    for (const auto& unit : CollectUnits(recursive, parent))
    {
        auto sink = std::dynamic_pointer_cast<DRAVSink>(unit);
        if (!sink || IsPipeline(unit))
        {
            continue;
        }
        DRAVSinkDescriptor descriptor;
        static_cast<DRAVUnitDescriptor&>(descriptor) = GetUnitDescriptor(unit);
        descriptor.type = sink->GetType();
        descriptor.useDefaultRouting = sink->UseDefaultRouting();
        descriptors.push_back(std::move(descriptor));
    }
    return descriptors;
}

std::vector<DRAVSinkDescriptor> DRAVManager::GetActiveSinks(bool recursive, const std::string& parentId)
{
    if (parentId.empty())
    {
        return GetActiveSinks(recursive, std::shared_ptr<DRAVUnit>());
    }
    std::shared_ptr<DRAVUnit> parent = FindRegisteredUnit(parentId);
    return parent ? GetActiveSinks(recursive, parent) : std::vector<DRAVSinkDescriptor>();
}

std::vector<DRAVUnitDescriptor> DRAVManager::GetActivePipelines(bool recursive,
                                                                std::shared_ptr<DRAVUnit> parent)
{
    std::vector<DRAVUnitDescriptor> descriptors;
    for (const auto& unit : CollectUnits(recursive, parent))
    {
        if (IsPipeline(unit))
        {
            descriptors.push_back(GetUnitDescriptor(unit));
        }
    }
    return descriptors;
}

std::vector<DRAVUnitDescriptor> DRAVManager::GetActivePipelines(bool recursive, const std::string& parentId)
{
    if (parentId.empty())
    {
        return GetActivePipelines(recursive, std::shared_ptr<DRAVUnit>());
    }
    std::shared_ptr<DRAVUnit> parent = FindRegisteredUnit(parentId);
    return parent ? GetActivePipelines(recursive, parent) : std::vector<DRAVUnitDescriptor>();
}

std::vector<DRAVUnitDescriptor> DRAVManager::GetSiblings(const std::string& objectId)
{
    std::vector<DRAVUnitDescriptor> out;
    if (std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId))
    {
        GetSiblings(unit, GetActiveUnitList(), out, false);
    }
    return out;
}

void DRAVManager::GetSiblings(const std::shared_ptr<DRAVUnit>& unit,
                              const std::vector<std::shared_ptr<DRAVUnit>>& list,
                              std::vector<DRAVUnitDescriptor>& out, bool recursive)
{
    std::vector<std::shared_ptr<DRAVUnit>> children;
    CollectChildren(unit, list, children, recursive, 0);
    for (const auto& child : children)
    {
        out.push_back(GetUnitDescriptor(child));
    }
}

DRAVManager::UnitStatistics DRAVManager::GetUnitStatistics(const std::string& objectId)
{
    UnitStatistics statistics;
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    if (!unit || !unit->IsUnitInitialized())
    {
        return statistics;
    }
    for (int number = 0; number < unit->GetNumInputPins(); ++number)
    {
        if (std::shared_ptr<DRAVUnitInputPin> pin = unit->GetInputPin(number))
        {
            DRAVQueueStatistics entry;
            pin->GetQueueStatistics(&entry);
            entry.isInput = true;
            entry.pinNumber = number;
            statistics.first.push_back(entry);
        }
    }
    for (int number = 0; number < unit->GetNumOutputPins(); ++number)
    {
        if (std::shared_ptr<DRAVUnitOutputPin> pin = unit->GetOutputPin(number))
        {
            DRAVQueueStatistics entry;
            pin->GetQueueStatistics(&entry);
            entry.isInput = false;
            entry.pinNumber = number;
            statistics.second.push_back(entry);
        }
    }
    return statistics;
}

// Pipelines

DRAVResult DRAVManager::GetPipeline(const std::shared_ptr<DRAVUnit>& unit, std::shared_ptr<DRAVUnit>* out)
{
    if (!unit || out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    std::shared_ptr<DRAVUnit> current = unit;
    for (int depth = 0; current && depth <= kMaxOwnershipDepth; ++depth)
    {
        if (IsPipeline(current))
        {
            *out = current;
            return DRAVResult(kDRAVResultOk);
        }
        current = current->GetOwner();
    }
    return DRAVResult(kDRAVResultErrNotFound);
}

DRAVResult DRAVManager::GetPipelineByID(const std::string& objectId, std::shared_ptr<DRAVUnit>* out)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    CDplScopedLock lock(unitsMutex_);
    for (const auto& pipeline : pipelines_)
    {
        if (pipeline->GetObjectID() == objectId)
        {
            *out = pipeline;
            return DRAVResult(kDRAVResultOk);
        }
    }
    return DRAVResult(kDRAVResultErrNotFound);
}

std::shared_ptr<DRAVUnit> DRAVManager::GetPipeline(int32_t)
{
    // No pipeline class yet tells its type.
    return nullptr;
}

std::shared_ptr<DRAVUnit> DRAVManager::GetPreviewPipeline()
{
    return GetPipeline(1);
}

std::string DRAVManager::GetPreviewPipelineID()
{
    std::shared_ptr<DRAVUnit> preview = GetPreviewPipeline();
    return preview ? preview->GetObjectID() : std::string();
}
