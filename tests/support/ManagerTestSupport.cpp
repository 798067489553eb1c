#include "support/ManagerTestSupport.h"

#include <utility>

namespace unittest
{
ManagerEnvironment::ManagerEnvironment()
    : formerMakers_(DRAVPlatformUnitMakers::Current()),
      formerFactory_(DRAVUnitFactory::Current()),
      formerPool_(DRAVMemoryPoolRAM::Shared())
{
}

ManagerEnvironment::~ManagerEnvironment()
{
    if (Manager().IsInitialized())
    {
        Manager().Deinit();
    }
    DRAVPlatformUnitMakers::Install(formerMakers_);
    DRAVUnitFactory::Install(formerFactory_);
    DRAVMemoryPoolRAM::InstallShared(formerPool_);
}

void CountingObserver::UpdateObserver(const std::string&, DRAVPropertyKVPair pair, KVCProperty*)
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        keys_.push_back(pair.key);
    }
    count_.fetch_add(1);
}

std::vector<std::string> CountingObserver::Keys()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return keys_;
}

std::vector<DRAVSourceDescriptor> TestDeviceSubject::EnumDevices()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return devices_;
}

void TestDeviceSubject::SetDevices(std::vector<DRAVSourceDescriptor> devices)
{
    std::lock_guard<std::mutex> lock(mutex_);
    devices_ = std::move(devices);
}
}  // namespace unittest
