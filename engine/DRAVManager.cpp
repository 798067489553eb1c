#include "engine/DRAVManager.h"

#include <algorithm>
#include <functional>
#include <set>

#include "engine/DRAVPlatformSpecific.h"
#include "engine/filters/DRAVEngineFilters.h"
#include "engine/units/DRAVPlatformUnitMakers.h"
#include "engine/units/DRAVTestSourceDescriptors.h"
#include "portable-core/BreakIntoDebugger.h"
#include "portable-core/DRAVLogFolder.h"
#include "portable-core/DplFile.h"
#include "settings/DRMXSettings.h"

namespace
{
const std::string kRuleDouble(40, '=');
const std::string kRuleSingle(40, '-');
// Ownership chains are short; a longer one is a loop.
constexpr int kMaxOwnershipDepth = 64;

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

DRAVManager* DRAVManager::GetDRAVManager()
{
    static DRAVManager* manager = new DRAVManager();
    return manager;
}

DRAVManager::DRAVManager() = default;

DRAVUnitFactory DRAVManager::MakeUnitFactory()
{
    DRAVUnitFactory factory;
    factory.createSource = [this](int32_t type, int32_t usage, std::shared_ptr<DRAVUnit> owner, bool init,
                                  std::shared_ptr<DRAVUnit>* out)
    {
        std::shared_ptr<DRAVSource> source;
        DRAVResult result = CreateSource(DRAVSourceConfig{type, usage}, &source, std::move(owner), init);
        if (result.Succeeded() && out != nullptr)
        {
            *out = source;
        }
        return result;
    };
    factory.createSink =
        [this](int32_t type, std::shared_ptr<DRAVUnit> owner, bool init, std::shared_ptr<DRAVUnit>* out)
    {
        DRAVSinkConfig config;
        config.type = type;
        std::shared_ptr<DRAVSink> sink;
        DRAVResult result = CreateSink(config, &sink, std::move(owner), init);
        if (result.Succeeded() && out != nullptr)
        {
            *out = sink;
        }
        return result;
    };
    factory.createFilter =
        [this](int32_t type, std::shared_ptr<DRAVUnit> owner, bool init, std::shared_ptr<DRAVUnit>* out)
    {
        std::shared_ptr<DRAVFilter> filter;
        DRAVResult result = CreateFilter(DRAVFilterConfig{type, false}, &filter, std::move(owner), init);
        if (result.Succeeded() && out != nullptr)
        {
            *out = filter;
        }
        return result;
    };
    factory.removeUnit = [this](const std::shared_ptr<DRAVUnit>& unit) { RemoveUnit(unit); };
    factory.listSiblings = [this](const std::string& objectId) { return GetSiblings(objectId); };
    return factory;
}

DRAVResult DRAVManager::Init()
{
    CDplScopedLock lifecycle(lifecycleMutex_);
    if (initialized_.load())
    {
        return DRAVResult(kDRAVResultOk);
    }
    {
        CDplScopedLock lock(lock_);
        pool_ = std::make_shared<DRAVMemoryPoolRAM>(kMemoryPoolRAMName, kMaxRAMPoolItems, kMaxRAMPoolSizeMB);
        formerPool_ = DRAVMemoryPoolRAM::InstallShared(pool_);
    }
    deviceChangeHandler_.Init();
    formerFactory_ = DRAVUnitFactory::Install(MakeUnitFactory());
    initialized_.store(true);
    return InitManagerPlatformSpecific();
}

void DRAVManager::Deinit()
{
    CDplScopedLock lifecycle(lifecycleMutex_);
    const bool wasInitialized = initialized_.load();
    if (!wasInitialized)
    {
        BreakIntoDebugger();
    }
    DumpActiveUnitList();
    initialized_.store(false);
    deviceChangeHandler_.DeInit();

    std::vector<std::shared_ptr<DRAVUnit>> pipelines;
    {
        CDplScopedLock lock(unitsMutex_);
        pipelines = pipelines_;
    }
    for (const auto& pipeline : pipelines)
    {
        pipeline->SetUnitState(kDRAVUnitStatePaused);
    }
    std::vector<std::shared_ptr<DRAVSource>> sources;
    std::vector<std::shared_ptr<DRAVSink>> sinks;
    std::vector<std::shared_ptr<DRAVFilter>> filters;
    pipelines.clear();
    {
        CDplScopedLock lock(unitsMutex_);
        pipelines.swap(pipelines_);
        sources.swap(sources_);
        sinks.swap(sinks_);
        filters.swap(filters_);
    }
    // Outside the lock: a unit's Deinit may come back to RemoveUnit.
    for (const auto& sink : sinks)
    {
        sink->Deinit();
    }
    for (const auto& pipeline : pipelines)
    {
        pipeline->Deinit();
    }
    for (const auto& source : sources)
    {
        source->Deinit();
    }
    for (const auto& filter : filters)
    {
        filter->Deinit();
    }
    sinks.clear();
    pipelines.clear();
    sources.clear();
    filters.clear();

    if (wasInitialized)
    {
        DRAVUnitFactory::Install(formerFactory_);
        formerFactory_ = DRAVUnitFactory();
    }
    {
        CDplScopedLock lock(lock_);
        if (pool_)
        {
            // Frames still alive hold the pool and give their blocks back to it.
            pool_->Clear();
            if (DRAVMemoryPoolRAM::Shared() == pool_)
            {
                DRAVMemoryPoolRAM::InstallShared(formerPool_);
            }
            pool_.reset();
            formerPool_.reset();
        }
        if (!settingsPath_.empty())
        {
            settings_.SaveSettings(settingsPath_).LogError("Couldn't save the engine settings");
        }
    }
    DeinitManagerPlatformSpecific();
}

bool DRAVManager::IsInitialized() const
{
    return initialized_.load();
}

// Settings

DRAVEngineSettings DRAVManager::GetEngineSettings() const
{
    CDplScopedLock lock(lock_);
    return settings_;
}

DRAVResult DRAVManager::SetEngineSettings(const DRAVEngineSettings& settings, bool async, bool save)
{
    CDplScopedLock lock(lock_);
    if (!settings_.UpdateSettings(settings, async))
    {
        return DRAVResult(kDRAVResultOkNoDataChanged);
    }
    if (save)
    {
        return SaveEngineSettings();
    }
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVManager::LoadEngineSettings(const std::string& folder)
{
    CDplScopedLock lock(lock_);
    if (folder.empty())
    {
        // No configuration home: no file, rather than one in the working folder.
        settingsPath_.clear();
        return DRAVResult(kDRAVResultErrCouldNotOpenFile, "no folder for the engine settings");
    }
    settingsPath_ = DplFile_AddPathComponent(folder, DRMX_Settings::SETTINGS_JSON_FILENAME);
    return settings_.LoadSettings(settingsPath_);
}

DRAVResult DRAVManager::SaveEngineSettings()
{
    CDplScopedLock lock(lock_);
    if (settingsPath_.empty())
    {
        // Before LoadEngineSettings there is no file to write to.
        return DRAVResult(kDRAVResultErrInvalidState, "The engine settings have no path yet");
    }
    return settings_.SaveSettings(settingsPath_);
}

DRAVResult DRAVManager::ResetEngineSettings()
{
    DRAVEngineSettings fresh;
    {
        CDplScopedLock lock(lock_);
        fresh.settingsFolder = settings_.settingsFolder;
        fresh.overridesFolder = settings_.overridesFolder;
        fresh.logFolder = settings_.logFolder;
        fresh.recordingsLogFolder = settings_.recordingsLogFolder;
        fresh.edidFolder = settings_.edidFolder;
        fresh.tmpFolder = settings_.tmpFolder;
    }
    return SetEngineSettings(fresh, true, true);
}

std::string DRAVManager::GetSettingsPath() const
{
    CDplScopedLock lock(lock_);
    return settingsPath_;
}

DRAVResult DRAVManager::InitLogFile(const std::string& folder, const std::string& name)
{
    DRAVLog::DRAVInitLogFile(folder, name, 10);
    return DRAVResult(kDRAVResultOk);
}

void DRAVManager::RegisterExternalNotificationHandler(
    const std::shared_ptr<DRAVSettingsNotificationInterface>& handler)
{
    CDplScopedLock lock(lock_);
    settings_.RegisterNotificationHandler(handler);
}

void DRAVManager::UnregisterExternalNotificationHandler(
    const std::shared_ptr<DRAVSettingsNotificationInterface>& handler)
{
    CDplScopedLock lock(lock_);
    settings_.UnregisterNotificationHandler(handler);
}

// Pool

std::shared_ptr<DRAVMemoryPoolRAM> DRAVManager::GetMemoryPool() const
{
    CDplScopedLock lock(lock_);
    return pool_;
}

std::pair<int64_t, int64_t> DRAVManager::GetMemoryPoolStatistics(bool enabled) const
{
    std::shared_ptr<DRAVMemoryPoolRAM> pool = GetMemoryPool();
    if (!enabled || !pool)
    {
        return {0, 0};
    }
    return {pool->GetNumItems(), pool->GetTotalSizeMB()};
}

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

// Sources

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

// Dumps

void DRAVManager::AppendSiblingsAsString(int level, const std::shared_ptr<DRAVUnit>& unit,
                                         const std::vector<std::shared_ptr<DRAVUnit>>& list, bool details,
                                         std::string& text)
{
    if (level > kMaxOwnershipDepth)
    {
        return;
    }
    const std::string indent(static_cast<size_t>(level) * 4, ' ');
    text +=
        indent + "| " + unit->GetFriendlyName() + " (" + DRAVUnitStateToString(unit->GetUnitState()) + ")\n";
    if (details)
    {
        const std::string prefix = indent + "    ";
        const auto pinLine = [&](const std::shared_ptr<DRAVUnitPin>& pin)
        {
            DRAVQueueStatistics statistics;
            if (pin && pin->GetQueueStatistics(&statistics).Succeeded())
            {
                text += statistics.GetContentString(prefix) + "\n";
            }
        };
        for (int number = 0; number < unit->GetNumInputPins(); ++number)
        {
            pinLine(unit->GetInputPin(number));
        }
        for (int number = 0; number < unit->GetNumOutputPins(); ++number)
        {
            pinLine(unit->GetOutputPin(number));
        }
        if (KVCMap* map = unit->GetPropertyMap())
        {
            const std::string content = map->GetContentString(unit, prefix);
            if (!content.empty())
            {
                text += content;
                if (content.back() != '\n')
                {
                    text += "\n";
                }
            }
        }
    }
    const std::string& id = unit->GetObjectID();
    for (const auto& candidate : list)
    {
        if (candidate != unit && candidate->GetOwnerID() == id)
        {
            AppendSiblingsAsString(level + 1, candidate, list, details, text);
        }
    }
}

std::string DRAVManager::DumpActiveUnitListGetString(bool details)
{
    const std::vector<std::shared_ptr<DRAVUnit>> list = GetActiveUnitList();
    std::string text = kRuleDouble + " ACTIVE UNITS\n" + kRuleSingle + "\n";
    for (const auto& unit : list)
    {
        if (!unit->GetOwner())
        {
            AppendSiblingsAsString(0, unit, list, details, text);
        }
    }
    text += kRuleDouble + "\n";
    return text;
}

namespace
{
void LogLines(const std::string& text)
{
    size_t start = 0;
    while (start < text.size())
    {
        const size_t end = text.find('\n', start);
        const size_t stop = end == std::string::npos ? text.size() : end;
        DRAVLogLine(kDbgPrintLevelInfo, text.substr(start, stop - start));
        start = stop + 1;
    }
}
}  // namespace

void DRAVManager::DumpActiveUnitList()
{
    LogLines(DumpActiveUnitListGetString(false));
}

void DRAVManager::DumpActiveUnits(const std::string& objectId)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    if (!unit)
    {
        return;
    }
    std::string text;
    AppendSiblingsAsString(0, unit, GetActiveUnitList(), true, text);
    LogLines(text);
}

// Properties by object id

KVCMap* DRAVManager::GetObjectProperties(const std::string& objectId)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    return unit ? unit->GetPropertyMap() : nullptr;
}

bool DRAVManager::IsReadOnlyProperty(const std::string& objectId, const char* name)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    return unit && name != nullptr && unit->IsReadOnlyProperty(name);
}

bool DRAVManager::HasProperty(const std::string& objectId, const char* name)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    return unit && name != nullptr && unit->HasProperty(name);
}

void DRAVManager::SetIntProperty(const std::string& objectId, const char* name, int64_t value)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    if (unit && name != nullptr)
    {
        unit->SetIntProperty(name, value, false);
    }
}

int64_t DRAVManager::GetIntProperty(const std::string& objectId, const char* name)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    return unit && name != nullptr ? unit->GetIntProperty(name) : 0;
}

void DRAVManager::SetDoubleProperty(const std::string& objectId, const char* name, double value)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    if (unit && name != nullptr)
    {
        unit->SetDoubleProperty(name, value, false);
    }
}

double DRAVManager::GetDoubleProperty(const std::string& objectId, const char* name)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    return unit && name != nullptr ? unit->GetDoubleProperty(name) : 0.0;
}

void DRAVManager::SetStringProperty(const std::string& objectId, const char* name, const std::string& value)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    if (unit && name != nullptr)
    {
        unit->SetStringProperty(name, value, false);
    }
}

std::string DRAVManager::GetStringProperty(const std::string& objectId, const char* name)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    return unit && name != nullptr ? unit->GetStringProperty(name) : std::string();
}

void DRAVManager::SetJsonProperty(const std::string& objectId, const char* name, const std::string& value)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    if (unit && name != nullptr)
    {
        unit->SetJsonProperty(name, value, false);
    }
}

std::string DRAVManager::GetJsonProperty(const std::string& objectId, const char* name)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    return unit && name != nullptr ? unit->GetJsonProperty(name) : std::string();
}

void DRAVManager::SetSizeProperty(const std::string& objectId, const char* name, const DRCSizeInteger& value)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    if (unit && name != nullptr)
    {
        unit->SetSizeProperty(name, value, false);
    }
}

DRCSizeInteger DRAVManager::GetSizeProperty(const std::string& objectId, const char* name)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    return unit && name != nullptr ? unit->GetSizeProperty(name) : DRCSizeInteger();
}

void DRAVManager::SetBoolProperty(const std::string& objectId, const char* name, bool value)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    if (unit && name != nullptr)
    {
        unit->SetBoolProperty(name, value, false);
    }
}

bool DRAVManager::GetBoolProperty(const std::string& objectId, const char* name)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    return unit && name != nullptr && unit->GetBoolProperty(name);
}

void DRAVManager::ExecuteCommandProperty(const std::string& objectId, const char* name)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    if (unit && name != nullptr)
    {
        unit->ExecuteCommandProperty(name);
    }
}

void DRAVManager::AddObserver(KVObserver* observer, const char* name)
{
    if (observer == nullptr)
    {
        return;
    }
    const std::string property = (name == nullptr || *name == '\0') ? kPropertyCommonObserver : name;
    for (const auto& unit : GetActiveUnitList())
    {
        if (unit->FindProperty(property) != nullptr)
        {
            unit->AddObserver(KVOItem::Raw(observer), property);
        }
    }
}

void DRAVManager::RemoveObserver(KVObserver* observer, const char* name)
{
    if (observer == nullptr)
    {
        return;
    }
    const std::string property = (name == nullptr || *name == '\0') ? kPropertyCommonObserver : name;
    for (const auto& unit : GetActiveUnitList())
    {
        if (unit->FindProperty(property) != nullptr)
        {
            unit->RemoveObserver(KVOItem::Raw(observer), property);
        }
    }
}
