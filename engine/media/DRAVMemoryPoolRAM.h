#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "engine/media/DRAVMemoryPool.h"

constexpr int32_t kMaxRAMPoolItems = 240;
constexpr int64_t kMaxRAMPoolSizeMB = 4096;
constexpr const char* kMemoryPoolRAMName = "MEMPOOL RAM";

// Every block handed out by the RAM pool (and by the fallback without a pool)
// starts on this boundary and is a whole number of it long.
constexpr size_t kDRAVMemoryAlignment = 64;

// The heap pool behind every frame's storage.
//
// The engine manager owns the one pool of the process and installs it with
// InstallShared(); storage made afterwards takes its blocks from it, and keeps
// the pool alive until its blocks are back.
class DRAVMemoryPoolRAM : public DRAVMemoryPool<uint8_t*, int64_t>
{
public:
    DRAVMemoryPoolRAM(const std::string& name, int32_t maxItems, int64_t maxTotalSizeMB);
    ~DRAVMemoryPoolRAM() override;

    // The process-wide pool, or null before one is installed.
    static std::shared_ptr<DRAVMemoryPoolRAM> Shared();
    // Installs `pool` (null uninstalls) and returns the former one.
    static std::shared_ptr<DRAVMemoryPoolRAM> InstallShared(std::shared_ptr<DRAVMemoryPoolRAM> pool);

    // The aligned heap primitives, also for storage made without a pool.
    static uint8_t* AllocateAligned(int64_t size);
    static void FreeAligned(uint8_t* memory);

protected:
    uint8_t* DoAlloc(const int64_t& size) override;
    uint8_t* DoRealloc(uint8_t* memory, const int64_t& size) override;
    void DoFree(uint8_t* memory) override;
};
