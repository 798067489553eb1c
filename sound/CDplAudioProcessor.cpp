#include "sound/CDplAudioProcessor.h"

#include <cmath>
#include <cstring>
#include <vector>

#include "sound/DplAudioConverters.h"

CDplAudioProcessor::CDplAudioProcessor(CSampleType type, int channels, int sampleRate)
    : fSampleType(type.Value()), fSampleRate(sampleRate), fChannels(channels)
{
    if (channels < 1 || channels > kMaxChannels)
    {
        return;
    }
    std::vector<CCountedPtr<CSampleFunnel::Filter>> perChannel;
    perChannel.reserve(static_cast<size_t>(channels));
    for (int channel = 0; channel < channels; ++channel)
    {
        fLevels[static_cast<size_t>(channel)] = new CDplAudioFilter_Level(sampleRate);
        perChannel.emplace_back(fLevels[static_cast<size_t>(channel)]);
    }
    fInterleaved = new CInterleavedFilter(std::move(perChannel));
    fFunnel = DplAudio_CreateAudioProcessingFilter(type, CCountedPtr<CSampleFunnel::Filter>(fInterleaved));
    fInitialized = fFunnel != nullptr;
}

CDplAudioProcessor::~CDplAudioProcessor() = default;

bool CDplAudioProcessor::GetDecreaseDbPerSecond(double* value) const
{
    CDplScopedLock lock(fMutex);
    if (!fInitialized || value == nullptr)
    {
        return false;
    }
    *value = fDecreaseDbPerSecond;
    return true;
}

bool CDplAudioProcessor::SetDecreaseDbPerSecond(double dbPerSecond)
{
    CDplScopedLock lock(fMutex);
    if (!fInitialized || !(dbPerSecond > 0.0))
    {
        return false;
    }
    fDecreaseDbPerSecond = dbPerSecond;
    for (int channel = 0; channel < fChannels; ++channel)
    {
        fLevels[static_cast<size_t>(channel)]->SetDecreaseDbMs(dbPerSecond / 1000.0);
    }
    return true;
}

double CDplAudioProcessor::GetAudioLevel(int channel) const
{
    CDplScopedLock lock(fMutex);
    if (!fInitialized)
    {
        return 0.0;
    }
    if (channel == kAllChannels)
    {
        double sum = 0.0;
        for (int c = 0; c < fChannels; ++c)
        {
            sum += fLevels[static_cast<size_t>(c)]->GetAudioLevel();
        }
        return sum / fChannels;
    }
    return HasChannel(channel) ? fLevels[static_cast<size_t>(channel)]->GetAudioLevel() : 0.0;
}

double CDplAudioProcessor::GetAudioLevelDecibel(int channel) const
{
    return CDplAudioFilter_Level::LevelToDecibel(GetAudioLevel(channel));
}

bool CDplAudioProcessor::AllGainsAreUnity() const
{
    for (int channel = 0; channel < fChannels; ++channel)
    {
        if (fLevels[static_cast<size_t>(channel)]->GetGainNorm() != 1.0)
        {
            return false;
        }
    }
    return true;
}

void CDplAudioProcessor::MeasureFloat(const uint8_t* samples, int count)
{
    // Each channel's meter sees its own samples in order, so the channels can
    // be walked one after the other; the meter's step inlines here.
    const int start = fInterleaved->GetIndex();
    for (int channel = 0; channel < fChannels; ++channel)
    {
        CDplAudioFilter_Level& level = *fLevels[static_cast<size_t>(channel)];
        for (int i = (channel - start + fChannels) % fChannels; i < count; i += fChannels)
        {
            float s;
            std::memcpy(&s, samples + static_cast<size_t>(i) * sizeof(float), sizeof(s));
            level.Step(static_cast<double>(s));
        }
    }
    fInterleaved->SetIndex((start + count) % fChannels);
}

void CDplAudioProcessor::MeasureAudioLevel(const void* samples, int bytes)
{
    CDplScopedLock lock(fMutex);
    if (!fInitialized || samples == nullptr || bytes <= 0)
    {
        return;
    }
    const int count = bytes / CSampleType(fSampleType).GetSize();
    if (AllGainsAreUnity())
    {
        // Nothing would change, and the caller's buffer may be shared with
        // readers: leave it untouched.
        if (fSampleType == CSampleType::kFloat32)
        {
            MeasureFloat(static_cast<const uint8_t*>(samples), count);
        }
        else
        {
            fFunnel->ObserveBuffer(samples, count);
        }
        return;
    }
    // The gains scale the caller's samples in place.
    fFunnel->FunnelBuffer(const_cast<void*>(samples), samples, count);
}

double CDplAudioProcessor::GetGainNorm(int channel) const
{
    CDplScopedLock lock(fMutex);
    return HasChannel(channel) ? fLevels[static_cast<size_t>(channel)]->GetGainNorm() : 0.0;
}

double CDplAudioProcessor::GetGainDB(int channel) const
{
    CDplScopedLock lock(fMutex);
    if (!HasChannel(channel))
    {
        return 0.0;
    }
    return CDplAudioFilter_Level::LevelToDecibel(fLevels[static_cast<size_t>(channel)]->GetGainNorm());
}

bool CDplAudioProcessor::SetGainNorm(double gain, int channel)
{
    CDplScopedLock lock(fMutex);
    if (!fInitialized || !(gain >= 0.0 && gain <= 1.0))
    {
        return false;
    }
    if (channel == kAllChannels)
    {
        for (int c = 0; c < fChannels; ++c)
        {
            fLevels[static_cast<size_t>(c)]->SetGainNorm(gain);
        }
        return true;
    }
    if (!HasChannel(channel))
    {
        return false;
    }
    fLevels[static_cast<size_t>(channel)]->SetGainNorm(gain);
    return true;
}

bool CDplAudioProcessor::SetGainDB(double db, int channel)
{
    return SetGainNorm(std::pow(10.0, db / 20.0), channel);
}

void CDplAudioProcessor::Reset()
{
    CDplScopedLock lock(fMutex);
    if (!fInitialized)
    {
        return;
    }
    for (int channel = 0; channel < fChannels; ++channel)
    {
        fLevels[static_cast<size_t>(channel)]->Reset();
    }
    fInterleaved->ResetIndex();
}
