#include <benchmark/benchmark.h>

#include <atomic>
#include <memory>

#include "engine/media/DRAVAudioBuffer.h"
#include "engine/media/DRAVMemoryPoolRAM.h"
#include "engine/units/DRAVUnit.h"

namespace
{
class CountingReceiver : public DRAVMediaBufferDelegate
{
public:
    DRAVResult MediaBufferReceived(std::shared_ptr<DRAVObject>, std::shared_ptr<DRAVMediaBuffer>) override
    {
        count_.fetch_add(1, std::memory_order_relaxed);
        return DRAVResult();
    }
    std::string DRAVMediaBufferDelegateFriendlyName() override { return "counter"; }
    int64_t Count() const { return count_.load(); }

private:
    std::atomic<int64_t> count_{0};
};

// A unit that hands what it receives straight on.
class Relay : public DRAVUnit
{
public:
    Relay() : DRAVUnit("relay", nullptr, 1, 1) {}
    DRAVResult Init() override
    {
        DRAVResult result = InitUnit(kDRAVPinTypePassthrough, kDRAVPinTypePassthrough);
        SetUnitInitialized(result.Succeeded());
        return result;
    }
    DRAVResult InputMediaBufferReceived(std::shared_ptr<DRAVUnitInputPin>, int,
                                        std::shared_ptr<DRAVMediaBuffer> frame) override
    {
        return ProcessFrame(0, std::move(frame));
    }
};

struct PoolScope
{
    PoolScope()
        : former(DRAVMemoryPoolRAM::InstallShared(
              std::make_shared<DRAVMemoryPoolRAM>(kMemoryPoolRAMName, kMaxRAMPoolItems, kMaxRAMPoolSizeMB)))
    {
    }
    ~PoolScope() { DRAVMemoryPoolRAM::InstallShared(former); }
    std::shared_ptr<DRAVMemoryPoolRAM> former;
};

std::shared_ptr<DRAVAudioBuffer> Block()
{
    auto frame = DRAVAudioBuffer::GetAudioBuffer("bench", 960 * 2 * 4, kDefaultAudioFormatFloat, nullptr, 0);
    frame->SetTimestamp(DRAVTimestamp(0));
    frame->SetDuration(DRAVDuration(20000));
    return frame;
}

// One block out of a unit's passthrough output pin into a plain receiver.
void BM_PassthroughPinToReceiver(benchmark::State& state)
{
    PoolScope pool;
    auto unit = std::make_shared<Relay>();
    unit->Init();
    auto receiver = std::make_shared<CountingReceiver>();
    unit->AddReceiver(0, receiver);
    auto frame = Block();
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(unit->ProcessFrame(0, frame));
    }
    if (receiver->Count() != static_cast<int64_t>(state.iterations()))
    {
        state.SkipWithError("frames lost");
    }
    unit->Deinit();
}
BENCHMARK(BM_PassthroughPinToReceiver);

// One block through a whole unit: its passthrough input pin, the unit, its
// output pin, into a receiver.
void BM_PassthroughThroughUnit(benchmark::State& state)
{
    PoolScope pool;
    auto unit = std::make_shared<Relay>();
    unit->Init();
    auto receiver = std::make_shared<CountingReceiver>();
    unit->AddReceiver(0, receiver);
    auto frame = Block();
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(unit->SendFrame(frame));
    }
    if (receiver->Count() != static_cast<int64_t>(state.iterations()))
    {
        state.SkipWithError("frames lost");
    }
    unit->Deinit();
}
BENCHMARK(BM_PassthroughThroughUnit);
}  // namespace
