#include <benchmark/benchmark.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "portable-core/DRAVObject.h"
#include "portable-core/DRAVPropertyNames.h"
#include "portable-core/KVCMapBuilder.h"

namespace
{
class BenchNode : public DRAVObject
{
public:
    BenchNode() : DRAVObject("bench", GetMyObjectProperties()) {}
    static KVCMap* GetMyObjectProperties()
    {
        static KVCMap* const sClassProperties =
            KVCMapBuilder<BenchNode>(DRAVObject::GetMyObjectProperties())
                .Double(kPropertyNodeGain, &BenchNode::SetGain, &BenchNode::GetGain)
                .CommonObserver()
                .Build();
        return sClassProperties;
    }
    void SetGain(double gain) { gain_ = gain; }
    double GetGain() const { return gain_; }

private:
    double gain_ = 0.0;
};

class NullObserver : public KVObserver
{
public:
    using KVObserver::UpdateObserver;
    void UpdateObserver(const std::string&, DRAVPropertyKVPair pair, KVCProperty*) override
    {
        benchmark::DoNotOptimize(pair.doubleValue);
    }
};

// A set of a changing value, with the given number of property observers
// (held weakly, as the mixes hold theirs).
void BM_SetDoubleProperty(benchmark::State& state)
{
    auto node = std::make_shared<BenchNode>();
    std::vector<std::shared_ptr<NullObserver>> observers;
    for (int64_t i = 0; i < state.range(0); ++i)
    {
        observers.push_back(std::make_shared<NullObserver>());
        node->AddObserver(KVOItem::Weak(observers.back()), kPropertyNodeGain);
    }
    double value = 0.0;
    for (auto _ : state)
    {
        value += 1.0;
        node->SetDoubleProperty(kPropertyNodeGain, value);
    }
    for (const auto& observer : observers)
    {
        node->RemoveObserver(KVOItem::Weak(observer), kPropertyNodeGain);
    }
}
BENCHMARK(BM_SetDoubleProperty)->Arg(0)->Arg(1)->Arg(4);

void BM_GetDoubleProperty(benchmark::State& state)
{
    auto node = std::make_shared<BenchNode>();
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(node->GetDoubleProperty(kPropertyNodeGain));
    }
}
BENCHMARK(BM_GetDoubleProperty);
}  // namespace
