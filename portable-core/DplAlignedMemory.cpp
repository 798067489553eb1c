#include "portable-core/DplAlignedMemory.h"

#include <cstdlib>

void* DplAlignedAlloc(size_t bytes)
{
    if (bytes == 0 || bytes > static_cast<size_t>(-1) - kDplStoreAlignment)
    {
        return nullptr;
    }
    const size_t rounded = (bytes + kDplStoreAlignment - 1) & ~(kDplStoreAlignment - 1);
    return std::aligned_alloc(kDplStoreAlignment, rounded);
}

void DplAlignedFree(void* block)
{
    std::free(block);
}
