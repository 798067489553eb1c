#pragma once

#include <atomic>
#include <string>

#include "control/DRMXAudioUnitInterface.h"
#include "control/DRMXOutputInterface.h"
#include "engine/units/DRAVUnit.h"
#include "portable-core/CDplThreadMutex.h"

// What every output has: its selector, level, mute, the two VU levels the
// level loop writes, and its buffer sizes. The accessors store and read; the
// base has no sink.
class DRMXOutputBase : public DRAVUnit, public DRMXOutputInterface, public DRMXAudioUnitInterface
{
public:
    explicit DRMXOutputBase(const std::string& name, KVCMap* properties = nullptr);
    ~DRMXOutputBase() override;

    static KVCMap* GetMyObjectProperties();

    DRMX_Settings::DRMXOutputSelector GetSelector() const override;
    void SetSelector(const DRMX_Settings::DRMXOutputSelector& selector) override;
    // The base starts nothing: it marks itself started and says so.
    DRAVResult AudioUnitStart(const DRAVTimestamp& timestamp) override;
    void AudioUnitStop() override;
    void SetOutputLevel(double level) override;
    double GetOutputLevel() override;
    void SetOutputMute(bool mute) override;
    bool GetOutputMute() override;
    virtual double GetVULevelChannel1();
    virtual double GetVULevelChannel2();
    // level is a power in decibels; only channels 0 and 1 exist.
    virtual void SetVULevel(double level, int channel);
    virtual int64_t GetBufferSizeFrameCount();
    // Both refuse 0 or less (ErrInvalidParameter, the value stays); frames
    // also more than a renderer takes.
    virtual DRAVResult SetBufferSizeFrameCount(int64_t frames);
    virtual int64_t GetBufferSizeMSec();
    virtual DRAVResult SetBufferSizeMSec(int64_t milliseconds);
    std::shared_ptr<DRAVSink> GetSink() const override;

private:
    mutable CDplThreadMutex selectorLock_;
    DRMX_Settings::DRMXOutputSelector selector_;
    std::atomic<double> outputLevel_{0.0};
    std::atomic<bool> outputMute_{false};
    std::atomic<double> vuLevelChannel1_{0.0};
    std::atomic<double> vuLevelChannel2_{0.0};
    std::atomic<int64_t> bufferSizeMSec_{60};
    std::atomic<int64_t> bufferFrameCount_{1000};
};
