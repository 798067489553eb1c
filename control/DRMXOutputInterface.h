#pragma once

#include <atomic>
#include <memory>

#include "engine/units/DRAVSink.h"
#include "settings/DRMXSettings.h"

// What a mix holds of an output: level, mute, selector, the sink the mix
// hands its blocks to (null while none runs), and the engine's mute by which
// the monitor selection silences one of two outputs on a device.
class DRMXOutputInterface
{
public:
    virtual ~DRMXOutputInterface() = default;
    virtual void SetOutputLevel(double level) = 0;
    virtual double GetOutputLevel() = 0;
    virtual void SetOutputMute(bool mute) = 0;
    virtual bool GetOutputMute() = 0;
    virtual DRMX_Settings::DRMXOutputSelector GetSelector() const = 0;
    virtual void SetSelector(const DRMX_Settings::DRMXOutputSelector& selector) = 0;
    virtual std::shared_ptr<DRAVSink> GetSink() const = 0;
    virtual void SetEngineMute(bool mute) { engineMute.store(mute); }
    bool GetEngineMute() const { return engineMute.load(); }

protected:
    std::atomic<bool> engineMute{false};
};
