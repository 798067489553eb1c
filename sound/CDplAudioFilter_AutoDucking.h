#pragma once

#include <cstdint>

#include "sound/CDplAudioFilter_RmsMeasurement.h"

// Decides when ducking applies: on as soon as the sliding mean square rises
// above the threshold, off again once it has stayed at or below it for the
// hold time. It applies no gain itself; Apply returns its input unchanged
// and the state is held for whoever reads it.
class CDplAudioFilter_AutoDucking final : public CDplAudioFilter_RmsMeasurement
{
public:
    enum _DUCKING_STATE : int32_t
    {
        DUCKING_OFF = 0,
        DUCKING_FADE_OUT = 1,
        DUCKING_ON = 2,
        WAIT_FOR_DUCKING_OFF = 3,
        DUCKING_FADE_IN = 4,
    };
    using DuckingState = _DUCKING_STATE;

    static constexpr float kDefaultThresholdDb = -36.0f;
    static constexpr int kDefaultHoldMs = 1050;

    CDplAudioFilter_AutoDucking(int windowMs, const CDplAudioFormat& format);
    ~CDplAudioFilter_AutoDucking() override;

    double Apply(double x) override;

    // threshold = (10^(thresholdDb / 20))^2 on the mean-square scale; hold =
    // channels × (holdMs × rate / 1000) samples, since the filter sees the
    // samples of all channels. Restarts the hold count.
    void ChangeDuckingSettings(float thresholdDb, int holdMs);

    DuckingState GetDuckingState() const;
    double GetThreshold() const;
    int GetHoldSamples() const;
    int GetHoldCounter() const;

    // Long form "DUCKING_OFF", short form "OFF", and so on; "???" for a value
    // that names no state.
    static const char* DuckingStateToString(int state, bool shortForm);

private:
    double fThreshold = 0.0;
    int32_t fHoldSamples = 0;
    int32_t fHoldCounter = 0;
    DuckingState fState = DUCKING_OFF;
};
