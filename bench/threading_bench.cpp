#include <benchmark/benchmark.h>

#include <atomic>
#include <memory>

#include "portable-core/CBarebonesSpinLocker.h"
#include "portable-core/CDplThreadMutex.h"
#include "portable-core/DplDispatchQueue.h"
#include "portable-core/DualMutexLock.h"

namespace
{
// An uncontended spin lock takes no system call: two compare-and-swaps.
void BM_SpinLockUncontended(benchmark::State& state)
{
    CBarebonesSpinLock word = 0;
    for (auto _ : state)
    {
        CBarebonesSpinLocker holder(word, true);
        benchmark::DoNotOptimize(&word);
    }
}
BENCHMARK(BM_SpinLockUncontended);

void BM_RecursiveMutexUncontended(benchmark::State& state)
{
    CDplThreadMutex mutex;
    for (auto _ : state)
    {
        CDplScopedLock lock(mutex);
        benchmark::DoNotOptimize(&mutex);
    }
}
BENCHMARK(BM_RecursiveMutexUncontended);

void BM_DualMutexLockUncontended(benchmark::State& state)
{
    CDplThreadMutexLock a;
    CDplThreadMutexLock b;
    for (auto _ : state)
    {
        DualMutexLock(a, b);
        b.Unlock();
        a.Unlock();
    }
}
BENCHMARK(BM_DualMutexLockUncontended);

// Dispatch cost seen by the caller, with one worker draining behind it.
void BM_DispatchToOneWorker(benchmark::State& state)
{
    std::atomic<int64_t> ran{0};
    int64_t dispatched = 0;
    {
        DplDispatchQueue queue("bench", 1);
        for (auto _ : state)
        {
            queue.dispatch([&ran] { ran.fetch_add(1, std::memory_order_relaxed); });
            ++dispatched;
        }
        while (ran.load() < dispatched)
        {
        }
    }
    state.SetItemsProcessed(dispatched);
}
BENCHMARK(BM_DispatchToOneWorker);
}  // namespace
