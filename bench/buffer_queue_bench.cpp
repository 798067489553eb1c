#include <benchmark/benchmark.h>

#include <atomic>
#include <thread>

#include "engine/media/DRAVMemoryPoolRAM.h"
#include "engine/units/DRAVThreadedBufferQueue.h"

namespace
{
constexpr int64_t kBlockBytes = 7680;

std::shared_ptr<DRAVMediaBuffer> Block()
{
    return DRAVAudioBuffer::GetAudioBuffer("bench", kBlockBytes, kDefaultAudioFormatFloat, nullptr, 0);
}

// One frame from the producer to the worker's delivery and back: the latency
// of one hand-off through a threaded queue.
void BM_ThreadedQueueHandOff(benchmark::State& state)
{
    std::atomic<int64_t> delivered{0};
    DRAVThreadedBufferQueue queue("bench", DRAVThreadedBufferQueue::kModeThreaded, 30, 0x40000000);
    queue.InitWithLambda(
        [](void* context, std::shared_ptr<DRAVMediaBuffer>)
        { static_cast<std::atomic<int64_t>*>(context)->fetch_add(1, std::memory_order_release); },
        &delivered);
    auto frame = Block();
    int64_t sent = 0;
    for (auto _ : state)
    {
        queue.AddBuffer(frame);
        ++sent;
        while (delivered.load(std::memory_order_acquire) < sent)
        {
        }
    }
    queue.Deinit();
}
BENCHMARK(BM_ThreadedQueueHandOff)->UseRealTime();

// A stream of frames through the queue, as fast as the worker takes them.
void BM_ThreadedQueueThroughput(benchmark::State& state)
{
    std::atomic<int64_t> delivered{0};
    DRAVThreadedBufferQueue queue(
        "bench", DRAVThreadedBufferQueue::kModeThreaded | DRAVThreadedBufferQueue::kModeBlocking, 30,
        0x40000000);
    queue.InitWithLambda(
        [](void* context, std::shared_ptr<DRAVMediaBuffer>)
        { static_cast<std::atomic<int64_t>*>(context)->fetch_add(1, std::memory_order_release); },
        &delivered);
    auto frame = Block();
    int64_t sent = 0;
    for (auto _ : state)
    {
        queue.AddBuffer(frame);
        ++sent;
    }
    while (delivered.load(std::memory_order_acquire) < sent)
    {
        std::this_thread::yield();
    }
    state.SetBytesProcessed(sent * kBlockBytes);
    queue.Deinit();
}
BENCHMARK(BM_ThreadedQueueThroughput)->UseRealTime();

void BM_PullQueueAddPull(benchmark::State& state)
{
    DRAVThreadedBufferQueue queue("bench", DRAVThreadedBufferQueue::kModePull, 30, 0x40000000);
    queue.InitWithDelegate(nullptr);
    auto frame = Block();
    std::shared_ptr<DRAVMediaBuffer> out;
    for (auto _ : state)
    {
        queue.AddBuffer(frame);
        queue.PullBuffer(DRAVTimestamp(-1), &out, true);
        benchmark::DoNotOptimize(out.get());
    }
}
BENCHMARK(BM_PullQueueAddPull);
}  // namespace
