#include "engine/DRAVManager.h"

#include "portable-core/DRAVLogFolder.h"
#include "portable-core/DplFile.h"
#include "settings/DRMXSettings.h"

DRAVManager* DRAVManager::GetDRAVManager()
{
    static DRAVManager* manager = new DRAVManager();
    return manager;
}

DRAVManager::DRAVManager() = default;

DRAVResult DRAVManager::Init()
{
    CDplScopedLock lock(lock_);
    if (!pool_)
    {
        pool_ = std::make_shared<DRAVMemoryPoolRAM>("MEMPOOL RAM", kMaxRAMPoolItems, kMaxRAMPoolSizeMB);
    }
    DRAVMemoryPoolRAM::InstallShared(pool_);
    initialized_ = true;
    return DRAVResult(kDRAVResultOk);
}

void DRAVManager::Deinit()
{
    CDplScopedLock lock(lock_);
    initialized_ = false;
    if (pool_)
    {
        DRAVMemoryPoolRAM::InstallShared(nullptr);
        pool_->Clear();
        pool_.reset();
    }
    if (!settingsPath_.empty())
    {
        settings_.SaveSettings(settingsPath_).LogError("Couldn't save the engine settings");
    }
}

bool DRAVManager::IsInitialized() const
{
    CDplScopedLock lock(lock_);
    return initialized_;
}

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
        return settings_.SaveSettings(settingsPath_);
    }
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVManager::LoadEngineSettings(const std::string& folder)
{
    CDplScopedLock lock(lock_);
    settingsPath_ = DplFile_AddPathComponent(folder, DRMX_Settings::SETTINGS_JSON_FILENAME);
    return settings_.LoadSettings(settingsPath_);
}

DRAVResult DRAVManager::SaveEngineSettings()
{
    CDplScopedLock lock(lock_);
    return settings_.SaveSettings(settingsPath_);
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

std::shared_ptr<DRAVMemoryPoolRAM> DRAVManager::GetMemoryPool() const
{
    CDplScopedLock lock(lock_);
    return pool_;
}
