#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include "engine/media/DRAVLogIntervals.h"
#include "engine/media/DRAVSharedName.h"
#include "portable-core/CDplThreadMutex.h"
#include "portable-core/DRAVLog.h"
#include "portable-core/DRAVSlowLog.h"
#include "portable-core/DRAVTime.h"

// One block of memory the pool owns.
template <typename T, typename S>
struct DRAVMemoryItem
{
    T memory{};
    S size{};
    // Interned: naming a recycled block after another owner costs no heap
    // call on the audio thread, whatever the names' lengths.
    DRAVSharedName owner;
    int64_t createdHostTime = 0;
    bool inUse = false;
};

// A pool of reusable blocks, so that a steady stream of equal requests reaches
// the heap only while the pool warms up. Blocks are kept in creation order and
// the first fitting free one wins; a block never shrinks and goes back to the
// system only in Clear() or with the pool.
//
// The allocation primitives are supplied by a derived class, which must call
// Clear() in its own destructor (the base cannot reach them any more).
template <typename T, typename S>
class DRAVMemoryPool
{
public:
    using Item = DRAVMemoryItem<T, S>;

    // Requests below 1 MiB, below 10 MiB, and from 10 MiB are kept apart, so a
    // small request never takes a large block.
    static constexpr S kSizeClassSmallLimit = 0x100000;
    static constexpr S kSizeClassMediumLimit = 0xA00000;

    DRAVMemoryPool(const std::string& name, int32_t maxItems, int64_t maxTotalSizeMB)
        : name_(name), maxItems_(maxItems), maxTotalSizeMB_(maxTotalSizeMB)
    {
    }
    virtual ~DRAVMemoryPool() = default;
    DRAVMemoryPool(const DRAVMemoryPool&) = delete;
    DRAVMemoryPool& operator=(const DRAVMemoryPool&) = delete;

    // Sum of the sizes of all blocks, in MiB (rounded down).
    virtual S GetTotalSizeMB()
    {
        CDplScopedLock lock(mutex_);
        return TotalSizeLocked() / 0x100000;
    }

    // A block of at least `size` bytes for `owner`, or null. When the pool is
    // at its item limit, `allowOutsidePool` gives a plain allocation that
    // FreeBuffer() later returns to the system.
    virtual T GetBuffer(const std::string& owner, const S& size, bool allowOutsidePool)
    {
        if (size < S{})
        {
            return T{};
        }
        if (maxItems_ < 1)
        {
            return allowOutsidePool ? AllocateOutsidePool(size) : T{};
        }
        {
            CDplScopedLock lock(mutex_);
            bool sawFreeItem = false;
            for (Item& item : items_)
            {
                if (item.inUse)
                {
                    continue;
                }
                sawFreeItem = true;
                if (MatchMemorySize(item.size, size))
                {
                    item.inUse = true;
                    item.owner = DRAVSharedName(owner);
                    return item.memory;
                }
            }
            if (sawFreeItem)
            {
                for (Item& item : items_)
                {
                    if (item.inUse || !(item.size < size))
                    {
                        continue;
                    }
                    T grown = DoRealloc(item.memory, size);
                    if (grown == T{})
                    {
                        // The old block is still valid: it stays in the pool, free.
                        return T{};
                    }
                    item.memory = grown;
                    item.size = size;
                    item.inUse = true;
                    item.owner = DRAVSharedName(owner);
                    return grown;
                }
            }
            if (static_cast<int64_t>(items_.size()) < maxItems_)
            {
                T memory = DoAlloc(size);
                if (memory == T{})
                {
                    return T{};
                }
                items_.push_back(Item{memory, size, DRAVSharedName(owner), DRAVGetHostTime().Get(), true});
                return memory;
            }
        }
        return allowOutsidePool ? AllocateOutsidePool(size) : T{};
    }

    // Gives a block back. A block the pool does not know (an allocation
    // outside the pool, or one detached by Clear()) is freed.
    virtual void FreeBuffer(T memory)
    {
        if (memory == T{})
        {
            return;
        }
        {
            CDplScopedLock lock(mutex_);
            for (Item& item : items_)
            {
                if (item.memory == memory)
                {
                    item.inUse = false;
                    return;
                }
            }
        }
        DoFree(memory);
    }

    // Frees every free block and forgets all blocks. A block still in use is
    // not freed under its holder: it is detached, and its FreeBuffer() frees it.
    virtual void Clear()
    {
        std::deque<Item> released;
        {
            CDplScopedLock lock(mutex_);
            released.swap(items_);
        }
        for (Item& item : released)
        {
            if (!item.inUse && item.memory != T{})
            {
                DoFree(item.memory);
            }
        }
    }

    virtual void Dump()
    {
        CDplScopedLock lock(mutex_);
        DRAVLogPrintf(kDbgPrintLevelInfo, "%s: %zu items (max %d), %lld MB", name_.c_str(), items_.size(),
                      maxItems_, static_cast<long long>(TotalSizeLocked() / 0x100000));
        int index = 0;
        for (const Item& item : items_)
        {
            DRAVLogPrintf(kDbgPrintLevelInfo, "  #%d %lld bytes %s <%s> created %s", index++,
                          static_cast<long long>(item.size), item.inUse ? "in use" : "free",
                          item.owner.Get().c_str(), DRAVTimestamp(item.createdHostTime).ToString().c_str());
        }
    }

    const std::string& GetName() const { return name_; }
    int32_t GetMaxNumItems() const { return maxItems_; }
    int64_t GetMaxTotalSizeMB() const { return maxTotalSizeMB_; }
    int64_t GetNumItems()
    {
        CDplScopedLock lock(mutex_);
        return static_cast<int64_t>(items_.size());
    }
    int64_t GetNumItemsInUse()
    {
        CDplScopedLock lock(mutex_);
        int64_t count = 0;
        for (const Item& item : items_)
        {
            count += item.inUse ? 1 : 0;
        }
        return count;
    }
    // Plain allocations handed out because the pool was full.
    int64_t GetNumOutsideAllocations()
    {
        CDplScopedLock lock(mutex_);
        return outsideAllocations_;
    }

protected:
    virtual T DoAlloc(const S& size) = 0;
    // Grows `memory` to `size`; null on failure, leaving `memory` valid.
    virtual T DoRealloc(T memory, const S& size) = 0;
    virtual void DoFree(T memory) = 0;

    virtual bool MatchMemorySize(const S& itemSize, const S& wanted)
    {
        return !(itemSize < wanted) && SizeClass(itemSize) == SizeClass(wanted);
    }

    static int SizeClass(const S& size)
    {
        if (size < kSizeClassSmallLimit)
        {
            return 0;
        }
        return size < kSizeClassMediumLimit ? 1 : 2;
    }

    // Frees every block, in use or not; for the derived destructor, when no
    // holder can come back.
    void ReleaseAll()
    {
        std::deque<Item> released;
        {
            CDplScopedLock lock(mutex_);
            released.swap(items_);
        }
        for (Item& item : released)
        {
            if (item.memory != T{})
            {
                DoFree(item.memory);
            }
        }
    }

private:
    T AllocateOutsidePool(const S& size)
    {
        T memory = DoAlloc(size);
        if (memory != T{})
        {
            {
                CDplScopedLock lock(mutex_);
                ++outsideAllocations_;
            }
            outsideLog_.Log(__func__, "%s: pool is full (%d items), allocating %lld bytes outside the pool",
                            name_.c_str(), maxItems_, static_cast<long long>(size));
        }
        return memory;
    }

    S TotalSizeLocked() const
    {
        S total{};
        for (const Item& item : items_)
        {
            total += item.size;
        }
        return total;
    }

    std::string name_;
    DRAVSlowLog outsideLog_{kSlowLogInterval1, kDbgPrintLevelWarning};
    int32_t maxItems_;
    int64_t maxTotalSizeMB_;
    std::deque<Item> items_;
    int64_t outsideAllocations_ = 0;
    CDplThreadMutex mutex_;
};
