#pragma once

#include <list>
#include <memory>

#include "portable-core/KVObserver.h"

// Names one observer, by exactly one of three kinds of pointer:
// - raw: the observer must remove itself before it dies;
// - shared: the list keeps the observer alive until it is removed;
// - weak: the observer may die at any time; the entry then stays, inert.
struct KVOItem
{
    KVObserver* observer = nullptr;
    std::shared_ptr<KVObserver> sharedObserver;
    std::weak_ptr<KVObserver> weakObserver;

    static KVOItem Raw(KVObserver* raw)
    {
        KVOItem item;
        item.observer = raw;
        return item;
    }
    static KVOItem Shared(std::shared_ptr<KVObserver> shared)
    {
        KVOItem item;
        item.sharedObserver = std::move(shared);
        return item;
    }
    static KVOItem Weak(std::weak_ptr<KVObserver> weak)
    {
        KVOItem item;
        item.weakObserver = std::move(weak);
        return item;
    }
    template <class Observer>
    static KVOItem Weak(const std::shared_ptr<Observer>& shared)
    {
        return Weak(std::weak_ptr<KVObserver>(std::static_pointer_cast<KVObserver>(shared)));
    }

    // True when none of the three pointers was ever set.
    bool IsEmpty() const
    {
        const std::weak_ptr<KVObserver> unset;
        const bool weakUnset = !weakObserver.owner_before(unset) && !unset.owner_before(weakObserver);
        return observer == nullptr && sharedObserver == nullptr && weakUnset;
    }
};

// Observers of one property, in order of registration.
using KVOList = std::list<KVOItem>;
