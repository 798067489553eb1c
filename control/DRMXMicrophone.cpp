#include "control/DRMXMicrophone.h"

#include "control/DRMXInput.h"
#include "control/DRMXManager.h"

DRMXMicrophone::DRMXMicrophone(const std::string& name, DRMXMicrophoneType type)
    : DRMXMicrophoneBase(name, type)
{
}

DRMXMicrophone::~DRMXMicrophone()
{
    AudioUnitStop();
}

std::shared_ptr<DRAVSource> DRMXMicrophone::GetSource() const
{
    return capture_.Source();
}

int64_t DRMXMicrophone::GetBufferSizeFrameCount()
{
    return capture_.GetBufferSizeFrameCount();
}

DRAVResult DRMXMicrophone::SetBufferSizeFrameCount(int64_t frames)
{
    return capture_.SetBufferSizeFrameCount(frames);
}

DRAVResult DRMXMicrophone::AudioUnitStart(const DRAVTimestamp&)
{
    const DRMX_Settings::DRMXInputSelector selector = GetSelector();
    // The selector's path names the device as it was enumerated; a
    // microphone plugged in again since has a new one, which its hardware id
    // still finds.
    std::string path = DRMXInput::GetDevicePathForSelector(selector);
    if (path.empty())
    {
        path = selector.GetDevicePath();
    }
    started.store(true);
    return capture_.Start(path, selector.GetHardwareId());
}

void DRMXMicrophone::AudioUnitStop()
{
    capture_.Stop();
    started.store(false);
}

bool DRMXMicrophone::IsUnitStarted()
{
    return capture_.Source() != nullptr;
}

std::shared_ptr<DRMXMixerNodeBase> DRMXMicrophone::mixerNode()
{
    std::shared_ptr<DRMXMixerNodeBase> node;
    DRMXManager::GetDRMXManager()->GetMixerNode(DRMX_Settings::kMixerLocal, GetSelector(), &node);
    return node;
}

double DRMXMicrophone::GetMicrophoneVULevelChannel1()
{
    const std::shared_ptr<DRMXMixerNodeBase> node = mixerNode();
    return node ? node->GetVULevelChannel1() : 0.0;
}

double DRMXMicrophone::GetMicrophoneVULevelChannel2()
{
    const std::shared_ptr<DRMXMixerNodeBase> node = mixerNode();
    return node ? node->GetVULevelChannel2() : 0.0;
}
