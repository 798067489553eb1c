#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "engine/media/DRAVAudioBuffer.h"
#include "engine/units/DRAVSource.h"

// A source that makes a test tone on the consumer's clock, without hardware.
// Each channel plays a lower pitch than the one before; the first frame of
// every new second is a louder, higher tick, whose pitch rises in five steps.
class DRAVSourceAudioTestGenerator : public DRAVSource
{
public:
    static constexpr DRAVSourceType kSourceType = 6;
    static constexpr int64_t kDefaultFrequencyHz = 880;
    static constexpr float kToneAmplitude = 0.2f;
    static constexpr float kTickAmplitude = 0.8f;
    static constexpr int32_t kToneSteps = 5;

    explicit DRAVSourceAudioTestGenerator(DRAVSourceConfig config = DRAVSourceConfig{kSourceType, 4});
    ~DRAVSourceAudioTestGenerator() override;

    static KVCMap* GetMyObjectProperties();

    DRAVResult InitSource(DRAVPinType outputPinType) override;
    DRAVResult RequestAudioFrame(const DRAVTimestamp& time, const DRAVDuration& duration, int pin) override;
    DRAVResult PullAudioFrame(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                              const DRAVDuration& duration, int pin) override;
    using DRAVSource::PullAudioFrame;

    // The size follows the consumer's requests; a set is refused.
    void SetAudioBufferSizeMsec(int64_t) override {}

    void SetFrequencyHz(int64_t frequencyHz) { frequencyHz_.store(frequencyHz); }
    int64_t GetFrequencyHz() { return frequencyHz_.load(); }
    void SetUseRingBuffer(bool use) { useRingBuffer_.store(use); }
    bool GetUseRingBuffer() { return useRingBuffer_.load(); }

    // One frame of `duration` at `time` in the default float format.
    DRAVResult CreateNewAudioBuffer(const DRAVTimestamp& time, const DRAVDuration& duration,
                                    std::shared_ptr<DRAVAudioBuffer>* out);

private:
    std::atomic<int64_t> frequencyHz_{kDefaultFrequencyHz};
    DRAVTimestamp lastTimestamp_{-1};
    CDplThreadMutex mutex_;
    std::shared_ptr<DRAVAudioBuffer> lastFrame_;
    int32_t toneStep_ = 0;
    std::atomic<bool> useRingBuffer_{true};
};
