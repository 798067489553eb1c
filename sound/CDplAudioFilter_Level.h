#pragma once

#include <cstdint>

#include "sound/CSampleFunnel.h"

// A peak meter for one channel: the reading rises at once to a louder sample
// and falls by a fixed factor once a millisecond while the samples stay
// below it (10 dB a second unless told otherwise). The meter reads after its
// gain, and Apply returns the sample times the gain. Belongs to one stream;
// CDplAudioProcessor guards it with its own mutex.
class CDplAudioFilter_Level final : public CSampleFunnel::Filter
{
public:
    // The reading in decibels never goes below this; it is also the reading
    // of silence.
    static constexpr double kMinimumDecibel = -144.0;

    explicit CDplAudioFilter_Level(int sampleRate);
    ~CDplAudioFilter_Level() override;

    double Apply(double x) override { return Step(x); }
    virtual void Reset();
    virtual double GetAudioLevel() const;
    virtual double GetAudioLevelDecibel() const;
    // decay per millisecond = 10^(dbPerMs / -20)
    virtual void SetDecreaseDbMs(double dbPerMs);
    virtual double GetGainNorm() const;
    // Ignored unless 0 <= gain <= 1.
    virtual void SetGainNorm(double gain);

    int GetSamplesPerMillisecond() const { return fSamplesPerMs; }
    int GetCounter() const { return fCounter; }
    double GetDecay() const { return fDecay; }

    // 20 × log10(level), not below kMinimumDecibel; a level that isn't above
    // 0 (silence, or NaN) reads kMinimumDecibel.
    static double LevelToDecibel(double level);

    // The body of Apply, inline for callers that know the concrete type.
    double Step(double x)
    {
        const double y = x * fGain;
        const double v = y < 0.0 ? -y : y;
        // Selects rather than branches: a signal's peaks come at no steady
        // rhythm, and a mispredicted jump costs more than the compare.
        if (fCounter < fSamplesPerMs)
        {
            ++fCounter;
            fLevel = v > fLevel ? v : fLevel;
        }
        else
        {
            fCounter = 0;
            fLevel = fLevel > v ? fLevel * fDecay : v;
        }
        return y;
    }

private:
    int32_t fSamplesPerMs;
    int32_t fCounter = 0;
    double fLevel = 0.0;
    double fDecay;
    double fGain = 1.0;
};
