#include "sound/CDplAudioFilter_AutoDucking.h"

#include <algorithm>
#include <cmath>

CDplAudioFilter_AutoDucking::CDplAudioFilter_AutoDucking(int windowMs, const CDplAudioFormat& format)
    : CDplAudioFilter_RmsMeasurement(windowMs, format)
{
    ChangeDuckingSettings(kDefaultThresholdDb, kDefaultHoldMs);
}

CDplAudioFilter_AutoDucking::~CDplAudioFilter_AutoDucking() = default;

void CDplAudioFilter_AutoDucking::ChangeDuckingSettings(float thresholdDb, int holdMs)
{
    CDplScopedLock lock(fMutex);
    const double amplitude = std::pow(10.0, static_cast<double>(thresholdDb) / 20.0);
    fThreshold = amplitude * amplitude;
    const int64_t perChannel = int64_t{holdMs} * fFormat.sampleRate / 1000;
    fHoldSamples =
        static_cast<int32_t>(std::clamp<int64_t>(perChannel * fFormat.channels, INT32_MIN, INT32_MAX));
    fHoldCounter = 0;
}

double CDplAudioFilter_AutoDucking::Apply(double x)
{
    CDplScopedLock lock(fMutex);
    CDplAudioFilter_RmsMeasurement::Apply(x);
    const bool loud = MeanSquareLocked() > fThreshold;
    switch (fState)
    {
        case DUCKING_OFF:
            if (loud)
            {
                fState = DUCKING_ON;
            }
            fHoldCounter = 0;
            break;
        case DUCKING_ON:
            if (!loud)
            {
                fState = WAIT_FOR_DUCKING_OFF;
            }
            fHoldCounter = 0;
            break;
        case WAIT_FOR_DUCKING_OFF:
            if (loud)
            {
                fState = DUCKING_ON;
            }
            else if (fHoldCounter >= fHoldSamples)
            {
                fState = DUCKING_OFF;
            }
            else
            {
                ++fHoldCounter;
            }
            break;
        case DUCKING_FADE_OUT:
        case DUCKING_FADE_IN:
            break;
    }
    return x;
}

CDplAudioFilter_AutoDucking::DuckingState CDplAudioFilter_AutoDucking::GetDuckingState() const
{
    CDplScopedLock lock(fMutex);
    return fState;
}

double CDplAudioFilter_AutoDucking::GetThreshold() const
{
    CDplScopedLock lock(fMutex);
    return fThreshold;
}

int CDplAudioFilter_AutoDucking::GetHoldSamples() const
{
    CDplScopedLock lock(fMutex);
    return fHoldSamples;
}

int CDplAudioFilter_AutoDucking::GetHoldCounter() const
{
    CDplScopedLock lock(fMutex);
    return fHoldCounter;
}

const char* CDplAudioFilter_AutoDucking::DuckingStateToString(int state, bool shortForm)
{
    switch (state)
    {
        case DUCKING_OFF:
            return shortForm ? "OFF" : "DUCKING_OFF";
        case DUCKING_FADE_OUT:
            return shortForm ? "FADE OUT" : "DUCKING_FADE_OUT";
        case DUCKING_ON:
            return shortForm ? "ON" : "DUCKING_ON";
        case WAIT_FOR_DUCKING_OFF:
            return shortForm ? "WAIT FOR OFF" : "WAIT_FOR_DUCKING_OFF";
        case DUCKING_FADE_IN:
            return shortForm ? "FADE IN" : "DUCKING_FADE_IN";
        default:
            return "???";
    }
}
