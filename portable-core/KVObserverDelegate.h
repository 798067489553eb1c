#pragma once

#include <functional>
#include <string>

#include "portable-core/CDplThreadMutex.h"
#include "portable-core/KVObserver.h"

// An observer made of a function and a context pointer, for code that wants
// to observe without deriving a class.
class KVObserverDelegate : public KVObserver
{
public:
    using Callback = std::function<void(void* context, const std::string& objectId, DRAVPropertyKVPair pair,
                                        KVCProperty* property)>;

    KVObserverDelegate() = default;
    KVObserverDelegate(Callback callback, void* context) : callback_(std::move(callback)), context_(context)
    {
    }

    // May be called while notifications run on other threads; a call that has
    // already started finishes with the former function.
    void SetCallback(Callback callback, void* context)
    {
        CDplScopedLock lock(mutex_);
        callback_ = std::move(callback);
        context_ = context;
    }

    using KVObserver::UpdateObserver;
    void UpdateObserver(const std::string& objectId, DRAVPropertyKVPair pair, KVCProperty* property) override
    {
        Callback callback;
        void* context = nullptr;
        {
            CDplScopedLock lock(mutex_);
            callback = callback_;
            context = context_;
        }
        if (callback)
        {
            callback(context, objectId, std::move(pair), property);
        }
    }

private:
    CDplThreadMutex mutex_;
    Callback callback_;
    void* context_ = nullptr;
};
