#include "engine/media/DRAVMemoryPoolRAM.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>

namespace
{
std::mutex gSharedPoolMutex;
std::shared_ptr<DRAVMemoryPoolRAM> gSharedPool;
}  // namespace

DRAVMemoryPoolRAM::DRAVMemoryPoolRAM(const std::string& name, int32_t maxItems, int64_t maxTotalSizeMB)
    : DRAVMemoryPool<uint8_t*, int64_t>(name, maxItems, maxTotalSizeMB)
{
}

DRAVMemoryPoolRAM::~DRAVMemoryPoolRAM()
{
    // Every frame keeps its pool alive, so no holder is left at this point.
    ReleaseAll();
}

std::shared_ptr<DRAVMemoryPoolRAM> DRAVMemoryPoolRAM::Shared()
{
    std::lock_guard<std::mutex> lock(gSharedPoolMutex);
    return gSharedPool;
}

std::shared_ptr<DRAVMemoryPoolRAM> DRAVMemoryPoolRAM::InstallShared(std::shared_ptr<DRAVMemoryPoolRAM> pool)
{
    std::lock_guard<std::mutex> lock(gSharedPoolMutex);
    gSharedPool.swap(pool);
    return pool;
}

uint8_t* DRAVMemoryPoolRAM::AllocateAligned(int64_t size)
{
    constexpr int64_t kAlignment = static_cast<int64_t>(kDRAVMemoryAlignment);
    if (size < 0 || size > std::numeric_limits<int64_t>::max() - kAlignment)
    {
        return nullptr;
    }
    // Whole alignment units, and never zero bytes, so that vector loops may
    // run over the tail and every block has an address of its own.
    const int64_t rounded = std::max<int64_t>(kAlignment, (size + kAlignment - 1) / kAlignment * kAlignment);
    void* memory = nullptr;
    if (posix_memalign(&memory, kDRAVMemoryAlignment, static_cast<size_t>(rounded)) != 0)
    {
        return nullptr;
    }
    return static_cast<uint8_t*>(memory);
}

void DRAVMemoryPoolRAM::FreeAligned(uint8_t* memory)
{
    if (memory != nullptr)
    {
        free(memory);
    }
}

uint8_t* DRAVMemoryPoolRAM::DoAlloc(const int64_t& size)
{
    return AllocateAligned(size);
}

// realloc() would not keep the alignment, so the block moves to a fresh
// aligned one. The old block stays valid when that fails.
uint8_t* DRAVMemoryPoolRAM::DoRealloc(uint8_t* memory, const int64_t& size)
{
    uint8_t* grown = AllocateAligned(size);
    if (grown == nullptr || memory == nullptr)
    {
        return grown;
    }
    const size_t oldSize = malloc_usable_size(memory);
    memcpy(grown, memory, std::min(oldSize, static_cast<size_t>(size)));
    free(memory);
    return grown;
}

void DRAVMemoryPoolRAM::DoFree(uint8_t* memory)
{
    FreeAligned(memory);
}
