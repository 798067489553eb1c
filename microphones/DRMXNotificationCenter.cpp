#include "microphones/DRMXNotificationCenter.h"

#include <cstdio>

#include "portable-core/BreakIntoDebugger.h"

std::shared_ptr<DRMXNotificationCenter> DRMXNotificationCenter::_defaultCenter;
std::mutex DRMXNotificationCenter::_defaultCenterMutex;

std::shared_ptr<DRMXNotificationCenter> DRMXNotificationCenter::defaultNotificationCenter()
{
    std::lock_guard lock(_defaultCenterMutex);
    if (!_defaultCenter)
    {
        _defaultCenter = std::make_shared<DRMXNotificationCenter>();
    }
    return _defaultCenter;
}

DRMXNotificationCenter::ObserverHandle DRMXNotificationCenter::AddLocked(ObserverList& list,
                                                                         DRMXNotificationObserver observer)
{
    const uint64_t id = nextId_++;
    list.push_back(Entry{id, std::move(observer)});
    return ObserverHandle(id);
}

DRMXNotificationCenter::ObserverHandle DRMXNotificationCenter::addObserver(const std::string& name,
                                                                           DRMXNotificationObserver observer)
{
    if (!observer)
    {
        BreakIntoDebugger();
        return {};
    }
    std::lock_guard lock(mutex_);
    return AddLocked(registry_[name], std::move(observer));
}

DRMXNotificationCenter::ObserverHandle DRMXNotificationCenter::addObserver(
    DRMXNotificationObserver observer, const NotificationIterator& notification)
{
    if (!observer || !notification)
    {
        BreakIntoDebugger();
        return {};
    }
    std::lock_guard lock(mutex_);
    auto it = registry_.find(notification.Name());
    if (it == registry_.end())
    {
        return {};
    }
    return AddLocked(it->second, std::move(observer));
}

void DRMXNotificationCenter::removeObserver(const std::string& name, ObserverHandle handle)
{
    std::lock_guard lock(mutex_);
    auto it = registry_.find(name);
    if (it != registry_.end())
    {
        it->second.remove_if([&](const Entry& entry) { return entry.id == handle.id_; });
    }
}

void DRMXNotificationCenter::removeObserver(const NotificationIterator& notification, ObserverHandle handle)
{
    if (notification)
    {
        removeObserver(notification.Name(), handle);
    }
}

void DRMXNotificationCenter::removeObserver(ObserverHandle handle)
{
    if (!handle.IsValid())
    {
        return;
    }
    std::lock_guard lock(mutex_);
    for (auto& [name, list] : registry_)
    {
        list.remove_if([&](const Entry& entry) { return entry.id == handle.id_; });
    }
}

void DRMXNotificationCenter::removeAllObservers(const std::string& name)
{
    std::lock_guard lock(mutex_);
    registry_.erase(name);
}

void DRMXNotificationCenter::removeAllObservers(const NotificationIterator& notification)
{
    if (notification)
    {
        removeAllObservers(notification.Name());
    }
}

void DRMXNotificationCenter::WarnUnknown(const std::string& name)
{
    printf("WARNING: Notification \"%s\" does not exist.\n", name.c_str());
    fflush(stdout);
}

void DRMXNotificationCenter::Deliver(const ObserverList& observers,
                                     const DRMXNotificationParameters& parameters)
{
    for (const Entry& entry : observers)
    {
        entry.observer(parameters);
    }
}

bool DRMXNotificationCenter::postNotification(const std::string& name,
                                              const DRMXNotificationParameters& parameters)
{
    std::map<std::string, ObserverList> copy;
    {
        std::lock_guard lock(mutex_);
        copy = registry_;
    }
    auto it = copy.find(name);
    if (it == copy.end())
    {
        WarnUnknown(name);
        return false;
    }
    Deliver(it->second, parameters);
    return true;
}

bool DRMXNotificationCenter::postNotification(const NotificationIterator& notification,
                                              const DRMXNotificationParameters& parameters)
{
    ObserverList copy;
    bool known = false;
    {
        std::lock_guard lock(mutex_);
        auto it = notification ? registry_.find(notification.Name()) : registry_.end();
        if (it != registry_.end())
        {
            copy = it->second;
            known = true;
        }
    }
    if (!known)
    {
        WarnUnknown(notification.Name());
        return false;
    }
    Deliver(copy, parameters);
    return true;
}

DRMXNotificationCenter::NotificationIterator DRMXNotificationCenter::getNotificationIterator(
    const std::string& name)
{
    std::lock_guard lock(mutex_);
    if (registry_.find(name) == registry_.end())
    {
        return {};
    }
    return NotificationIterator(name);
}
