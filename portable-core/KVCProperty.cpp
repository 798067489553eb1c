#include "portable-core/KVCProperty.h"

#include <iterator>
#include <utility>

namespace
{
bool HasWeakObserver(const KVOItem& item)
{
    const std::weak_ptr<KVObserver> unset;
    return item.weakObserver.owner_before(unset) || unset.owner_before(item.weakObserver);
}

// Two weak pointers to the same observer that has died. ObserverEquals can't
// match them any more, but the one who registered may still hold its weak
// pointer and unregister with it; otherwise the entry would keep the dead
// observer's memory for good.
bool SameExpiredWeakObserver(const KVOItem& entry, const KVOItem& item)
{
    return HasWeakObserver(entry) && HasWeakObserver(item) && entry.weakObserver.expired() &&
           !entry.weakObserver.owner_before(item.weakObserver) &&
           !item.weakObserver.owner_before(entry.weakObserver);
}

int32_t AccessModeFor(bool canWrite, bool canRead)
{
    if (canWrite && canRead)
    {
        return kKVCAccessReadWrite;
    }
    if (canRead)
    {
        return kKVCAccessReadOnly;
    }
    if (canWrite)
    {
        return kKVCAccessWriteOnly;
    }
    // A property that can be neither read nor written is a declaration
    // mistake; it behaves as read and write, whose accessors are absent.
    return kKVCAccessReadWrite;
}
}  // namespace

KVCProperty::KVCProperty(std::string name, int32_t type, bool canWrite, bool canRead)
    : name_(std::move(name)), type_(type), accessMode_(AccessModeFor(canWrite, canRead))
{
}

KVCProperty::~KVCProperty() = default;

void KVCProperty::SetInt(DRAVObject*, int64_t) {}
int64_t KVCProperty::GetInt(DRAVObject*)
{
    return 0;
}
void KVCProperty::SetDouble(DRAVObject*, double) {}
double KVCProperty::GetDouble(DRAVObject*)
{
    return 0.0;
}
void KVCProperty::SetString(DRAVObject*, const std::string&) {}
std::string KVCProperty::GetString(DRAVObject*)
{
    return {};
}
void KVCProperty::SetJson(DRAVObject*, const std::string&) {}
std::string KVCProperty::GetJson(DRAVObject*)
{
    return {};
}
void KVCProperty::SetSize(DRAVObject*, const DRCSizeInteger&) {}
DRCSizeInteger KVCProperty::GetSize(DRAVObject*)
{
    return {};
}
void KVCProperty::SetBool(DRAVObject*, bool) {}
bool KVCProperty::GetBool(DRAVObject*)
{
    return false;
}
void KVCProperty::SetData(DRAVObject*, const std::vector<uint8_t>&) {}
std::vector<uint8_t> KVCProperty::GetData(DRAVObject*)
{
    return {};
}

// Marks the list as being walked. While any walk runs on the list, entries
// are only marked as removed; the outermost walk moves them to `graveyard`,
// which the caller declares before taking the lock so that the observers it
// may hold die after the lock is released (their destructors may come back
// to this list).
class KVCProperty::ListWalk
{
public:
    ListWalk(KVCProperty& property, std::list<Entry>& graveyard) : property_(property), graveyard_(graveyard)
    {
        ++property_.walkDepth_;
    }
    ~ListWalk()
    {
        if (--property_.walkDepth_ == 0)
        {
            property_.TakeRemovedEntries(graveyard_);
        }
    }
    ListWalk(const ListWalk&) = delete;
    ListWalk& operator=(const ListWalk&) = delete;

private:
    KVCProperty& property_;
    std::list<Entry>& graveyard_;
};

void KVCProperty::AddObserver(const KVOItem& item)
{
    if (item.IsEmpty())
    {
        return;
    }
    std::list<Entry> graveyard;
    CDplScopedLock lock(observerMutex_);
    ListWalk walk(*this, graveyard);
    for (const Entry& entry : observers_)
    {
        if (!entry.removed && ObserverEquals(entry.item, item))
        {
            return;
        }
    }
    observers_.push_back(Entry{item, nextSerial_++, false});
}

void KVCProperty::RemoveObserver(const KVOItem& item)
{
    std::list<Entry> graveyard;
    CDplScopedLock lock(observerMutex_);
    ListWalk walk(*this, graveyard);
    for (Entry& entry : observers_)
    {
        if (!entry.removed && (ObserverEquals(entry.item, item) || SameExpiredWeakObserver(entry.item, item)))
        {
            entry.removed = true;
            hasRemovedEntries_ = true;
        }
    }
}

void KVCProperty::LockObserver()
{
    observerMutex_.Lock();
}

void KVCProperty::UnLockObserver()
{
    observerMutex_.Unlock();
}

KVOList KVCProperty::GetObservers()
{
    CDplScopedLock lock(observerMutex_);
    KVOList list;
    for (const Entry& entry : observers_)
    {
        if (!entry.removed)
        {
            list.push_back(entry.item);
        }
    }
    return list;
}

void KVCProperty::ForEachObserver(const std::function<void(const KVOItem&)>& visit)
{
    std::list<Entry> graveyard;
    CDplScopedLock lock(observerMutex_);
    ListWalk walk(*this, graveyard);

    // Entries are appended with rising serials, so everything at or past the
    // first entry newer than the walk's start was added by a visitor.
    const uint64_t firstNewSerial = nextSerial_;
    for (auto it = observers_.begin(); it != observers_.end() && it->serial < firstNewSerial; ++it)
    {
        if (!it->removed)
        {
            visit(it->item);
        }
    }
}

bool KVCProperty::HasObservers()
{
    return GetObserverCount() > 0;
}

size_t KVCProperty::GetObserverCount()
{
    CDplScopedLock lock(observerMutex_);
    size_t count = 0;
    for (const Entry& entry : observers_)
    {
        if (!entry.removed)
        {
            ++count;
        }
    }
    return count;
}

bool KVCProperty::ObserverEquals(const KVOItem& a, const KVOItem& b)
{
    const std::shared_ptr<KVObserver> lockedA = a.weakObserver.lock();
    const std::shared_ptr<KVObserver> lockedB = b.weakObserver.lock();
    if (lockedA != nullptr && lockedB != nullptr)
    {
        return lockedA == lockedB;
    }
    if (a.observer != nullptr && a.observer == b.observer)
    {
        return true;
    }
    return a.sharedObserver != nullptr && a.sharedObserver == b.sharedObserver;
}

void KVCProperty::TakeRemovedEntries(std::list<Entry>& graveyard)
{
    if (!hasRemovedEntries_)
    {
        return;
    }
    for (auto it = observers_.begin(); it != observers_.end();)
    {
        auto next = std::next(it);
        if (it->removed)
        {
            graveyard.splice(graveyard.end(), observers_, it);
        }
        it = next;
    }
    hasRemovedEntries_ = false;
}
