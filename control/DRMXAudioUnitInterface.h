#pragma once

#include <atomic>

#include "portable-core/DRAVResult.h"
#include "portable-core/DRAVTime.h"

// What the manager starts and stops: mixes, inputs and outputs.
class DRMXAudioUnitInterface
{
public:
    virtual ~DRMXAudioUnitInterface() = default;
    virtual DRAVResult AudioUnitStart(const DRAVTimestamp& timestamp) = 0;
    virtual void AudioUnitStop() = 0;
    virtual bool IsUnitStarted() { return started.load(); }

protected:
    std::atomic<bool> started{false};
};
