#pragma once

#include <memory>
#include <string>

#include "engine/DRAVMemoryPoolRAM.h"
#include "portable-core/CDplThreadMutex.h"
#include "portable-core/DRAVResult.h"
#include "settings/DRAVEngineFolders.h"
#include "settings/DRAVEngineSettings.h"

// The engine's singleton: it owns the memory pool every frame comes from and
// the engine settings with their path. (The registry of units joins it with
// the units themselves.)
class DRAVManager
{
public:
    // Made on first use, thread-safe, never destroyed.
    static DRAVManager* GetDRAVManager();
    static std::string GetApiVersion() { return "DRAV Version 1.0"; }

    // Makes the pool "MEMPOOL RAM" and installs it for the engine's frames.
    DRAVResult Init();
    // Clears the pool (frames still alive keep their own storage) and saves
    // the settings to their path.
    void Deinit();
    bool IsInitialized() const;

    DRAVEngineSettings GetEngineSettings() const;
    // Takes the settings; "OkNoDataChanged" when nothing changed; with save,
    // the result of writing them.
    DRAVResult SetEngineSettings(const DRAVEngineSettings& settings, bool async, bool save);
    // Reads the settings file in folder; never writes it.
    DRAVResult LoadEngineSettings(const std::string& folder);
    DRAVResult SaveEngineSettings();
    std::string GetSettingsPath() const;
    DRAVResult InitLogFile(const std::string& folder, const std::string& name);

    std::shared_ptr<DRAVMemoryPoolRAM> GetMemoryPool() const;

private:
    DRAVManager();

    mutable CDplThreadMutex lock_;
    bool initialized_ = false;
    DRAVEngineSettings settings_;
    std::string settingsPath_;
    std::shared_ptr<DRAVMemoryPoolRAM> pool_;
};
