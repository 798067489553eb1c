// The manager's reconfiguration of the mixes: the layout (which inputs and
// outputs the mixes hold) and the selectors (which devices they use), also
// while the mixes run.
#include "control/DRMXManager.h"

#include "control/DRMXAudioUnitInterface.h"
#include "portable-core/DRAVLog.h"
#include "portable-core/DRAVPropertyNames.h"
#include "portable-core/DRAVTime.h"

using namespace DRMX_Settings;

DRAVResult DRMXManager::ConfigureMixer(ReconfigurationIntent intent, const std::function<void()>& change)
{
    if (!change)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    // A mix is only ever reconfigured awake and with a microphone there.
    if (!systemAwake_.load() || !IsMicrophoneConnected())
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    return intent == kReconfigureSelectors || intent == kReconfigureDevices
               ? ConfigureMixerSelectorChange(change)
               : ConfigureMixerLayout(change);
}

DRAVResult DRMXManager::ConfigureMixerSelectorChange(const std::function<void()>& change)
{
    // The mixes go on running; no lock is held around the change.
    change();
    return mixing_.load() ? DRAVResult(kDRAVResultOk) : StartMixing();
}

DRAVResult DRMXManager::ConfigureMixerLayout(const std::function<void()>& change)
{
    {
        CDplScopedLock lock(mixerLock_);
        if (mixers_.count(kMixerLocal) == 0 || mixers_.count(kMixerStream) == 0)
        {
            return DRAVResult(kDRAVResultErrNullPointer);
        }
        StopMixing();
        mixers_.at(kMixerLocal)->EraseAllChannels();
        mixers_.at(kMixerStream)->EraseAllChannels();
    }
    // Without the lock: the change takes it for each step it makes.
    change();
    CDplScopedLock lock(mixerLock_);
    if (mixers_.count(kMixerLocal) == 0 || mixers_.count(kMixerStream) == 0)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    mixers_.at(kMixerLocal)->ConfigureMixerNodes();
    mixers_.at(kMixerStream)->ConfigureMixerNodes();
    return StartMixing();
}

DRAVResult DRMXManager::AddInput(const DRMXInputSelector& selector)
{
    CDplScopedLock lock(mixerLock_);
    if (mixing_.load())
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    for (const auto& [type, mixer] : mixers_)
    {
        const DRAVResult result = AddInputToMixerLocked(type, selector);
        if (!result.Succeeded())
        {
            return result;
        }
    }
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXManager::AddInputToMixer(const DRMXMixerType& type, const DRMXInputSelector& selector)
{
    CDplScopedLock lock(mixerLock_);
    return AddInputToMixerLocked(type, selector);
}

DRAVResult DRMXManager::AddInputToMixerLocked(const DRMXMixerType& type, const DRMXInputSelector& selector)
{
    const auto found = mixers_.find(type);
    if (found == mixers_.end() || !found->second)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    if (mixing_.load())
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    // Each mix gets an object (and a source) of its own.
    std::shared_ptr<DRMXInputInterface> input;
    const DRAVResult result = CreateInput(selector, &input);
    if (result.Succeeded())
    {
        found->second->AddInput(input);
    }
    return result;
}

DRAVResult DRMXManager::SetInputOnMixer(const DRMXMixerType& type, const DRMXInputSelector& selector,
                                        unsigned index)
{
    CDplScopedLock lock(mixerLock_);
    const auto found = mixers_.find(type);
    if (found == mixers_.end() || !found->second)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    const std::shared_ptr<DRMXMixerBase> mixer = found->second;
    const std::vector<std::shared_ptr<DRMXInputInterface>> inputs = mixer->GetInputs();
    if (index >= inputs.size())
    {
        return DRAVResult(kDRAVResultErrIndexOutOfRange);
    }
    const std::shared_ptr<DRMXInputInterface>& input = inputs[index];
    const DRMXInputSelector former = input->GetSelector();
    if (former == selector)
    {
        return DRAVResult(kDRAVResultOk);
    }
    // A started input moves its source to the new device.
    input->SetSelector(selector);
    mixer->ChangeMixerNodeInputSelector(former, selector);
    if (auto* unit = dynamic_cast<DRMXAudioUnitInterface*>(input.get());
        unit != nullptr && !unit->IsUnitStarted())
    {
        unit->AudioUnitStart(DRAVGetHostTime()).LogError("input restart fail");
    }
    // The running mix takes the input's (new) source on its bus.
    mixer->ReplaceInput(input, input);
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRMXManager::SetOutputOnMixer(const DRMXMixerType& type, const DRMXOutputSelector& selector)
{
    CDplScopedLock lock(mixerLock_);
    DRAVResult result = SetOutputOnMixerLocked(type, selector, false);
    // The user's device also carries the stream mix, muted unless monitored.
    if (result.GetCode() == kDRAVResultOk && type == kMixerLocal)
    {
        result = SetOutputOnMixerLocked(kMixerStream, selector, true);
    }
    return result;
}

DRAVResult DRMXManager::SetOutputOnMixerLocked(const DRMXMixerType& type, const DRMXOutputSelector& selector,
                                               bool monitoring)
{
    const auto found = mixers_.find(type);
    if (found == mixers_.end() || !found->second)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    const std::shared_ptr<DRMXMixerBase>& mixer = found->second;
    if (mixing_.load())
    {
        // A running output moves its sink to the new device.
        const std::shared_ptr<DRMXOutputInterface> output =
            monitoring ? mixer->GetMonitoringOutput() : mixer->GetOutput();
        if (!output)
        {
            return DRAVResult(kDRAVResultErrInvalidState);
        }
        output->SetSelector(selector);
        return DRAVResult(kDRAVResultOk);
    }
    std::shared_ptr<DRMXOutputInterface> output;
    const DRAVResult result = CreateOutput(selector, &output);
    if (result.Succeeded())
    {
        if (monitoring)
        {
            mixer->SetMonitoringOutput(output);
        }
        else
        {
            mixer->SetOutput(output);
        }
    }
    return result;
}

DRAVResult DRMXManager::GetOutputForMixer(const DRMXMixerType& type, std::shared_ptr<DRAVUnit>* out)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    const std::shared_ptr<DRMXMixerBase> mixer = GetMixerForType(type);
    *out = mixer ? std::dynamic_pointer_cast<DRAVUnit>(mixer->GetOutput()) : nullptr;
    return DRAVResult(*out ? kDRAVResultOk : kDRAVResultErrNullPointer);
}

DRAVResult DRMXManager::StopMixingOnInput(const DRMXInputSelector& selector, bool erase)
{
    if (!mixing_.load())
    {
        return DRAVResult(kDRAVResultOkNoDataChanged);
    }
    CDplScopedLock lock(mixerLock_);
    const auto local = mixers_.find(kMixerLocal);
    const auto stream = mixers_.find(kMixerStream);
    if (local == mixers_.end() || stream == mixers_.end() || !local->second || !stream->second)
    {
        return DRAVResult(kDRAVResultErrNotFound);
    }
    local->second->StopMixingOnInput(selector, erase);
    return stream->second->StopMixingOnInput(selector, erase);
}

DRAVResult DRMXManager::FindInput(const DRMXInputSelector& selector, std::shared_ptr<DRMXInputInterface>* out)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    out->reset();
    DRAVResult result(kDRAVResultErrNotFound);
    CDplScopedLock lock(mixerLock_);
    // The walk goes on through every mix: an input of both ends as the
    // stream mix's.
    for (const auto& [type, mixer] : mixers_)
    {
        if (!mixer)
        {
            continue;
        }
        for (const auto& input : mixer->GetInputs())
        {
            if (input && input->GetSelector() == selector)
            {
                *out = input;
                result = DRAVResult(kDRAVResultOk);
                break;
            }
        }
    }
    return result;
}

DRAVResult DRMXManager::GetMixerConfiguration(DRMXMixerConfiguration& configuration)
{
    CDplScopedLock lock(mixerLock_);
    const auto local = mixers_.find(kMixerLocal);
    const auto stream = mixers_.find(kMixerStream);
    if (local == mixers_.end() || stream == mixers_.end() || !local->second || !stream->second)
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    if (const auto output = local->second->GetOutput())
    {
        configuration.SetMixerOutputLocal(output->GetSelector());
    }
    if (const auto output = stream->second->GetOutput())
    {
        configuration.SetMixerOutputStream(output->GetSelector());
    }
    for (const auto& node : local->second->GetMixerNodes())
    {
        configuration.AddMixerInputLocal(node->GetInputSelector());
    }
    for (const auto& node : stream->second->GetMixerNodes())
    {
        configuration.AddMixerInputStream(node->GetInputSelector());
    }
    return DRAVResult(kDRAVResultOk);
}
