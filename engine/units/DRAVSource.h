#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "engine/media/DRAVMediaBufferDelegate.h"
#include "engine/units/DRAVQueueStatistics.h"
#include "engine/units/DRAVUnit.h"
#include "engine/units/DRAVUnitPullInterface.h"
#include "portable-core/DplSharedSlot.h"

using DRAVSourceType = int32_t;
using DRAVSourceUsageType = int32_t;

struct DRAVSourceConfig
{
    DRAVSourceType type = 0;
    DRAVSourceUsageType usage = 0;
};

// "Unknown", "AVTestGenerator", ... "VirtualCapture"; "(Unknown)" otherwise.
const char* DRAVSourceTypeToString(DRAVSourceType type);

class DRAVSourceInterface : public DRAVUnitPullInterface
{
public:
    virtual DRAVResult InitSource(DRAVPinType outputPinType) = 0;
    virtual DRAVSourceType GetType() = 0;
    virtual DRAVSourceUsageType GetUsageType() = 0;
    virtual bool HasAudioPin() { return true; }
    virtual int GetAudioPinIndex() { return 0; }
};

// A unit without input pins that produces audio for others to pull or
// receive. Its audio always leaves through a ring buffer pin. A concrete
// source's InitSource ends with SetUnitInitialized(true) on success.
class DRAVSource : public DRAVUnit, public DRAVSourceInterface, public DRAVMediaBufferDelegate
{
public:
    static constexpr int32_t kFilterTypeAudioConverter = 6;
    static constexpr int32_t kFilterTypeAudioEncoder = 7;
    static constexpr int32_t kFilterTypeAudioDelay = 9;
    static constexpr int32_t kFilterTypeAudioLevelmeter = 10;
    static constexpr int64_t kResetCounterReload = 25;

    DRAVSource(const std::string& name, KVCMap* propertyMap, DRAVSourceConfig config, int outputPins);
    ~DRAVSource() override;

    static KVCMap* GetMyObjectProperties();

    DRAVResult Init() override;
    DRAVResult Deinit() override;
    DRAVResult InitSource(DRAVPinType outputPinType) override;
    DRAVSourceType GetType() override { return config_.type; }
    DRAVSourceUsageType GetUsageType() override { return config_.usage; }

    // On the mix's thread: through the converter started with
    // StartAudioConverter (found once, at its start) or the pin's queue; no
    // lock a control call holds for long, no allocation, no log.
    DRAVResult RequestAudioFrame(const DRAVTimestamp& time, const DRAVDuration& duration, int pin) override;
    DRAVResult PullAudioFrame(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                              const DRAVDuration& duration, int pin) override;
    DRAVResult PullAudioFrame(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                              int64_t frames, int pin) override;

    // Frames of the source's own child filters come back here and go out.
    DRAVResult MediaBufferReceived(std::shared_ptr<DRAVObject> sender,
                                   std::shared_ptr<DRAVMediaBuffer> frame) override;
    std::string DRAVMediaBufferDelegateFriendlyName() override { return GetFriendlyName(); }

    DRAVResult StartAudioConverter();
    DRAVResult StartAudioDelay();
    DRAVResult StartAudioLevelmeter();
    DRAVResult StartAudioEncoder(std::shared_ptr<DRAVMediaBufferDelegate> receiver);
    std::shared_ptr<DRAVUnit> GetAudioConverter() { return audioConverter_.GetUnit(); }
    std::shared_ptr<DRAVUnit> GetAudioDelay() { return audioDelay_.GetUnit(); }
    std::shared_ptr<DRAVUnit> GetAudioLevelmeter() { return audioLevelmeter_.GetUnit(); }

    // Statistics of the first child filter's input, which sees the source's audio.
    DRAVResult GetAudioStatistics(DRAVQueueStatistics* statistics);
    // True once the counter is down to 0; `reload` starts it again.
    bool NeedsReset(bool reload);
    // Counted down by whoever drives the source's clock.
    void CountDownReset();

    virtual void SetAudioMute(bool mute);
    virtual bool GetAudioMute();
    // The base has no gain.
    virtual void SetAudioGain(double) {}
    virtual double GetAudioGain() { return 0.0; }
    virtual void SetAudioDelayMsec(int64_t delayMsec);
    virtual int64_t GetAudioDelayMsec();
    virtual void SetAudioBufferSizeMsec(int64_t sizeMsec);
    virtual int64_t GetAudioBufferSizeMsec();
    virtual void SetStartTimeUsec(int64_t startTimeUsec);
    virtual int64_t GetStartTimeUsec();
    virtual void SetTimestampWatchdog(bool enable);
    virtual bool GetTimestampWatchdog();
    virtual void SetEnableSourceCopy(bool enable);
    virtual bool GetEnableSourceCopy();
    DRAVPinType GetOutputPinType() const { return outputPinType_.load(); }

protected:
    // The output pin a pull of `pin` reads: a negative pin means 1 when
    // there are several output pins, else 0.
    std::shared_ptr<DRAVUnitOutputPin> ChoosePullPin(int pin);
    DRAVResult StartChildFilter(DRAVUnit::ChildUnit& holder, int32_t filterType,
                                std::shared_ptr<DRAVMediaBufferDelegate> receiver);

private:
    std::atomic<bool> enableSourceCopy_{false};
    std::atomic<bool> audioMute_{false};
    std::atomic<int64_t> audioDelayMsec_{0};
    std::atomic<int64_t> audioBufferSizeMsec_{-1};
    std::atomic<bool> timestampWatchdog_{true};
    const DRAVSourceConfig config_;
    std::atomic<DRAVPinType> outputPinType_{kDRAVPinTypePull};
    std::atomic<int64_t> resetCounter_{kResetCounterReload};
    std::atomic<int64_t> startTimeUsec_{-1};
    DRAVUnit::ChildUnit audioConverter_;
    // The converter's pull side, resolved when it starts.
    DplSharedSlot<DRAVUnitPullInterface> converterPull_;
    DRAVUnit::ChildUnit audioDelay_;
    DRAVUnit::ChildUnit audioLevelmeter_;
    DRAVUnit::ChildUnit audioEncoder_;
    CDplThreadMutex firstAudioFilterMutex_;
    std::weak_ptr<DRAVUnit> firstAudioFilter_;
};
