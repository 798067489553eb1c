#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "engine/media/DRAVMediaFormat.h"
#include "portable-core/DRAVResult.h"
#include "portable-core/DRAVTime.h"

// Sample encodings of audio frames. Any other value counts 0 bits per sample.
enum DRAVAudioSampleType : int32_t
{
    kDRAVAudioSampleTypeUnknown = 0,
    kDRAVAudioSampleTypeInt16 = 1,
    kDRAVAudioSampleTypeFloat = 2,
};

// Bits of one sample: 16, 32, or 0 for an unknown type.
constexpr uint32_t DRAVAudioSampleTypeBits(DRAVAudioSampleType type)
{
    return type == kDRAVAudioSampleTypeInt16 ? 16u : (type == kDRAVAudioSampleTypeFloat ? 32u : 0u);
}

// The sound library's sample type code for an engine sample type: 2 for
// 16-bit integer, 6 for float, 0 for anything else.
constexpr int32_t MapSampleType(DRAVAudioSampleType type)
{
    return type == kDRAVAudioSampleTypeInt16 ? 2 : (type == kDRAVAudioSampleTypeFloat ? 6 : 0);
}

// Interleaved PCM audio: rate, channels, channel mask and sample type.
class DRAVAudioFormat : public DRAVMediaFormat
{
public:
    constexpr DRAVAudioFormat() = default;
    constexpr DRAVAudioFormat(uint32_t sampleRate, uint32_t numChannels, DRAVAudioSampleType sampleType,
                              uint32_t channelMask, bool flag = false)
        : sampleRate_(sampleRate),
          numChannels_(numChannels),
          channelMask_(channelMask),
          sampleType_(sampleType),
          flag_(flag)
    {
    }

    // Same rate, channels and sample type; mask and flag do not count.
    bool IsMediaFormat(std::shared_ptr<DRAVMediaFormat> other) const override;
    bool IsSameFormat(const DRAVAudioFormat& other) const;

    uint32_t GetSampleRate() const { return sampleRate_; }
    uint32_t GetNumChannels() const { return numChannels_; }
    uint32_t GetChannelMask() const { return channelMask_; }
    DRAVAudioSampleType GetSampleType() const { return sampleType_; }
    bool GetFlag() const { return flag_; }

    void SetSampleRate(uint32_t sampleRate) { sampleRate_ = sampleRate; }
    void SetNumChannels(uint32_t numChannels) { numChannels_ = numChannels; }
    void SetChannelMask(uint32_t channelMask) { channelMask_ = channelMask; }
    void SetSampleType(DRAVAudioSampleType sampleType) { sampleType_ = sampleType; }
    void SetFlag(bool flag) { flag_ = flag; }

    uint32_t GetBitsPerSample() const { return DRAVAudioSampleTypeBits(sampleType_); }
    // One sample of every channel.
    int64_t GetBytesPerFrame() const { return int64_t{GetBitsPerSample()} * numChannels_ / 8; }

    // Frames covering `duration`, rounded up: a partial frame counts whole.
    int64_t GetFramesFromDuration(DRAVDuration duration) const;
    // Bytes of the frames covering `duration`.
    int64_t GetSizeFromDuration(DRAVDuration duration) const;
    // Duration of `bytes`, truncated to whole microseconds; 0 for a format
    // without rate or frame size.
    DRAVDuration GetDurationFromSize(int64_t bytes) const;
    // Duration of `frames`, truncated; 0 without a rate.
    DRAVDuration GetDurationFromFrames(int64_t frames) const;

    std::string ToString() const;

private:
    uint32_t sampleRate_ = 0;
    uint32_t numChannels_ = 0;
    uint32_t channelMask_ = 0;
    DRAVAudioSampleType sampleType_ = kDRAVAudioSampleTypeUnknown;
    bool flag_ = false;
};

inline constinit const DRAVAudioFormat kDefaultAudioFormatInt{48000, 2, kDRAVAudioSampleTypeInt16, 0};
inline constinit const DRAVAudioFormat kDefaultAudioFormatFloat{48000, 2, kDRAVAudioSampleTypeFloat, 0};
