#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <vector>

#include "portable-core/CDplThreadMutex.h"
#include "portable-core/DRAVPropertyType.h"
#include "portable-core/DRCSizeInteger.h"
#include "portable-core/KVOItem.h"

class DRAVObject;

// How a property may be used.
enum KVCAccessMode : int32_t
{
    kKVCAccessReadWrite = 0,
    kKVCAccessReadOnly = 1,
    kKVCAccessWriteOnly = 2,
};

// The descriptor of one property of a class: its name, type and access mode,
// and the list of its observers. One descriptor serves every instance of the
// class and of its subclasses, so its observer list is class-wide.
//
// The typed accessors here do nothing and give the zero value; the typed
// subclasses (KVCTypedProperty.h) override their own pair. `object` is the
// instance to work on.
class KVCProperty
{
public:
    KVCProperty(std::string name, int32_t type, bool canWrite, bool canRead);
    virtual ~KVCProperty();
    KVCProperty(const KVCProperty&) = delete;
    KVCProperty& operator=(const KVCProperty&) = delete;

    virtual void SetInt(DRAVObject* object, int64_t value);
    virtual int64_t GetInt(DRAVObject* object);
    virtual void SetDouble(DRAVObject* object, double value);
    virtual double GetDouble(DRAVObject* object);
    virtual void SetString(DRAVObject* object, const std::string& value);
    virtual std::string GetString(DRAVObject* object);
    virtual void SetJson(DRAVObject* object, const std::string& jsonText);
    virtual std::string GetJson(DRAVObject* object);
    virtual void SetSize(DRAVObject* object, const DRCSizeInteger& value);
    virtual DRCSizeInteger GetSize(DRAVObject* object);
    virtual void SetBool(DRAVObject* object, bool value);
    virtual bool GetBool(DRAVObject* object);
    virtual void SetData(DRAVObject* object, const std::vector<uint8_t>& value);
    virtual std::vector<uint8_t> GetData(DRAVObject* object);

    // An item equal (ObserverEquals) to one already present is not added
    // again; an item with no pointer at all is ignored.
    virtual void AddObserver(const KVOItem& item);
    // Removes every item equal to `item`, and an entry of a weak observer that
    // has died when `item` holds a weak pointer to that same observer. During
    // a walk of the list, a removed observer is not called any more by it.
    virtual void RemoveObserver(const KVOItem& item);
    virtual void LockObserver();
    virtual void UnLockObserver();
    // A copy of the current list, in order of registration.
    virtual KVOList GetObservers();

    // Calls `visit` for every observer, in order of registration, with the
    // list's mutex held for the whole walk. The visitor may add and remove
    // observers of this property on the same thread: observers added during
    // the walk are first called by the next walk, observers removed during
    // the walk are not called any more by it.
    void ForEachObserver(const std::function<void(const KVOItem&)>& visit);
    bool HasObservers();
    size_t GetObserverCount();

    const std::string& GetName() const { return name_; }
    int32_t GetType() const { return type_; }
    int32_t GetAccessMode() const { return accessMode_; }
    bool CanRead() const { return accessMode_ != kKVCAccessWriteOnly; }
    bool CanWrite() const { return accessMode_ != kKVCAccessReadOnly; }

    static bool ObserverEquals(const KVOItem& a, const KVOItem& b);

private:
    struct Entry
    {
        KVOItem item;
        uint64_t serial = 0;  // order of registration; tells walks which entries are newer
        bool removed = false;
    };

    class ListWalk;

    void TakeRemovedEntries(std::list<Entry>& graveyard);

    const std::string name_;
    const int32_t type_;
    const int32_t accessMode_;

    CDplThreadMutex observerMutex_;
    // Guarded by observerMutex_. Entries are only marked while a walk runs and
    // erased when the outermost walk ends, so walks never lose their place.
    std::list<Entry> observers_;
    uint64_t nextSerial_ = 0;
    int walkDepth_ = 0;
    bool hasRemovedEntries_ = false;
};
