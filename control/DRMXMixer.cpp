#include "control/DRMXMixer.h"

#include <algorithm>
#include <map>

#include "control/DRMXMixerNode.h"
#include "portable-core/CDplThreadMutex.h"
#include "portable-core/DRAVPropertyNames.h"
#include "portable-core/KVCMapBuilder.h"

using namespace DRMX_Settings;

namespace
{
constexpr DRAVFilterType kMixerFilterType = 8;
constexpr double kNoInputGain = -8.0;
constexpr double kSilenceDecibels = -1000.0;
}  // namespace

struct DRMXMixer::Impl
{
    mutable CDplThreadMutex lock;
    std::shared_ptr<DRAVMultiChannelAudioMixerCoreAudio> unit;
    std::map<std::string, int32_t> busOfHardwareId;
    int64_t bufferFrameCount = 1000;
};

DRMXMixer::DRMXMixer(const std::string& name, DRMXMixerType type)
    : DRMXMixerBase(name, GetMyObjectProperties(), type), impl_(std::make_unique<Impl>())
{
}

DRMXMixer::~DRMXMixer()
{
    CDplScopedLock lock(impl_->lock);
    StopUnitLocked();
}

KVCMap* DRMXMixer::GetMyObjectProperties()
{
    static KVCMap* const sClassProperties =
        KVCMapBuilder<DRMXMixer>(DRAVObject::GetMyObjectProperties())
            .Int(
                kPropertyAudioBufferSizeFrameCount,
                [](DRMXMixer& mixer, const int64_t& frames)
                { mixer.SetBufferSizeFrameCount(frames).LogError("%s", kPropertyAudioBufferSizeFrameCount); },
                &DRMXMixer::GetBufferSizeFrameCount)
            .Build();
    return sClassProperties;
}

std::shared_ptr<DRAVMultiChannelAudioMixerCoreAudio> DRMXMixer::GetFilter() const
{
    CDplScopedLock lock(impl_->lock);
    return impl_->unit;
}

int64_t DRMXMixer::GetBufferSizeFrameCount()
{
    CDplScopedLock lock(impl_->lock);
    return impl_->unit ? impl_->unit->GetProcessingBufferSizeFrameCount() : impl_->bufferFrameCount;
}

DRAVResult DRMXMixer::SetBufferSizeFrameCount(int64_t frames)
{
    if (frames < 1 || frames > DRAVMultiChannelAudioMixerCoreAudio::kMaxProcessingBufferFrameCount)
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "buffer size of %lld frames",
                          static_cast<long long>(frames));
    }
    {
        CDplScopedLock lock(impl_->lock);
        impl_->bufferFrameCount = frames;
        if (!impl_->unit)
        {
            return DRAVResult(kDRAVResultOk);
        }
        const DRAVResult result = impl_->unit->SetProcessingBufferSizeFrameCount(frames);
        if (!result.Succeeded())
        {
            return result;
        }
    }
    // Without the record's lock: the objects' own setters take their locks.
    std::vector<std::shared_ptr<DRAVObject>> objects;
    for (const auto& output : {GetOutput(), GetMonitoringOutput()})
    {
        objects.push_back(std::dynamic_pointer_cast<DRAVObject>(output));
    }
    for (const auto& input : GetInputs())
    {
        objects.push_back(std::dynamic_pointer_cast<DRAVUnit>(input));
    }
    for (const auto& object : objects)
    {
        if (object)
        {
            object->SetIntProperty(kPropertyAudioBufferSizeFrameCount, frames);
        }
    }
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXMixer::ReplaceInput(const std::shared_ptr<DRMXInputInterface>& oldInput,
                                   const std::shared_ptr<DRMXInputInterface>& newInput)
{
    const DRAVResult result = DRMXMixerBase::ReplaceInput(oldInput, newInput);
    if (!result.Succeeded() || !newInput)
    {
        return result;
    }
    const std::vector<std::shared_ptr<DRMXInputInterface>> inputs = GetInputs();
    const auto found = std::find(inputs.begin(), inputs.end(), newInput);
    if (found == inputs.end())
    {
        return result;
    }
    const std::shared_ptr<DRAVSource> source = newInput->GetSource();
    CDplScopedLock lock(impl_->lock);
    if (impl_->unit)
    {
        // A running bus takes up the source of an input that started late.
        return impl_->unit->AddSource(source, static_cast<int>(found - inputs.begin()));
    }
    return result;
}

void DRMXMixer::EraseAllChannels()
{
    DRMXMixerBase::EraseAllChannels();
    CDplScopedLock lock(impl_->lock);
    impl_->busOfHardwareId.clear();
}

DRAVResult DRMXMixer::CreateMixerNode(const DRMXInputSelector& selector,
                                      std::shared_ptr<DRMXMixerNodeBase>* out)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    const std::shared_ptr<DRMXOutputInterface> output = GetOutput();
    if (!output)
    {
        return DRAVResult(kDRAVResultErrNullPointer, "a node needs the mix's output");
    }
    auto node = std::make_shared<DRMXMixerNode>(GetFriendlyName(), selector, output->GetSelector());
    node->Init();
    *out = node;
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXMixer::ChangeMixerNodeInputSelector(const DRMXInputSelector& oldSelector,
                                                   const DRMXInputSelector& newSelector)
{
    const DRAVResult result = DRMXMixerBase::ChangeMixerNodeInputSelector(oldSelector, newSelector);
    CDplScopedLock lock(impl_->lock);
    auto& buses = impl_->busOfHardwareId;
    const auto found = buses.find(oldSelector.GetHardwareId());
    const int32_t bus = found == buses.end() ? 0 : found->second;
    if (found != buses.end())
    {
        buses.erase(found);
    }
    buses[newSelector.GetHardwareId()] = bus;
    return result;
}

DRAVResult DRMXMixer::AudioUnitStart(const DRAVTimestamp& timestamp)
{
    // Everything that needs another lock is read first (see the class note).
    const std::vector<std::shared_ptr<DRMXInputInterface>> inputs = GetInputs();
    const std::shared_ptr<DRMXOutputInterface> output = GetOutput();
    const std::shared_ptr<DRMXOutputInterface> monitoring = GetMonitoringOutput();
    const std::vector<std::shared_ptr<DRMXMixerNodeBase>> nodes = GetMixerNodes();
    if (!output)
    {
        return DRAVResult(kDRAVResultErrNotInitialized, "a mix starts with an output");
    }
    if (inputs.empty() ||
        inputs.size() > static_cast<size_t>(DRAVMultiChannelAudioMixerCoreAudio::kMaxBusCount))
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "a mix of %zu inputs", inputs.size());
    }

    CDplScopedLock lock(impl_->lock);
    StopUnitLocked();  // a second start replaces the unit instead of leaking a running one
    impl_->unit = std::make_shared<DRAVMultiChannelAudioMixerCoreAudio>(
        GetFriendlyName(), DRAVFilterConfig{kMixerFilterType}, static_cast<int>(inputs.size()), 1, timestamp);
    DRAVResult result = impl_->unit->InitFilter(kDRAVPinTypePassthrough, kDRAVPinTypePull);
    if (result.Succeeded())
    {
        impl_->busOfHardwareId.clear();
        for (size_t bus = 0; bus < inputs.size(); ++bus)
        {
            const std::shared_ptr<DRMXInputInterface>& input = inputs[bus];
            impl_->unit->AddSource(input ? input->GetSource() : nullptr, static_cast<int>(bus));
            if (input)
            {
                impl_->busOfHardwareId[input->GetSelector().GetHardwareId()] = static_cast<int32_t>(bus);
            }
        }
        impl_->unit->AddSink(output->GetSink());
        if (monitoring)
        {
            impl_->unit->AddSink(monitoring->GetSink());
        }
        for (const auto& node : nodes)
        {
            SetMixerNodeGain(node, node->GetBoolProperty(kPropertyNodeMute)
                                       ? 0.0
                                       : node->GetDoubleProperty(kPropertyNodeGain));
        }
        SetMixerOutputLevel(output->GetOutputLevel(), output);
        result = impl_->unit->SetProcessingBufferSizeFrameCount(impl_->bufferFrameCount);
    }
    if (result.Succeeded())
    {
        result = impl_->unit->SetUnitState(kDRAVUnitStateRunning);
    }
    if (!result.Succeeded())
    {
        StopUnitLocked();
        return result;
    }
    started.store(true);
    return result;
}

void DRMXMixer::AudioUnitStop()
{
    CDplScopedLock lock(impl_->lock);
    StopUnitLocked();
}

void DRMXMixer::StopUnitLocked()
{
    if (impl_->unit)
    {
        impl_->unit->SetUnitState(kDRAVUnitStatePaused);
        impl_->unit->Deinit();
        impl_->unit.reset();
    }
    started.store(false);
}

int DRMXMixer::BusOfLocked(const std::shared_ptr<DRMXMixerNodeBase>& node) const
{
    const DRMXInputSelector selector = node->GetInputSelector();
    if (selector.GetInputID().empty())
    {
        return -1;
    }
    // An id the map doesn't hold reads as bus 0, as the unit's first input.
    const auto found = impl_->busOfHardwareId.find(selector.GetHardwareId());
    return found == impl_->busOfHardwareId.end() ? 0 : found->second;
}

double DRMXMixer::GetMixerNodeGain(std::shared_ptr<DRMXMixerNodeBase> node)
{
    CDplScopedLock lock(impl_->lock);
    if (!node || !impl_->unit)
    {
        return 0.0;
    }
    const int bus = BusOfLocked(node);
    return bus < 0 ? kNoInputGain : impl_->unit->GetInputVolume(bus);
}

DRAVResult DRMXMixer::SetMixerNodeGain(std::shared_ptr<DRMXMixerNodeBase> node, double gain)
{
    if (!node)
    {
        return DRAVResult(kDRAVResultErrInvalidParameter);
    }
    CDplScopedLock lock(impl_->lock);
    if (!impl_->unit)
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    const int bus = BusOfLocked(node);
    if (bus < 0)
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "a node without an input");
    }
    return impl_->unit->SetInputVolume(bus, gain);
}

DRAVResult DRMXMixer::SetMixerOutputLevel(double level, const std::shared_ptr<DRMXOutputInterface>&)
{
    CDplScopedLock lock(impl_->lock);
    if (!impl_->unit)
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    return impl_->unit->SetOutputVolume(level);
}

double DRMXMixer::GetMixerNodeVULevel(std::shared_ptr<DRMXMixerNodeBase> node, int channel)
{
    // Silence, not 0 dB, for what has no level: the level loop's last pass
    // after a stop would otherwise leave every meter at full scale.
    CDplScopedLock lock(impl_->lock);
    if (!node || !impl_->unit)
    {
        return kSilenceDecibels;
    }
    const int bus = BusOfLocked(node);
    return bus < 0 ? kSilenceDecibels : impl_->unit->GetInputLevel(bus, channel);
}

double DRMXMixer::GetMixerOutputVULevel(int channel)
{
    CDplScopedLock lock(impl_->lock);
    return impl_->unit ? impl_->unit->GetOutputLevel(channel) : kSilenceDecibels;
}
