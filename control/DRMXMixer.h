#pragma once

#include <cstdint>
#include <memory>

#include "control/DRMXMixerBase.h"
#include "engine/devices/DRAVMultiChannelAudioMixerCoreAudio.h"

// A mix with its real-time unit. The unit is made on each start and dropped
// on each stop; gains and levels live in the nodes and outputs and are applied
// anew at each start. A bus is an input's place in the list at the start.
//
// The unit's record has a lock of its own, taken last: nothing holds it while
// waiting for the node, input or output locks, so the level loop (node lock,
// then this one) and a start can't cross.
class DRMXMixer : public DRMXMixerBase
{
public:
    DRMXMixer(const std::string& name, DRMX_Settings::DRMXMixerType type);
    ~DRMXMixer() override;

    static KVCMap* GetMyObjectProperties();

    std::shared_ptr<DRAVMultiChannelAudioMixerCoreAudio> GetFilter() const;
    int64_t GetBufferSizeFrameCount();
    // ErrInvalidParameter outside 1 .. one second; the value stays. While
    // running the unit, outputs and inputs take the new size.
    DRAVResult SetBufferSizeFrameCount(int64_t frames);

    DRAVResult ReplaceInput(const std::shared_ptr<DRMXInputInterface>& oldInput,
                            const std::shared_ptr<DRMXInputInterface>& newInput) override;
    void EraseAllChannels() override;
    DRAVResult CreateMixerNode(const DRMX_Settings::DRMXInputSelector& selector,
                               std::shared_ptr<DRMXMixerNodeBase>* out) override;
    DRAVResult ChangeMixerNodeInputSelector(const DRMX_Settings::DRMXInputSelector& oldSelector,
                                            const DRMX_Settings::DRMXInputSelector& newSelector) override;
    // Needs the sources and sinks of started inputs and outputs: start those
    // first. An input without a running source plays silence on its bus.
    DRAVResult AudioUnitStart(const DRAVTimestamp& timestamp) override;
    void AudioUnitStop() override;
    double GetMixerNodeGain(std::shared_ptr<DRMXMixerNodeBase> node) override;
    DRAVResult SetMixerNodeGain(std::shared_ptr<DRMXMixerNodeBase> node, double gain) override;
    // The unit's output volume, common to the output and the monitoring output.
    DRAVResult SetMixerOutputLevel(double level, const std::shared_ptr<DRMXOutputInterface>& output) override;
    double GetMixerNodeVULevel(std::shared_ptr<DRMXMixerNodeBase> node, int channel) override;
    double GetMixerOutputVULevel(int channel) override;

private:
    struct Impl;

    // Under the record's lock: the bus of the node's input, or -1 for a node
    // without an input id.
    int BusOfLocked(const std::shared_ptr<DRMXMixerNodeBase>& node) const;
    void StopUnitLocked();

    std::unique_ptr<Impl> impl_;
};
