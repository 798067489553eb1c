#include "engine/media/DRAVAudioFormat.h"

#include <cstdio>
#include <limits>

namespace
{
constexpr __int128 kMicrosecondsPerSecond = 1000000;

int64_t ClampToInt64(__int128 value)
{
    if (value > std::numeric_limits<int64_t>::max())
    {
        return std::numeric_limits<int64_t>::max();
    }
    if (value < std::numeric_limits<int64_t>::min())
    {
        return std::numeric_limits<int64_t>::min();
    }
    return static_cast<int64_t>(value);
}

// Quotient rounded toward positive infinity, for a positive divisor.
__int128 CeilDivide(__int128 numerator, __int128 divisor)
{
    __int128 quotient = numerator / divisor;
    if (numerator % divisor != 0 && numerator > 0)
    {
        ++quotient;
    }
    return quotient;
}
}  // namespace

const char* DRAVMediaTypeString(int32_t mediaType)
{
    switch (mediaType)
    {
        case kDRAVMediaTypeVideo:
            return "Video";
        case kDRAVMediaTypeAudio:
            return "Audio";
        case kDRAVMediaTypeData:
            return "Data";
        default:
            return "[INVALID]";
    }
}

bool DRAVAudioFormat::IsMediaFormat(std::shared_ptr<DRAVMediaFormat> other) const
{
    const auto* audio = dynamic_cast<const DRAVAudioFormat*>(other.get());
    return audio != nullptr && IsSameFormat(*audio);
}

bool DRAVAudioFormat::IsSameFormat(const DRAVAudioFormat& other) const
{
    return sampleRate_ == other.sampleRate_ && numChannels_ == other.numChannels_ &&
           sampleType_ == other.sampleType_;
}

// Integer arithmetic keeps exact results where a double product like
// 10000 * 0.0441 would land a hair above a whole frame and round up.
int64_t DRAVAudioFormat::GetFramesFromDuration(DRAVDuration duration) const
{
    const __int128 product = static_cast<__int128>(duration.Get()) * sampleRate_;
    return ClampToInt64(CeilDivide(product, kMicrosecondsPerSecond));
}

int64_t DRAVAudioFormat::GetSizeFromDuration(DRAVDuration duration) const
{
    const __int128 size = static_cast<__int128>(GetFramesFromDuration(duration)) * GetBytesPerFrame();
    return ClampToInt64(size);
}

DRAVDuration DRAVAudioFormat::GetDurationFromSize(int64_t bytes) const
{
    const int64_t bytesPerFrame = GetBytesPerFrame();
    if (bytesPerFrame <= 0 || sampleRate_ == 0)
    {
        return DRAVDuration(0);
    }
    const __int128 scaled = static_cast<__int128>(bytes) * kMicrosecondsPerSecond / bytesPerFrame;
    return DRAVDuration(ClampToInt64(scaled / sampleRate_));
}

DRAVDuration DRAVAudioFormat::GetDurationFromFrames(int64_t frames) const
{
    if (sampleRate_ == 0)
    {
        return DRAVDuration(0);
    }
    return DRAVDuration(ClampToInt64(static_cast<__int128>(frames) * kMicrosecondsPerSecond / sampleRate_));
}

std::string DRAVAudioFormat::ToString() const
{
    char text[128];
    snprintf(text, sizeof(text), "%u Hz, %u ch, type %d (%u bits), mask 0x%x", sampleRate_, numChannels_,
             static_cast<int>(sampleType_), GetBitsPerSample(), channelMask_);
    return text;
}
