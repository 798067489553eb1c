#include "control/DRMXMixerBase.h"

using namespace DRMX_Settings;

namespace
{
DRMXAudioUnitInterface* AudioUnitOf(const std::shared_ptr<DRMXOutputInterface>& output)
{
    return dynamic_cast<DRMXAudioUnitInterface*>(output.get());
}

bool IsEmptySlot(const std::shared_ptr<DRMXMixerNodeBase>& node)
{
    return !node || node->GetSelector().nodeId == -1;
}
}  // namespace

DRMXMixerBase::DRMXMixerBase(const std::string& name, KVCMap* properties, DRMXMixerType type)
    : DRAVObject(name, properties != nullptr ? properties : DRAVObject::GetMyObjectProperties()), mixerType_(type)
{
    InitMixerNodeSlots();
}

DRMXMixerBase::~DRMXMixerBase() = default;

void DRMXMixerBase::AddInput(const std::shared_ptr<DRMXInputInterface>& input)
{
    CDplScopedLock lock(inputLock_);
    if (input)
    {
        DRMXInputSelector selector = input->GetSelector();
        selector.available = true;
        input->SetSelector(selector);
    }
    inputs_.push_back(input);
}

std::vector<std::shared_ptr<DRMXInputInterface>> DRMXMixerBase::GetInputs()
{
    CDplScopedLock lock(inputLock_);
    return inputs_;
}

DRAVResult DRMXMixerBase::GetInput(const DRMXInputSelector& selector, std::shared_ptr<DRMXInputInterface>* out,
                                   bool validate)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    CDplScopedLock lock(inputLock_);
    for (const auto& input : inputs_)
    {
        if (input && input->GetSelector() == selector)
        {
            if (validate)
            {
                DRMXInputSelector valid = input->GetSelector();
                valid.available = true;
                input->SetSelector(valid);
            }
            *out = input;
            return DRAVResult(kDRAVResultOk);
        }
    }
    return DRAVResult(kDRAVResultErrNotFound);
}

std::shared_ptr<DRMXOutputInterface> DRMXMixerBase::GetMonitoringOutput()
{
    CDplScopedLock lock(outputLock_);
    return monitoringOutput_;
}

void DRMXMixerBase::StopMixing()
{
    {
        CDplScopedLock lock(outputLock_);
        for (const auto& output : {output_, monitoringOutput_})
        {
            if (DRMXAudioUnitInterface* unit = AudioUnitOf(output))
            {
                unit->AudioUnitStop();
            }
        }
    }
    {
        CDplScopedLock lock(inputLock_);
        for (const auto& input : inputs_)
        {
            if (auto* unit = dynamic_cast<DRMXAudioUnitInterface*>(input.get()))
            {
                unit->AudioUnitStop();
            }
        }
    }
    AudioUnitStop();
}

void DRMXMixerBase::EraseAllChannels()
{
    {
        CDplScopedLock lock(inputLock_);
        inputs_.clear();
    }
    {
        CDplScopedLock lock(nodeLock_);
        for (const auto& node : nodes_)
        {
            if (node)
            {
                node->Deinit();
            }
        }
        InitMixerNodeSlots();
    }
    CDplScopedLock lock(outputLock_);
    output_.reset();
    monitoringOutput_.reset();
}

std::vector<std::shared_ptr<DRMXMixerNodeBase>> DRMXMixerBase::GetMixerNodes()
{
    CDplScopedLock lock(nodeLock_);
    std::vector<std::shared_ptr<DRMXMixerNodeBase>> nodes;
    for (const auto& node : nodes_)
    {
        if (!IsEmptySlot(node))
        {
            nodes.push_back(node);
        }
    }
    return nodes;
}

void DRMXMixerBase::EnumerateMixerNodes(
    const std::function<void(const std::shared_ptr<DRMXMixerNodeBase>&, bool* stop)>& visit)
{
    CDplScopedLock lock(nodeLock_);
    bool stop = false;
    for (const auto& node : nodes_)
    {
        visit(node, &stop);
        if (stop)
        {
            break;
        }
    }
}

DRAVResult DRMXMixerBase::AudioUnitStart(const DRAVTimestamp&)
{
    started.store(true);
    return DRAVResult(kDRAVResultErrNotImplemented);
}

void DRMXMixerBase::AudioUnitStop()
{
    started.store(false);
}

void DRMXMixerBase::InitMixerNodeSlots()
{
    CDplScopedLock lock(nodeLock_);
    for (unsigned int slot = 0; slot < kMixerNodeSlotCount; ++slot)
    {
        _InitMixerNodeSlot(slot);
    }
}

void DRMXMixerBase::_InitMixerNodeSlot(unsigned int slot)
{
    if (slot >= kMixerNodeSlotCount)
    {
        return;
    }
    auto node = std::make_shared<DRMXMixerNodeBase>("Empty node", nullptr, DRMXInputSelector(), DRMXOutputSelector());
    DRMXMixerNodeSelector empty;
    empty.nodeId = -1;
    node->SetSelector(empty);
    CDplScopedLock lock(nodeLock_);
    nodes_[slot] = node;
}

double DRMXMixerBase::GetMixerNodeGain(std::shared_ptr<DRMXMixerNodeBase>)
{
    return 0.0;
}

DRAVResult DRMXMixerBase::SetMixerNodeGain(std::shared_ptr<DRMXMixerNodeBase>, double)
{
    return DRAVResult(kDRAVResultErrNotImplemented);
}

DRAVResult DRMXMixerBase::SetMixerOutputLevel(double level, const std::shared_ptr<DRMXOutputInterface>& output)
{
    if (!output)
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    output->SetOutputLevel(level);
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXMixerBase::SetMixerOutputMute(bool mute, const std::shared_ptr<DRMXOutputInterface>& output)
{
    if (!output)
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    output->SetOutputMute(mute);
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXMixerBase::EnableStreamMonitor(bool enable)
{
    CDplScopedLock lock(outputLock_);
    if (!output_)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    if (mixerType_ == kMixerStream)
    {
        if (!monitoringOutput_)
        {
            return DRAVResult(kDRAVResultErrNullPointer);
        }
        monitoringOutput_->SetEngineMute(!enable);
    }
    else if (mixerType_ == kMixerLocal)
    {
        output_->SetEngineMute(enable);
    }
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXMixerBase::AddMixerNode(std::shared_ptr<DRMXMixerNodeBase>& node)
{
    CDplScopedLock lock(nodeLock_);
    for (auto& slot : nodes_)
    {
        if (IsEmptySlot(slot))
        {
            slot = node;
            break;
        }
    }
    // With no free slot the node is dropped: the slots bound the nodes of a mix.
    return DRAVResult(kDRAVResultOk);
}

double DRMXMixerBase::GetMixerNodeVULevel(std::shared_ptr<DRMXMixerNodeBase>, int)
{
    return -1000.0;
}

double DRMXMixerBase::GetMixerOutputVULevel(int)
{
    return -1000.0;
}

void DRMXMixerBase::SetOutput(const std::shared_ptr<DRMXOutputInterface>& output)
{
    CDplScopedLock lock(outputLock_);
    if (output_)
    {
        SetMixerOutputMute(true, output_);
        if (DRMXAudioUnitInterface* unit = AudioUnitOf(output_))
        {
            unit->AudioUnitStop();
        }
    }
    output_ = output;
}

std::shared_ptr<DRMXOutputInterface> DRMXMixerBase::GetOutput()
{
    CDplScopedLock lock(outputLock_);
    return output_;
}

void DRMXMixerBase::SetMonitoringOutput(const std::shared_ptr<DRMXOutputInterface>& output)
{
    CDplScopedLock lock(outputLock_);
    if (DRMXAudioUnitInterface* unit = AudioUnitOf(monitoringOutput_))
    {
        unit->AudioUnitStop();
    }
    monitoringOutput_ = output;
}
