#pragma once

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "control/DRMXAudioUnitInterface.h"
#include "control/DRMXInputInterface.h"
#include "control/DRMXMixerNodeBase.h"
#include "control/DRMXOutputInterface.h"
#include "portable-core/CDplThreadMutex.h"
#include "portable-core/DRAVObject.h"

// One mix as a control object: its inputs (whose order is the bus order), a
// row of nine mixer node slots, one output and, for the stream mix, a
// monitoring output. It needs no audio; DRMXMixer adds the real-time unit.
class DRMXMixerBase : public DRAVObject, public DRMXAudioUnitInterface
{
public:
    static constexpr size_t kMixerNodeSlotCount = 9;

    DRMXMixerBase(const std::string& name, KVCMap* properties, DRMX_Settings::DRMXMixerType type);
    ~DRMXMixerBase() override;

    DRMX_Settings::DRMXMixerType GetMixerType() const { return mixerType_; }

    virtual void AddInput(const std::shared_ptr<DRMXInputInterface>& input);
    virtual std::vector<std::shared_ptr<DRMXInputInterface>> GetInputs();
    virtual DRAVResult GetInput(const DRMX_Settings::DRMXInputSelector& selector,
                                std::shared_ptr<DRMXInputInterface>* out, bool validate);
    // Every entry with the old input's selector becomes the new input.
    virtual DRAVResult ReplaceInput(const std::shared_ptr<DRMXInputInterface>& oldInput,
                                    const std::shared_ptr<DRMXInputInterface>& newInput);
    virtual std::shared_ptr<DRMXOutputInterface> GetMonitoringOutput();
    virtual void StopMixing();
    virtual void EraseAllChannels();
    virtual void EraseInvalidatedChannels();
    virtual void InvalidateChannels();
    // A node for each input, in input order; an input whose node can't be
    // made gets none and the others go on.
    virtual DRAVResult ConfigureMixerNodes();
    // Needs an output; the base makes no nodes.
    virtual DRAVResult CreateMixerNode(const DRMX_Settings::DRMXInputSelector& selector,
                                       std::shared_ptr<DRMXMixerNodeBase>* out);
    virtual DRAVResult ChangeMixerNodeInputSelector(const DRMX_Settings::DRMXInputSelector& oldSelector,
                                                    const DRMX_Settings::DRMXInputSelector& newSelector);
    virtual std::vector<std::shared_ptr<DRMXMixerNodeBase>> GetMixerNodes();
    // Every slot's node, empty ones too, in slot order, under the node lock;
    // setting *stop ends the walk.
    virtual void EnumerateMixerNodes(
        const std::function<void(const std::shared_ptr<DRMXMixerNodeBase>&, bool* stop)>& visit);
    DRAVResult AudioUnitStart(const DRAVTimestamp& timestamp) override;
    void AudioUnitStop() override;
    virtual void InitMixerNodeSlots();
    virtual double GetMixerNodeGain(std::shared_ptr<DRMXMixerNodeBase> node);
    virtual DRAVResult SetMixerNodeGain(std::shared_ptr<DRMXMixerNodeBase> node, double gain);
    virtual DRAVResult SetMixerOutputLevel(double level, const std::shared_ptr<DRMXOutputInterface>& output);
    virtual DRAVResult SetMixerOutputMute(bool mute, const std::shared_ptr<DRMXOutputInterface>& output);
    virtual DRAVResult EnableStreamMonitor(bool enable);
    virtual DRAVResult AddMixerNode(std::shared_ptr<DRMXMixerNodeBase>& node);
    // Powers in decibels; without a running unit -1000.0 (silence).
    virtual double GetMixerNodeVULevel(std::shared_ptr<DRMXMixerNodeBase> node, int channel);
    virtual double GetMixerOutputVULevel(int channel);

    // The application's node gain and mute and output level and mute reach
    // the real-time unit through here.
    using DRAVObject::UpdateObserver;
    void UpdateObserver(const std::string& objectId, DRAVPropertyKVPair pair, KVCProperty* property) override;

    // Mutes and stops the old output; the mix observes the new one's level
    // and mute when it is held by a shared_ptr.
    void SetOutput(const std::shared_ptr<DRMXOutputInterface>& output);
    std::shared_ptr<DRMXOutputInterface> GetOutput();
    void SetMonitoringOutput(const std::shared_ptr<DRMXOutputInterface>& output);
    // Stops the first input with the selector; with erase it also leaves the
    // list and its node's slot. Buses keep their numbers until the next start.
    DRAVResult StopMixingOnInput(const DRMX_Settings::DRMXInputSelector& selector, bool erase);

protected:
    virtual void _InitMixerNodeSlot(unsigned int slot);
    virtual void _EraseMixerNode(const DRMX_Settings::DRMXInputSelector& selector);
    virtual void _ValidateInput(const std::shared_ptr<DRMXInputInterface>& input, bool available);

private:
    const DRMX_Settings::DRMXMixerType mixerType_;
    CDplThreadMutex nodeLock_;
    std::array<std::shared_ptr<DRMXMixerNodeBase>, kMixerNodeSlotCount> nodes_;
    CDplThreadMutex inputLock_;
    std::vector<std::shared_ptr<DRMXInputInterface>> inputs_;
    CDplThreadMutex outputLock_;
    std::shared_ptr<DRMXOutputInterface> output_;
    std::shared_ptr<DRMXOutputInterface> monitoringOutput_;
};
