#include "control/DRMXMixerBase.h"

#include <algorithm>

#include "portable-core/DRAVPropertyNames.h"
#include "portable-core/KVOItem.h"

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

std::shared_ptr<DRAVObject> ObjectOf(const std::shared_ptr<DRMXOutputInterface>& output)
{
    return std::dynamic_pointer_cast<DRAVObject>(output);
}
}  // namespace

DRMXMixerBase::DRMXMixerBase(const std::string& name, KVCMap* properties, DRMXMixerType type)
    : DRAVObject(name, properties != nullptr ? properties : DRAVObject::GetMyObjectProperties()),
      mixerType_(type)
{
    InitMixerNodeSlots();
}

DRMXMixerBase::~DRMXMixerBase() = default;

void DRMXMixerBase::AddInput(const std::shared_ptr<DRMXInputInterface>& input)
{
    CDplScopedLock lock(inputLock_);
    _ValidateInput(input, true);
    inputs_.push_back(input);
}

void DRMXMixerBase::_ValidateInput(const std::shared_ptr<DRMXInputInterface>& input, bool available)
{
    if (!input)
    {
        return;
    }
    DRMXInputSelector selector = input->GetSelector();
    selector.available = available;
    input->SetSelector(selector);
}

DRAVResult DRMXMixerBase::ReplaceInput(const std::shared_ptr<DRMXInputInterface>& oldInput,
                                       const std::shared_ptr<DRMXInputInterface>& newInput)
{
    if (!oldInput)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    const DRMXInputSelector selector = oldInput->GetSelector();
    CDplScopedLock lock(inputLock_);
    for (auto& input : inputs_)
    {
        if (input && input->GetSelector() == selector)
        {
            input = newInput;
        }
    }
    return DRAVResult(kDRAVResultOk);
}

void DRMXMixerBase::InvalidateChannels()
{
    CDplScopedLock lock(inputLock_);
    for (const auto& input : inputs_)
    {
        _ValidateInput(input, false);
    }
}

void DRMXMixerBase::EraseInvalidatedChannels()
{
    // Selectors first: StopMixingOnInput changes the list.
    std::vector<DRMXInputSelector> gone;
    for (const auto& input : GetInputs())
    {
        if (input && !input->GetSelector().GetIsAvailable())
        {
            gone.push_back(input->GetSelector());
        }
    }
    for (const auto& selector : gone)
    {
        StopMixingOnInput(selector, true);
    }
}

DRAVResult DRMXMixerBase::StopMixingOnInput(const DRMXInputSelector& selector, bool erase)
{
    CDplScopedLock lock(inputLock_);
    const auto found =
        std::find_if(inputs_.begin(), inputs_.end(),
                     [&selector](const auto& input) { return input && input->GetSelector() == selector; });
    if (found == inputs_.end())
    {
        return DRAVResult(kDRAVResultOk);
    }
    auto* unit = dynamic_cast<DRMXAudioUnitInterface*>(found->get());
    if (unit == nullptr)
    {
        return DRAVResult(kDRAVResultOk);
    }
    unit->AudioUnitStop();
    if (erase)
    {
        inputs_.erase(found);
        _EraseMixerNode(selector);
    }
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXMixerBase::ConfigureMixerNodes()
{
    CDplScopedLock inputs(inputLock_);
    for (const auto& input : inputs_)
    {
        if (!input)
        {
            continue;
        }
        std::shared_ptr<DRMXMixerNodeBase> node;
        {
            CDplScopedLock nodes(nodeLock_);
            if (!CreateMixerNode(input->GetSelector(), &node).Succeeded() || !node)
            {
                continue;
            }
        }
        // Without the node lock: a gain set holds the node's observer list
        // and then takes the node lock in UpdateObserver.
        if (const std::shared_ptr<DRAVObject> self = weak_from_this().lock())
        {
            node->AddObserver(KVOItem::Weak(self), kPropertyNodeGain);
            node->AddObserver(KVOItem::Weak(self), kPropertyNodeMute);
        }
        AddMixerNode(node);
        input->UpdateMixerNodeId(node->GetSelector().nodeId);
    }
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXMixerBase::CreateMixerNode(const DRMXInputSelector&, std::shared_ptr<DRMXMixerNodeBase>*)
{
    return DRAVResult(kDRAVResultErrNotImplemented);
}

DRAVResult DRMXMixerBase::ChangeMixerNodeInputSelector(const DRMXInputSelector& oldSelector,
                                                       const DRMXInputSelector& newSelector)
{
    CDplScopedLock lock(nodeLock_);
    for (const auto& node : nodes_)
    {
        if (node && node->GetInputSelector() == oldSelector)
        {
            node->SetInputSelector(newSelector);
            break;
        }
    }
    return DRAVResult(kDRAVResultOk);
}

void DRMXMixerBase::_EraseMixerNode(const DRMXInputSelector& selector)
{
    CDplScopedLock lock(nodeLock_);
    for (unsigned int slot = 0; slot < kMixerNodeSlotCount; ++slot)
    {
        if (nodes_[slot] && nodes_[slot]->GetInputSelector() == selector)
        {
            _InitMixerNodeSlot(slot);
            return;
        }
    }
}

void DRMXMixerBase::UpdateObserver(const std::string& objectId, DRAVPropertyKVPair pair, KVCProperty*)
{
    // The node is found under the node lock and handed on without it: the
    // caller holds the node's observer list, and the gain takes the unit's lock.
    const std::shared_ptr<DRMXOutputInterface> output = GetOutput();
    const std::shared_ptr<DRAVObject> outputObject = ObjectOf(output);
    if (outputObject && outputObject->GetObjectID() == objectId)
    {
        // The monitoring output on purpose: the unit's output volume is common
        // to both of the mix's sinks, and a muted stream mix is muted in the
        // monitor too.
        if (pair.key == kPropertyOutputLevel)
        {
            SetMixerOutputLevel(pair.GetDouble(), GetMonitoringOutput());
        }
        else if (pair.key == kPropertyOutputMute)
        {
            SetMixerOutputMute(pair.GetBool(), GetMonitoringOutput());
        }
        return;
    }
    std::shared_ptr<DRMXMixerNodeBase> node;
    {
        CDplScopedLock lock(nodeLock_);
        for (const auto& slot : nodes_)
        {
            if (slot && slot->GetObjectID() == objectId)
            {
                node = slot;
                break;
            }
        }
    }
    if (!node)
    {
        return;
    }
    if (pair.key == kPropertyNodeGain)
    {
        SetMixerNodeGain(node, node->GetMute() ? 0.0 : pair.GetDouble());
    }
    else if (pair.key == kPropertyNodeMute)
    {
        SetMixerNodeGain(node, pair.GetBool() ? 0.0 : node->GetGain());
    }
}

std::vector<std::shared_ptr<DRMXInputInterface>> DRMXMixerBase::GetInputs()
{
    CDplScopedLock lock(inputLock_);
    return inputs_;
}

DRAVResult DRMXMixerBase::GetInput(const DRMXInputSelector& selector,
                                   std::shared_ptr<DRMXInputInterface>* out, bool validate)
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
    auto node =
        std::make_shared<DRMXMixerNodeBase>("Empty node", nullptr, DRMXInputSelector(), DRMXOutputSelector());
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

DRAVResult DRMXMixerBase::SetMixerOutputLevel(double level,
                                              const std::shared_ptr<DRMXOutputInterface>& output)
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
    // Outside the output lock: a level set on the output holds the output's
    // observer list and then takes the output lock in UpdateObserver.
    const std::shared_ptr<DRAVObject> object = ObjectOf(output);
    const std::shared_ptr<DRAVObject> self = weak_from_this().lock();
    if (object && self)
    {
        object->AddObserver(KVOItem::Weak(self), kPropertyOutputLevel);
        object->AddObserver(KVOItem::Weak(self), kPropertyOutputMute);
    }
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
