#include <benchmark/benchmark.h>

#include <cstdlib>
#include <vector>

#include "engine/media/DRAVAudioBuffer.h"
#include "engine/media/DRAVMemoryPoolRAM.h"

namespace
{
// One 960-frame stereo float block.
constexpr int64_t kBlockBytes = 7680;

void BM_PoolGetFree(benchmark::State& state)
{
    DRAVMemoryPoolRAM pool(kMemoryPoolRAMName, kMaxRAMPoolItems, kMaxRAMPoolSizeMB);
    // Items ahead of the free one make the walk longer, as on a busy engine.
    std::vector<uint8_t*> busy;
    for (int64_t i = 0; i < state.range(0); ++i)
    {
        busy.push_back(pool.GetBuffer("busy", kBlockBytes, false));
    }
    for (auto _ : state)
    {
        uint8_t* p = pool.GetBuffer("bench", kBlockBytes, true);
        benchmark::DoNotOptimize(p);
        pool.FreeBuffer(p);
    }
    for (uint8_t* p : busy)
    {
        pool.FreeBuffer(p);
    }
}
BENCHMARK(BM_PoolGetFree)->Arg(0)->Arg(30)->Arg(239);

void BM_MallocFree(benchmark::State& state)
{
    for (auto _ : state)
    {
        void* p = malloc(kBlockBytes);
        benchmark::DoNotOptimize(p);
        free(p);
    }
}
BENCHMARK(BM_MallocFree);

void BM_PosixMemalignFree(benchmark::State& state)
{
    for (auto _ : state)
    {
        void* p = nullptr;
        benchmark::DoNotOptimize(posix_memalign(&p, 64, kBlockBytes));
        benchmark::DoNotOptimize(p);
        free(p);
    }
}
BENCHMARK(BM_PosixMemalignFree);

// A whole frame: the object, its format and storage, with the block from the pool.
void BM_AudioFrameMakeRelease(benchmark::State& state)
{
    auto pool = std::make_shared<DRAVMemoryPoolRAM>(kMemoryPoolRAMName, kMaxRAMPoolItems, kMaxRAMPoolSizeMB);
    auto former = DRAVMemoryPoolRAM::InstallShared(pool);
    for (auto _ : state)
    {
        auto frame =
            DRAVAudioBuffer::GetAudioBuffer("bench", kBlockBytes, kDefaultAudioFormatFloat, nullptr, 0);
        benchmark::DoNotOptimize(frame.get());
    }
    DRAVMemoryPoolRAM::InstallShared(former);
}
BENCHMARK(BM_AudioFrameMakeRelease);
}  // namespace
