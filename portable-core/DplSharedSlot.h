#pragma once

#include <memory>
#include <mutex>

// A shared pointer that a control thread replaces and any thread copies, a
// device or mix thread included. The lock is held for the copy or the swap
// alone, never while an object is made or torn down, so no reader waits for
// more than a pointer copy. (Not std::atomic<std::shared_ptr>: g++ 12's load
// releases its internal lock with relaxed order, which ThreadSanitizer
// rightly reports against the next store.)
template <typename T>
class DplSharedSlot
{
public:
    std::shared_ptr<T> Load() const
    {
        std::lock_guard lock(mutex_);
        return value_;
    }
    // Returns the former pointer, so that the caller lets go of it outside the lock.
    std::shared_ptr<T> Exchange(std::shared_ptr<T> value)
    {
        std::lock_guard lock(mutex_);
        value_.swap(value);
        return value;
    }
    void Store(std::shared_ptr<T> value) { Exchange(std::move(value)); }

private:
    mutable std::mutex mutex_;
    std::shared_ptr<T> value_;
};
