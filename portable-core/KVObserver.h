#pragma once

#include <string>

#include "portable-core/DRAVPropertyKVPair.h"

class KVCProperty;

// Whoever wants to watch properties. Calls arrive synchronously on the thread
// that changed the property, while the property's observer list is locked:
// an observer must not block, and must not wait for another thread that may
// be setting the same property. A subclass that overrides only one form of
// UpdateObserver adds `using KVObserver::UpdateObserver;`.
class KVObserver
{
public:
    virtual ~KVObserver() = default;

    // `property` is the descriptor that changed, or null when the observer
    // was registered by raw or shared pointer.
    virtual void UpdateObserver(const std::string& objectId, DRAVPropertyKVPair pair,
                                KVCProperty* property) = 0;
    virtual void UpdateObserver(const std::string& objectId, DRAVPropertyKVPair pair)
    {
        UpdateObserver(objectId, std::move(pair), nullptr);
    }
};
