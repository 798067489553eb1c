#pragma once

#include <memory>

#include "engine/units/DRAVFilter.h"
#include "portable-core/CDplThreadMutex.h"

class CDplAudioProcessor;

// Measures the peak level of the audio that its owner sends into it, on the
// sender's own thread, and hands nothing on. Control threads read the levels
// as properties. The measurement neither copies nor queues nor allocates: it
// holds the frame's read lock and the meter's mutex for one pass.
class DRAVAudioLevelmeter : public DRAVFilter
{
public:
    static constexpr DRAVFilterType kFilterType = 10;
    static constexpr int kMeterChannels = 8;
    static constexpr int kMeterSampleRate = 48000;
    static constexpr double kDefaultDecreaseDbPerSecond = 48.0;

    explicit DRAVAudioLevelmeter(const DRAVFilterConfig& config = DRAVFilterConfig{kFilterType, false});
    ~DRAVAudioLevelmeter() override;

    static KVCMap* GetMyObjectProperties();

    // Passthrough in and out: frames are measured on the thread that sends them.
    DRAVResult Init() override;
    DRAVResult InitFilter(DRAVPinType input, DRAVPinType output) override;
    DRAVResult Deinit() override;

    // Audio frames of float samples are measured; frames of another kind or
    // sample type are left alone. Nothing goes out. On a capture device's
    // thread: the meter's lock for one block's sums; no allocation, no log.
    DRAVResult InputMediaBufferReceived(std::shared_ptr<DRAVUnitInputPin> pin, int pinNumber,
                                        std::shared_ptr<DRAVMediaBuffer> frame) override;

    // How fast the reading falls, in dB per second; without a processor the
    // set does nothing and the get gives 0.
    void SetVUDecreaseValue(double dbPerSecond);
    double GetVUDecreaseValue();
    // The linear peak of `channel` (0 to 7; 0.0 outside). A reading above
    // full scale is returned once, and the meter starts again from 0.
    double GetVULevelChannel(int channel);
    double GetVULevelChannel1() { return GetVULevelChannel(0); }
    double GetVULevelChannel2() { return GetVULevelChannel(1); }

private:
    CDplThreadMutex mutex_;
    // Exists from InitFilter to Deinit.
    std::unique_ptr<CDplAudioProcessor> processor_;
};
