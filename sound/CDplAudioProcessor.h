#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "portable-core/CCountedObject.h"
#include "portable-core/CDplThreadMutex.h"
#include "sound/CDplAudioFilter_Level.h"
#include "sound/CInterleavedFilter.h"
#include "sound/CSampleFilterFunnel.h"
#include "sound/CSampleType.h"

// A peak meter for each channel of an interleaved stream, with a gain for
// each. One audio thread measures, control threads read and set; every
// operation takes the processor's mutex, so a reader waits at most for one
// block's pass. Built with a channel count outside 1 to 8, or a sample type
// that cannot be filtered (only 1, 2, 5, 6, 7 can), it stays uninitialised
// and every operation returns 0, false or nothing.
class CDplAudioProcessor
{
public:
    static constexpr int kMaxChannels = 8;
    static constexpr int kAllChannels = -1;

    CDplAudioProcessor(CSampleType type, int channels, int sampleRate);
    virtual ~CDplAudioProcessor();
    CDplAudioProcessor(const CDplAudioProcessor&) = delete;
    CDplAudioProcessor& operator=(const CDplAudioProcessor&) = delete;

    // The fall of the reading in dB per second (10 until set). False only
    // when uninitialised or `value` is null.
    virtual bool GetDecreaseDbPerSecond(double* value) const;
    // False unless `dbPerSecond` > 0 and the processor is initialised.
    virtual bool SetDecreaseDbPerSecond(double dbPerSecond);
    // The peak reading of `channel` (0 to 7), or the average of all channels
    // for -1. 0 for a channel that doesn't exist.
    virtual double GetAudioLevel(int channel) const;
    // The same in dB, -144 for silence and never below it.
    virtual double GetAudioLevelDecibel(int channel) const;
    // Measures `bytes` of interleaved samples. When a channel gain is below
    // 1 the samples are scaled in place by their channel's gain (the buffer
    // must then be writable); with all gains at 1 the buffer is only read.
    // Null data does nothing.
    virtual void MeasureAudioLevel(const void* samples, int bytes);
    // The gain of one channel (0 below the channel count); 0 otherwise.
    virtual double GetGainNorm(int channel) const;
    virtual double GetGainDB(int channel) const;
    // Sets the gain of `channel`, or of all for -1. False when the channel
    // doesn't exist or the gain lies outside 0 to 1 (then nothing changes).
    virtual bool SetGainNorm(double gain, int channel);
    virtual bool SetGainDB(double db, int channel);
    // Readings back to 0; the next sample goes to channel 0.
    virtual void Reset();

    bool IsInitialized() const { return fInitialized; }
    CSampleType GetSampleType() const { return CSampleType(fSampleType); }
    int GetChannels() const { return fChannels; }
    int GetSampleRate() const { return fSampleRate; }

private:
    bool HasChannel(int channel) const { return fInitialized && channel >= 0 && channel < fChannels; }
    bool AllGainsAreUnity() const;
    void MeasureFloat(const uint8_t* samples, int count);

    int32_t fSampleType;
    int32_t fSampleRate;
    int32_t fChannels;
    double fDecreaseDbPerSecond = 10.0;
    bool fInitialized = false;
    std::unique_ptr<CSampleFilterFunnel> fFunnel;
    std::array<CCountedPtr<CDplAudioFilter_Level>, kMaxChannels> fLevels;
    CCountedPtr<CInterleavedFilter> fInterleaved;
    mutable CDplThreadMutex fMutex;
};
