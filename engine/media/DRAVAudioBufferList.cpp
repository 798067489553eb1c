#include "engine/media/DRAVAudioBufferList.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "engine/media/DRAVAudioFormat.h"

namespace
{
constexpr size_t kBufferAlignment = 64;

size_t ListBytes(uint32_t bufferCount)
{
    // The record declares one buffer; room for at least that one.
    const uint32_t room = bufferCount == 0 ? 1 : bufferCount;
    return offsetof(AudioBufferList, mBuffers) + static_cast<size_t>(room) * sizeof(AudioBuffer);
}
}  // namespace

AudioBufferList* AllocateAudioBufferList(AudioStreamBasicDescription asbd, uint32_t frames, bool allocate)
{
    const uint32_t channels = asbd.mChannelsPerFrame;
    const bool planar = (asbd.mFormatFlags & kAudioFormatFlagIsNonInterleaved) != 0;
    const uint32_t bufferCount = planar ? channels : (channels == 0 ? 0 : 1);
    const uint32_t channelsPerBuffer = planar ? 1 : channels;
    // An interleaved buffer takes frames x channels x bytes per frame: more
    // than a packed frame needs, which the units rely on as headroom.
    const uint64_t bytes = static_cast<uint64_t>(frames) * channelsPerBuffer * asbd.mBytesPerFrame;
    if (bytes > std::numeric_limits<uint32_t>::max())
    {
        return nullptr;
    }
    if (channels >
        (std::numeric_limits<uint32_t>::max() - offsetof(AudioBufferList, mBuffers)) / sizeof(AudioBuffer))
    {
        return nullptr;
    }
    auto* list = static_cast<AudioBufferList*>(std::calloc(1, ListBytes(channels)));
    if (list == nullptr)
    {
        return nullptr;
    }
    list->mNumberBuffers = bufferCount;
    for (uint32_t i = 0; i < bufferCount; ++i)
    {
        AudioBuffer& buffer = list->mBuffers[i];
        buffer.mNumberChannels = channelsPerBuffer;
        buffer.mDataByteSize = static_cast<uint32_t>(bytes);
        buffer.mData = nullptr;
        if (allocate && bytes > 0)
        {
            const size_t rounded =
                (static_cast<size_t>(bytes) + kBufferAlignment - 1) / kBufferAlignment * kBufferAlignment;
            buffer.mData = std::aligned_alloc(kBufferAlignment, rounded);
            if (buffer.mData == nullptr)
            {
                DestroyAudioBufferList(&list);
                return nullptr;
            }
            std::memset(buffer.mData, 0, rounded);
        }
    }
    return list;
}

void DestroyAudioBufferList(AudioBufferList** list)
{
    if (list == nullptr || *list == nullptr)
    {
        return;
    }
    AudioBufferList* doomed = *list;
    for (uint32_t i = 0; i < doomed->mNumberBuffers; ++i)
    {
        std::free(doomed->mBuffers[i].mData);  // null for buffers that got none
    }
    std::free(doomed);
    *list = nullptr;
}

AudioStreamBasicDescription ASBDForLinearPCM(double sampleRate, uint32_t channels, bool isFloat, bool planar)
{
    AudioStreamBasicDescription asbd;
    asbd.mSampleRate = sampleRate;
    asbd.mFormatID = kAudioFormatLinearPCM;
    asbd.mFramesPerPacket = 1;
    asbd.mChannelsPerFrame = channels;
    asbd.mBitsPerChannel = isFloat ? 32 : 16;
    asbd.mReserved = 0;
    asbd.mFormatFlags = isFloat ? (kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked)
                                : (kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked);
    if (planar)
    {
        asbd.mFormatFlags |= kAudioFormatFlagIsNonInterleaved;
        asbd.mBytesPerFrame = asbd.mBitsPerChannel / 8;
    }
    else
    {
        asbd.mBytesPerFrame = asbd.mBitsPerChannel * channels / 8;
    }
    asbd.mBytesPerPacket = asbd.mBytesPerFrame;
    return asbd;
}

AudioStreamBasicDescription ASBDFromAudioFormat(const DRAVAudioFormat& format)
{
    return ASBDForLinearPCM(format.GetSampleRate(), format.GetNumChannels(),
                            format.GetSampleType() == kDRAVAudioSampleTypeFloat, format.GetFlag());
}

AudioStreamBasicDescription ASBDFromAudioFormatPtr(const std::shared_ptr<DRAVAudioFormat>& format)
{
    return format ? ASBDFromAudioFormat(*format) : AudioStreamBasicDescription();
}
