#include "sound/CSoundTraits.h"

#include <cstdint>

CSoundTraits::CSoundTraits(const CSampleType& sampleType, int channels, int sampleRate)
    : fSampleType(sampleType.Value()), fChannels(channels), fSampleRate(sampleRate)
{
}

CSoundTraits::~CSoundTraits() = default;

void CSoundTraits::SetSampleType(const CSampleType& sampleType)
{
    fSampleType = sampleType.Value();
}

void CSoundTraits::SetChannels(int channels)
{
    fChannels = channels;
}

void CSoundTraits::SetSampleRate(int sampleRate)
{
    fSampleRate = sampleRate;
}

int CSoundTraits::GetFrameSize() const
{
    if (fChannels <= 0)
    {
        return 0;
    }
    const int64_t size = int64_t{CSampleType(fSampleType).GetSize()} * fChannels;
    return size > INT32_MAX ? 0 : static_cast<int>(size);
}

AudioStreamBasicDescription CSoundTraits::ToStreamDesc(bool interleaved) const
{
    const CSampleType type(fSampleType);
    const uint32_t bytes = static_cast<uint32_t>(type.GetSize());
    const uint32_t storageBits = bytes * 8;
    const uint32_t contentBits = static_cast<uint32_t>(type.GetContentBits());
    const uint32_t channels = fChannels > 0 ? static_cast<uint32_t>(fChannels) : 0u;

    uint32_t flags = 0;
    if (type.IsFloating())
    {
        flags |= kAudioFormatFlagIsFloat;
    }
    if (type.GetEndianity() == CSampleType::kEndianitySwapped)
    {
        flags |= kAudioFormatFlagIsBigEndian;
    }
    if (!type.IsFloating() && !type.IsUnsigned())
    {
        flags |= kAudioFormatFlagIsSignedInteger;
    }
    if (contentBits == storageBits)
    {
        flags |= kAudioFormatFlagIsPacked;
    }
    else
    {
        flags |= (contentBits << kLinearPCMFormatFlagsSampleFractionShift) &
                 kLinearPCMFormatFlagsSampleFractionMask;
    }
    if (!interleaved)
    {
        flags |= kAudioFormatFlagIsNonInterleaved;
    }

    AudioStreamBasicDescription desc;
    desc.mSampleRate = fSampleRate;
    desc.mFormatID = kAudioFormatLinearPCM;
    desc.mFormatFlags = flags;
    desc.mFramesPerPacket = 1;
    desc.mChannelsPerFrame = channels;
    desc.mBitsPerChannel = storageBits;
    desc.mBytesPerFrame = interleaved ? bytes * channels : bytes;
    desc.mBytesPerPacket = desc.mBytesPerFrame;
    return desc;
}

namespace
{
int32_t RateToInt(double rate)
{
    if (!(rate == rate))
    {
        return 0;
    }
    if (rate >= 2147483647.0)
    {
        return INT32_MAX;
    }
    if (rate <= -2147483648.0)
    {
        return INT32_MIN;
    }
    return static_cast<int32_t>(rate);
}

int32_t CountToInt(uint32_t count)
{
    return count > static_cast<uint32_t>(INT32_MAX) ? INT32_MAX : static_cast<int32_t>(count);
}
}  // namespace

void CSoundTraits::FromStreamDesc(const AudioStreamBasicDescription& desc)
{
    SetChannels(CountToInt(desc.mChannelsPerFrame));
    SetSampleRate(RateToInt(desc.mSampleRate));
    if (desc.mFormatID != kAudioFormatLinearPCM)
    {
        SetSampleType(CSampleType(CSampleType::kUnknown));
        return;
    }
    uint32_t bits = desc.mBitsPerChannel;
    if (bits == 0 && desc.mChannelsPerFrame != 0)
    {
        bits = desc.mBytesPerFrame / desc.mChannelsPerFrame * 8;
    }
    const uint32_t flags = desc.mFormatFlags;
    const bool floating = (flags & kAudioFormatFlagIsFloat) != 0;
    const bool isUnsigned = !floating && (flags & kAudioFormatFlagIsSignedInteger) == 0;
    const CSampleType::Endianity endianity = (flags & kAudioFormatFlagIsBigEndian) != 0
                                                 ? CSampleType::kEndianitySwapped
                                                 : CSampleType::kEndianityNative;
    int contentBits = -1;
    if ((flags & kAudioFormatFlagIsPacked) == 0)
    {
        const uint32_t fraction =
            (flags & kLinearPCMFormatFlagsSampleFractionMask) >> kLinearPCMFormatFlagsSampleFractionShift;
        if (fraction != 0)
        {
            contentBits = static_cast<int>(fraction);
        }
    }
    const int bitsAsInt = bits > 64 ? 0 : static_cast<int>(bits);
    SetSampleType(CSampleType::Parametrized(bitsAsInt, floating, endianity, isUnsigned, contentBits));
}
