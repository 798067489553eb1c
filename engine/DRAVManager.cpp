// The engine manager's life cycle, its settings and its pool. Units are made
// and registered in DRAVManagerUnits.cpp, sources enumerated in
// DRAVManagerSources.cpp, properties reached in DRAVManagerProperties.cpp and
// the registry dumped in DRAVManagerDumps.cpp.
#include "engine/DRAVManager.h"

#include "engine/DRAVPlatformSpecific.h"
#include "portable-core/BreakIntoDebugger.h"
#include "portable-core/DRAVLogFolder.h"
#include "portable-core/DplFile.h"
#include "settings/DRMXSettings.h"

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
