#include "sound/CDplAudioFilter_Level.h"

#include <cmath>

namespace
{
// A fall of 0.01 dB per millisecond; the exponent is 0.01 / 20 as a float.
const double kDefaultDecay = std::pow(10.0, -0.00049999997);
}  // namespace

CDplAudioFilter_Level::CDplAudioFilter_Level(int sampleRate)
    : fSamplesPerMs(sampleRate / 1000), fDecay(kDefaultDecay)
{
}

CDplAudioFilter_Level::~CDplAudioFilter_Level() = default;

void CDplAudioFilter_Level::Reset()
{
    fCounter = 0;
    fLevel = 0.0;
}

double CDplAudioFilter_Level::GetAudioLevel() const
{
    return fLevel;
}

double CDplAudioFilter_Level::GetAudioLevelDecibel() const
{
    return LevelToDecibel(fLevel);
}

void CDplAudioFilter_Level::SetDecreaseDbMs(double dbPerMs)
{
    fDecay = std::pow(10.0, dbPerMs / -20.0);
}

double CDplAudioFilter_Level::GetGainNorm() const
{
    return fGain;
}

void CDplAudioFilter_Level::SetGainNorm(double gain)
{
    if (gain >= 0.0 && gain <= 1.0)
    {
        fGain = gain;
    }
}

double CDplAudioFilter_Level::LevelToDecibel(double level)
{
    if (!(level > 0.0))
    {
        return kMinimumDecibel;
    }
    const double db = 20.0 * std::log10(level);
    return db < kMinimumDecibel ? kMinimumDecibel : db;
}
