#pragma once

#include <memory>
#include <string>

#include "control/DRMXCaptureSourceSlot.h"
#include "control/DRMXMicrophoneBase.h"
#include "control/DRMXMixerNodeBase.h"

// The main microphone of the mixes: the microphone's controls and a capture
// source on its audio device, made at each start and dropped at each stop.
class DRMXMicrophone : public DRMXMicrophoneBase
{
public:
    DRMXMicrophone(const std::string& name, DRMXMicrophoneType type);
    ~DRMXMicrophone() override;

    std::shared_ptr<DRAVSource> GetSource() const override;
    int64_t GetBufferSizeFrameCount() override;
    DRAVResult SetBufferSizeFrameCount(int64_t frames) override;
    // Runs a capture source on the microphone's audio device.
    DRAVResult AudioUnitStart(const DRAVTimestamp& timestamp) override;
    void AudioUnitStop() override;
    bool IsUnitStarted() override;

    // The node of this microphone in the local mix; null if there is none.
    std::shared_ptr<DRMXMixerNodeBase> mixerNode();
    // The levels that node meters; 0.0 without one.
    double GetMicrophoneVULevelChannel1() override;
    double GetMicrophoneVULevelChannel2() override;

private:
    DRMXCaptureSourceSlot capture_;
};
