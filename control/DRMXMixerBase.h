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
    virtual std::shared_ptr<DRMXOutputInterface> GetMonitoringOutput();
    virtual void StopMixing();
    virtual void EraseAllChannels();
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

    void SetOutput(const std::shared_ptr<DRMXOutputInterface>& output);
    std::shared_ptr<DRMXOutputInterface> GetOutput();
    void SetMonitoringOutput(const std::shared_ptr<DRMXOutputInterface>& output);

protected:
    virtual void _InitMixerNodeSlot(unsigned int slot);

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
