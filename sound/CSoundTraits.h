#pragma once

#include <cstdint>

#include "sound/AudioStreamBasicDescription.h"
#include "sound/CSampleType.h"

// The format of a sound stream: sample type, channels and rate. Frames are
// interleaved; a frame is the type's bytes × channels.
class CSoundTraits
{
public:
    CSoundTraits() = default;
    CSoundTraits(const CSampleType& sampleType, int channels, int sampleRate);
    CSoundTraits(const CSoundTraits&) = default;
    CSoundTraits& operator=(const CSoundTraits&) = default;
    virtual ~CSoundTraits();

    virtual void SetSampleType(const CSampleType& sampleType);
    virtual void SetChannels(int channels);
    virtual void SetSampleRate(int sampleRate);

    CSampleType GetSampleType() const { return CSampleType(fSampleType); }
    int GetChannels() const { return fChannels; }
    int GetSampleRate() const { return fSampleRate; }
    // 0 for a type outside the table or a negative channel count.
    int GetFrameSize() const;

    bool operator==(const CSoundTraits& other) const
    {
        return fSampleType == other.fSampleType && fChannels == other.fChannels &&
               fSampleRate == other.fSampleRate;
    }

    AudioStreamBasicDescription ToStreamDesc(bool interleaved) const;
    // Takes type, channels and rate from `desc`. A format other than linear
    // PCM, or one the table lacks, gives type 0; channels and rate are taken
    // in any case (a rate beyond the int range is cut to it, NaN gives 0).
    void FromStreamDesc(const AudioStreamBasicDescription& desc);

protected:
    int32_t fSampleType = 0;
    int32_t fChannels = 0;
    int32_t fSampleRate = 0;
};
