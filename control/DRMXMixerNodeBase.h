#pragma once

#include <atomic>
#include <string>

#include "engine/units/DRAVUnit.h"
#include "portable-core/CDplThreadMutex.h"
#include "settings/DRMXSettings.h"

// What the user's fader stands for: the gain and mute of one input in one
// mix, and that input's two VU levels there. It holds no audio. An empty slot
// of a mix holds a plain node with the id -1.
class DRMXMixerNodeBase : public DRAVUnit
{
public:
    DRMXMixerNodeBase(const std::string& name, KVCMap* properties,
                      const DRMX_Settings::DRMXInputSelector& inputSelector,
                      const DRMX_Settings::DRMXOutputSelector& outputSelector);
    ~DRMXMixerNodeBase() override;

    static KVCMap* GetMyObjectProperties();

    // Takes the node id from the input selector.
    DRAVResult Init() override;
    DRAVResult Deinit() override;

    virtual DRMX_Settings::DRMXMixerNodeSelector GetSelector();
    virtual void SetSelector(const DRMX_Settings::DRMXMixerNodeSelector& selector);
    virtual void UpdateNodeId(int id);
    virtual double GetVULevelChannel1();
    virtual double GetVULevelChannel2();
    // level is a power in decibels; only channels 0 and 1 exist.
    virtual void SetVULevel(double level, int channel);

    DRMX_Settings::DRMXInputSelector GetInputSelector() const;
    void SetInputSelector(const DRMX_Settings::DRMXInputSelector& selector);
    DRMX_Settings::DRMXOutputSelector GetOutputSelector() const;
    void SetOutputSelector(const DRMX_Settings::DRMXOutputSelector& selector);
    // Plain stores: only a set through the properties reaches the mix, whose
    // observer passes it on to the real-time unit.
    void SetGain(double gain);
    double GetGain();
    void SetMute(bool mute);
    bool GetMute();

private:
    mutable CDplThreadMutex lock_;
    DRMX_Settings::DRMXInputSelector inputSelector_;
    DRMX_Settings::DRMXOutputSelector outputSelector_;
    std::atomic<double> vuLevelChannel1_{0.0};
    std::atomic<double> vuLevelChannel2_{0.0};
    DRMX_Settings::DRMXMixerNodeSelector selector_;
};
