#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "control/DRMXAudioUnitInterface.h"
#include "control/DRMXInputInterface.h"
#include "engine/units/DRAVUnit.h"
#include "portable-core/CDplThreadMutex.h"

// What every input has, the microphone's included: a selector and two buffer
// sizes served as properties. The base starts nothing and has no source.
class DRMXInputBase : public DRAVUnit, public DRMXInputInterface, public DRMXAudioUnitInterface
{
public:
    static constexpr int64_t kDefaultBufferSizeMSec = 20;

    explicit DRMXInputBase(const std::string& name, KVCMap* properties = nullptr);
    ~DRMXInputBase() override;

    static KVCMap* GetMyObjectProperties();

    DRMX_Settings::DRMXInputSelector GetSelector() const override;
    void SetSelector(const DRMX_Settings::DRMXInputSelector& selector) override;
    void UpdateMixerNodeId(int nodeId) override;
    std::shared_ptr<DRAVSource> GetSource() const override;
    // The base marks itself started and says that it can't run.
    DRAVResult AudioUnitStart(const DRAVTimestamp& timestamp) override;
    void AudioUnitStop() override;
    // The base has no source to size: 0, and a set is refused.
    virtual int64_t GetBufferSizeFrameCount();
    virtual DRAVResult SetBufferSizeFrameCount(int64_t frames);
    virtual int64_t GetBufferSizeMSec();
    // ErrInvalidParameter for 0 or less; the value stays.
    virtual DRAVResult SetBufferSizeMSec(int64_t milliseconds);

protected:
    mutable CDplThreadMutex selectorLock_;
    DRMX_Settings::DRMXInputSelector selector_;

private:
    std::atomic<int64_t> bufferSizeMSec_{kDefaultBufferSizeMSec};
};
