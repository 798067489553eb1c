#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "engine/DRAVManagerDeviceChangeHandler.h"
#include "engine/DRAVSourceRegistryInterface.h"
#include "engine/media/DRAVLogIntervals.h"
#include "engine/media/DRAVMemoryPoolRAM.h"
#include "engine/units/DRAVFilter.h"
#include "engine/units/DRAVFilterDescriptor.h"
#include "engine/units/DRAVQueueStatistics.h"
#include "engine/units/DRAVSink.h"
#include "engine/units/DRAVSinkDescriptor.h"
#include "engine/units/DRAVSource.h"
#include "engine/units/DRAVSourceDescriptor.h"
#include "engine/units/DRAVUnitDescriptor.h"
#include "engine/units/DRAVUnitFactory.h"
#include "portable-core/CDplThreadMutex.h"
#include "portable-core/DRAVResult.h"
#include "portable-core/DRAVSlowLog.h"
#include "portable-core/KVObserver.h"
#include "settings/DRAVEngineFolders.h"
#include "settings/DRAVEngineSettings.h"

// The engine's singleton: it owns the memory pool every frame comes from, the
// engine settings with their path, and the registry of the units made through
// it (pipelines, sources, sinks, filters), where a unit is found by its object
// id and a unit's class is chosen from a configuration.
//
// The unit lists have one recursive mutex, which is never held across a call
// into a unit: searches work on a copy, and a unit found may have left the
// lists by the time it is used (its shared_ptr keeps it alive).
//
// Pipelines have no class yet: their list stays empty and the pipeline
// look-ups find nothing.
class DRAVManager final : public DRAVSourceRegistryInterface
{
public:
    // Input pins' and output pins' queue statistics.
    using UnitStatistics = std::pair<std::vector<DRAVQueueStatistics>, std::vector<DRAVQueueStatistics>>;

    // Made on first use, thread-safe, never destroyed.
    static DRAVManager* GetDRAVManager();
    static std::string GetApiVersion() { return "DRAV Version 1.0"; }

    // Makes the pool "MEMPOOL RAM" and installs it for the engine's frames,
    // starts the device change handler and routes units' helper creation to
    // this manager (DRAVUnitFactory). A second Init without Deinit changes
    // nothing.
    DRAVResult Init();
    // Empties the registry and deinitialises its units outside the lock,
    // clears the pool (frames still alive keep their storage and the pool),
    // puts back the former pool and unit factory and saves the settings.
    void Deinit();
    bool IsInitialized() const;

    DRAVEngineSettings GetEngineSettings() const;
    // Takes the settings; "OkNoDataChanged" when nothing changed; with save,
    // the result of writing them.
    DRAVResult SetEngineSettings(const DRAVEngineSettings& settings, bool async, bool save);
    // Reads the settings file in folder; never writes it.
    DRAVResult LoadEngineSettings(const std::string& folder);
    // ErrInvalidState before LoadEngineSettings gave the settings a path.
    DRAVResult SaveEngineSettings();
    // Defaults, but the folders stay; then set and saved.
    DRAVResult ResetEngineSettings();
    std::string GetSettingsPath() const;
    DRAVResult InitLogFile(const std::string& folder, const std::string& name);
    void RegisterExternalNotificationHandler(
        const std::shared_ptr<DRAVSettingsNotificationInterface>& handler);
    void UnregisterExternalNotificationHandler(
        const std::shared_ptr<DRAVSettingsNotificationInterface>& handler);

    std::shared_ptr<DRAVMemoryPoolRAM> GetMemoryPool() const;
    // With `enabled`: the pool's number of items and its size in MB; else 0, 0.
    std::pair<int64_t, int64_t> GetMemoryPoolStatistics(bool enabled) const;

    // Making units. The platform's makers are asked first; then the engine's
    // default sink (type 1) or its own filters. ErrUnknownUnit (a source:
    // ErrUnknown) when nothing was made, and `out` stays untouched. With an
    // owner the unit becomes its child, even when its Init fails. The static
    // forms don't register the unit here.
    static DRAVResult CreateSourceStatic(const DRAVSourceConfig& config, std::shared_ptr<DRAVSource>* out,
                                         std::shared_ptr<DRAVUnit> owner, bool init);
    static DRAVResult CreateSinkStatic(const DRAVSinkConfig& config, std::shared_ptr<DRAVSink>* out,
                                       std::shared_ptr<DRAVUnit> owner, bool init);
    static DRAVResult CreateFilterStatic(const DRAVFilterConfig& config, std::shared_ptr<DRAVFilter>* out,
                                         std::shared_ptr<DRAVUnit> owner, bool init);
    DRAVResult CreateSource(const DRAVSourceConfig& config, std::shared_ptr<DRAVSource>* out,
                            std::shared_ptr<DRAVUnit> owner, bool init);
    DRAVResult CreateSink(const DRAVSinkConfig& config, std::shared_ptr<DRAVSink>* out,
                          std::shared_ptr<DRAVUnit> owner, bool init);
    DRAVResult CreateFilter(const DRAVFilterConfig& config, std::shared_ptr<DRAVFilter>* out,
                            std::shared_ptr<DRAVUnit> owner, bool init);

    // The first registered unit of that type (for a source, 0 matches any
    // type or usage), child of `owner` when given, with that friendly name
    // when given; ErrNotFound if none.
    DRAVResult FindSource(DRAVSourceType type, DRAVSourceUsageType usage, std::shared_ptr<DRAVSource>* out,
                          std::shared_ptr<DRAVUnit> owner = nullptr);
    DRAVResult FindSink(DRAVSinkType type, std::shared_ptr<DRAVSink>* out,
                        std::shared_ptr<DRAVUnit> owner = nullptr, const std::string& name = std::string());
    DRAVResult FindFilter(DRAVFilterType type, std::shared_ptr<DRAVFilter>* out,
                          std::shared_ptr<DRAVUnit> owner = nullptr, const std::string& name = std::string());

    // Takes the unit out of its owner's children and out of the registry;
    // ErrNotFound when it wasn't registered. The unit is not deinitialised.
    DRAVResult RemoveUnit(const std::shared_ptr<DRAVUnit>& unit);

    std::shared_ptr<DRAVUnit> GetUnit(const std::string& objectId) override;
    bool IsActiveUnit(const std::string& objectId);
    // The unit's state, or 0 when it isn't registered.
    DRAVUnitState GetUnitState(const std::string& objectId);
    DRAVResult SetUnitState(const std::string& objectId, DRAVUnitState state);
    DRAVUnitDescriptor GetUnitDescriptor(const std::string& objectId);
    DRAVUnitDescriptor GetUnitDescriptor(const std::shared_ptr<DRAVUnit>& unit);

    // Every registered unit: pipelines, sources, filters, sinks.
    std::vector<std::shared_ptr<DRAVUnit>> GetActiveUnitList();
    // Without a parent: every unit without a living owner, each followed,
    // with `recursive`, by its children depth first. With a parent: its
    // children. An id that names no registered unit gives nothing.
    std::vector<DRAVUnitDescriptor> GetActiveUnits(bool recursive,
                                                   std::shared_ptr<DRAVUnit> parent = nullptr);
    std::vector<DRAVUnitDescriptor> GetActiveUnits(bool recursive, const std::string& parentId);
    std::vector<DRAVSourceDescriptor> GetActiveSources(bool recursive,
                                                       std::shared_ptr<DRAVUnit> parent = nullptr) override;
    std::vector<DRAVSourceDescriptor> GetActiveSources(bool recursive, const std::string& parentId);
    std::vector<DRAVFilterDescriptor> GetActiveFilters(bool recursive,
                                                       std::shared_ptr<DRAVUnit> parent = nullptr);
    std::vector<DRAVFilterDescriptor> GetActiveFilters(bool recursive, const std::string& parentId);
    std::vector<DRAVSinkDescriptor> GetActiveSinks(bool recursive,
                                                   std::shared_ptr<DRAVUnit> parent = nullptr);
    std::vector<DRAVSinkDescriptor> GetActiveSinks(bool recursive, const std::string& parentId);
    std::vector<DRAVUnitDescriptor> GetActivePipelines(bool recursive,
                                                       std::shared_ptr<DRAVUnit> parent = nullptr);
    std::vector<DRAVUnitDescriptor> GetActivePipelines(bool recursive, const std::string& parentId);
    // The registered units that `objectId` owns.
    std::vector<DRAVUnitDescriptor> GetSiblings(const std::string& objectId);
    // Appends the units of `list` owned by `unit`; with `recursive` each is
    // followed by its own, depth first.
    void GetSiblings(const std::shared_ptr<DRAVUnit>& unit,
                     const std::vector<std::shared_ptr<DRAVUnit>>& list, std::vector<DRAVUnitDescriptor>& out,
                     bool recursive);
    // Only for an initialised unit; empty otherwise.
    UnitStatistics GetUnitStatistics(const std::string& objectId);

    // Pipelines: none can be registered yet, so these find nothing.
    DRAVResult GetPipeline(const std::shared_ptr<DRAVUnit>& unit, std::shared_ptr<DRAVUnit>* out);
    DRAVResult GetPipelineByID(const std::string& objectId, std::shared_ptr<DRAVUnit>* out);
    std::shared_ptr<DRAVUnit> GetPipeline(int32_t pipelineType);
    std::shared_ptr<DRAVUnit> GetPreviewPipeline() override;
    std::string GetPreviewPipelineID();

    // Marks the source list as changed, so the next GetAvailableSources
    // enumerates again.
    void SetAllowAllSources(bool allow);
    // Enumerates: the platform's sources, the two test sources, the device
    // change handler's. Replaces the stored list and returns it.
    std::vector<DRAVSourceDescriptor> GetAllSources();
    // The last list handed out, unless `reload` or a change asks for a new
    // enumeration; kept to `type` and `usage` where these are not 0.
    std::vector<DRAVSourceDescriptor> GetAvailableSources(DRAVSourceType type, DRAVSourceUsageType usage,
                                                          bool reload) override;

    // Logs DumpActiveUnitListGetString(false).
    void DumpActiveUnitList();
    // Logs one unit and its children, with details.
    void DumpActiveUnits(const std::string& objectId);
    // Ruled lines around one line per unit, indented by ownership.
    std::string DumpActiveUnitListGetString(bool details);

    // Property access by object id: the registered unit with that id, with
    // force false. An unknown id does nothing, and a getter gives the type's
    // empty value.
    KVCMap* GetObjectProperties(const std::string& objectId);
    bool IsReadOnlyProperty(const std::string& objectId, const char* name);
    bool HasProperty(const std::string& objectId, const char* name);
    void SetIntProperty(const std::string& objectId, const char* name, int64_t value);
    int64_t GetIntProperty(const std::string& objectId, const char* name);
    void SetDoubleProperty(const std::string& objectId, const char* name, double value);
    double GetDoubleProperty(const std::string& objectId, const char* name);
    void SetStringProperty(const std::string& objectId, const char* name, const std::string& value);
    std::string GetStringProperty(const std::string& objectId, const char* name);
    void SetJsonProperty(const std::string& objectId, const char* name, const std::string& value);
    std::string GetJsonProperty(const std::string& objectId, const char* name);
    void SetSizeProperty(const std::string& objectId, const char* name, const DRCSizeInteger& value);
    DRCSizeInteger GetSizeProperty(const std::string& objectId, const char* name);
    void SetBoolProperty(const std::string& objectId, const char* name, bool value);
    bool GetBoolProperty(const std::string& objectId, const char* name);
    void ExecuteCommandProperty(const std::string& objectId, const char* name);

    // Adds (removes) `observer` to the property `name` of every registered
    // unit that has it; a null or empty name means "Common Observer". The
    // observer must be removed before it dies.
    void AddObserver(KVObserver* observer, const char* name);
    void RemoveObserver(KVObserver* observer, const char* name);

    DRAVManagerDeviceChangeHandler& GetDeviceChangeHandler() { return deviceChangeHandler_; }

private:
    // Ownership chains are short; a longer one is a loop.
    static constexpr int kMaxOwnershipDepth = 64;

    DRAVManager();

    std::shared_ptr<DRAVUnit> FindRegisteredUnit(const std::string& objectId);
    // Registered units in listing order: roots (or the parent's children),
    // each followed, with `recursive`, by its children depth first.
    std::vector<std::shared_ptr<DRAVUnit>> CollectUnits(bool recursive,
                                                        const std::shared_ptr<DRAVUnit>& parent);
    void CollectChildren(const std::shared_ptr<DRAVUnit>& unit,
                         const std::vector<std::shared_ptr<DRAVUnit>>& list,
                         std::vector<std::shared_ptr<DRAVUnit>>& out, bool recursive, int depth);
    bool IsPipeline(const std::shared_ptr<DRAVUnit>& unit);
    void AppendSiblingsAsString(int level, const std::shared_ptr<DRAVUnit>& unit,
                                const std::vector<std::shared_ptr<DRAVUnit>>& list, bool details,
                                std::string& text);
    DRAVUnitFactory MakeUnitFactory();

    // Init and Deinit one at a time.
    CDplThreadMutex lifecycleMutex_;
    std::atomic<bool> initialized_{false};

    // Settings and pool.
    mutable CDplThreadMutex lock_;
    DRAVEngineSettings settings_;
    std::string settingsPath_;
    std::shared_ptr<DRAVMemoryPoolRAM> pool_;
    std::shared_ptr<DRAVMemoryPoolRAM> formerPool_;
    DRAVUnitFactory formerFactory_;

    // The registry.
    CDplThreadMutex unitsMutex_;
    std::vector<std::shared_ptr<DRAVUnit>> pipelines_;
    std::vector<std::shared_ptr<DRAVSource>> sources_;
    std::vector<std::shared_ptr<DRAVSink>> sinks_;
    std::vector<std::shared_ptr<DRAVFilter>> filters_;

    // Source enumeration.
    CDplThreadMutex availableSourcesMutex_;
    std::vector<DRAVSourceDescriptor> allSources_;
    std::vector<DRAVSourceDescriptor> availableSources_;
    std::atomic<bool> sourcesChanged_{true};

    DRAVManagerDeviceChangeHandler deviceChangeHandler_{*this};
    DRAVSlowLog slowLog_{kSlowLogInterval1, kDbgPrintLevelWarning};
};
