#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine/units/DRAVDeviceObserverSubject.h"
#include "engine/DRAVManager.h"
#include "engine/units/DRAVPlatformUnitMakers.h"
#include "engine/units/DRAVUnitFactory.h"
#include "portable-core/KVObserver.h"

namespace unittest
{
// Keeps the engine manager's process-wide surroundings for one test: the
// platform makers and the unit factory are put back, and the manager is
// left de-initialised.
class ManagerEnvironment
{
public:
    ManagerEnvironment();
    ~ManagerEnvironment();
    ManagerEnvironment(const ManagerEnvironment&) = delete;
    ManagerEnvironment& operator=(const ManagerEnvironment&) = delete;

    DRAVManager& Manager() { return *DRAVManager::GetDRAVManager(); }

private:
    DRAVPlatformUnitMakers formerMakers_;
    DRAVUnitFactory formerFactory_;
    std::shared_ptr<DRAVMemoryPoolRAM> formerPool_;
};

// Counts what it is told, by property name.
class CountingObserver : public KVObserver
{
public:
    using KVObserver::UpdateObserver;
    void UpdateObserver(const std::string& objectId, DRAVPropertyKVPair pair, KVCProperty* property) override;
    int Count() const { return count_.load(); }
    std::vector<std::string> Keys();

private:
    std::atomic<int> count_{0};
    std::mutex mutex_;
    std::vector<std::string> keys_;
};

// A device observer subject whose device list a test sets.
class TestDeviceSubject : public DRAVDeviceObserverSubject
{
public:
    explicit TestDeviceSubject(KVCMap* map = nullptr) : DRAVDeviceObserverSubject("test subject", map) {}
    bool ProvidesSources() override { return true; }
    std::vector<DRAVSourceDescriptor> EnumDevices() override;
    void SetDevices(std::vector<DRAVSourceDescriptor> devices);

private:
    std::mutex mutex_;
    std::vector<DRAVSourceDescriptor> devices_;
};
}  // namespace unittest
