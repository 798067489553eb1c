#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>

// Parameters of a notification; what the pointers point to is agreed between
// poster and observer.
using DRMXNotificationParameters = std::map<std::string, void*>;
using DRMXNotificationObserver = std::function<void(DRMXNotificationParameters)>;

// A process-wide registry of named notifications. Observers run on the
// posting thread, outside the lock, on a copy of the registry: an observer
// may add or remove observers, which applies from the next post on.
class DRMXNotificationCenter
{
public:
    // Names one registered observer. Stays harmless after its observer is
    // gone: removing it again does nothing.
    class ObserverHandle
    {
    public:
        ObserverHandle() = default;
        bool IsValid() const { return id_ != 0; }
        bool operator==(const ObserverHandle&) const = default;

    private:
        friend class DRMXNotificationCenter;
        explicit ObserverHandle(uint64_t id) : id_(id) {}
        uint64_t id_ = 0;
    };

    // A notification name that was found registered. It stays safe to use
    // after the name is removed; using it then acts as for an unknown name.
    class NotificationIterator
    {
    public:
        NotificationIterator() = default;
        explicit operator bool() const { return valid_; }
        const std::string& Name() const { return name_; }

    private:
        friend class DRMXNotificationCenter;
        explicit NotificationIterator(std::string name) : name_(std::move(name)), valid_(true) {}
        std::string name_;
        bool valid_ = false;
    };

    DRMXNotificationCenter() = default;
    DRMXNotificationCenter(const DRMXNotificationCenter&) = delete;
    DRMXNotificationCenter& operator=(const DRMXNotificationCenter&) = delete;

    // The process-wide center, made on first use.
    static std::shared_ptr<DRMXNotificationCenter> defaultNotificationCenter();

    // Appends to the name's list, creating the name. An empty function is
    // refused (an invalid handle), so that no post can fail on it.
    ObserverHandle addObserver(const std::string& name, DRMXNotificationObserver observer);
    // The same for a name already looked up; a null or stale iterator adds
    // nothing and gives an invalid handle.
    ObserverHandle addObserver(DRMXNotificationObserver observer, const NotificationIterator& notification);

    void removeObserver(const std::string& name, ObserverHandle handle);
    void removeObserver(const NotificationIterator& notification, ObserverHandle handle);
    // Removes the observer from whichever list holds it.
    void removeObserver(ObserverHandle handle);

    // Removes the name and its list: posting to it fails from then on.
    void removeAllObservers(const std::string& name);
    void removeAllObservers(const NotificationIterator& notification);

    // Calls every observer of the name in the order of registration, each
    // with its own copy of the parameters. An unknown name prints a warning
    // on standard output and gives false; a known name with no observers
    // gives true.
    bool postNotification(const std::string& name, const DRMXNotificationParameters& parameters);
    // The same, copying only that name's list instead of the whole registry.
    bool postNotification(const NotificationIterator& notification,
                          const DRMXNotificationParameters& parameters);

    // The name if it is registered, else a null iterator.
    NotificationIterator getNotificationIterator(const std::string& name);

private:
    struct Entry
    {
        uint64_t id;
        DRMXNotificationObserver observer;
    };
    using ObserverList = std::list<Entry>;

    ObserverHandle AddLocked(ObserverList& list, DRMXNotificationObserver observer);
    static void Deliver(const ObserverList& observers, const DRMXNotificationParameters& parameters);
    static void WarnUnknown(const std::string& name);

    std::map<std::string, ObserverList> registry_;
    uint64_t nextId_ = 1;
    std::mutex mutex_;

    static std::shared_ptr<DRMXNotificationCenter> _defaultCenter;
    static std::mutex _defaultCenterMutex;
};
