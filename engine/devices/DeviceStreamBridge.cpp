#include "engine/devices/DeviceStreamBridge.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "engine/media/DRAVBlockFrameCount.h"

namespace tidemix::engine
{

DeviceStreamBridge::~DeviceStreamBridge()
{
    CDplScopedLock guard(dataLock_);
    Close();
}

DRAVResult DeviceStreamBridge::SetBlockFrameCount(int64_t frames)
{
    DRAVResult refused = DRAVCheckBlockFrameCount(frames);
    if (!refused.Succeeded())
    {
        return refused;
    }
    CDplScopedLock guard(dataLock_);
    blockFrames_.store(static_cast<uint32_t>(frames), std::memory_order_relaxed);
    return DRAVResult(kDRAVResultOk);
}

std::unique_ptr<AudioFormatConverter> DeviceStreamBridge::CreateConverter(
    const platform::DeviceStreamFormat& input, const platform::DeviceStreamFormat& output,
    uint32_t maxOutputFramesPerSlice, DRAVResult* result)
{
    return AudioFormatConverter::Create(
        input, output, maxOutputFramesPerSlice,
        [this](void* const* targets, uint32_t frames) { return Read(targets, frames); }, result);
}

bool DeviceStreamBridge::Open(const platform::DeviceStreamFormat& format, size_t frames,
                              std::unique_ptr<AudioFormatConverter> converter)
{
    Close();
    if (format.BufferCount() == 0 || format.BufferCount() > kMaxBufferCount || !converter)
    {
        return false;
    }
    format_ = format;
    frameBytes_ = size_t{format.BytesPerSample()} * (format.interleaved ? format.channels : 1);
    bufferCount_ = format.BufferCount();
    for (uint64_t i = 0; i < bufferCount_; ++i)
    {
        if (!buffers_[i].allocate(frames * frameBytes_))
        {
            Close();
            return false;
        }
    }
    converter_ = std::move(converter);
    return true;
}

std::unique_ptr<AudioFormatConverter> DeviceStreamBridge::SwapConverter(
    std::unique_ptr<AudioFormatConverter> converter)
{
    std::swap(converter_, converter);
    return converter;
}

void DeviceStreamBridge::Close()
{
    converter_.reset();
    for (uint64_t i = 0; i < bufferCount_; ++i)
    {
        buffers_[i].deallocate();
    }
    bufferCount_ = 0;
}

void DeviceStreamBridge::ResetCounters()
{
    framesWritten_.store(0, std::memory_order_relaxed);
    framesRead_.store(0, std::memory_order_relaxed);
}

bool DeviceStreamBridge::Write(const void* const* sources, uint64_t count, size_t bytes)
{
    bool fits = count == bufferCount_ && sources != nullptr && bufferCount_ != 0;
    std::array<void*, kMaxBufferCount> targets{};
    for (uint64_t i = 0; fits && i < bufferCount_; ++i)
    {
        size_t reserved = 0;
        targets[i] = buffers_[i].reserve(bytes, reserved);
        fits = targets[i] != nullptr && reserved >= bytes && sources[i] != nullptr;
    }
    if (!fits)
    {
        for (uint64_t i = 0; i < bufferCount_; ++i)
        {
            buffers_[i].commit(0);
        }
        return false;
    }
    for (uint64_t i = 0; i < bufferCount_; ++i)
    {
        std::memcpy(targets[i], sources[i], bytes);
        buffers_[i].commit(bytes);
    }
    framesWritten_.fetch_add(static_cast<int64_t>(bytes / frameBytes_), std::memory_order_relaxed);
    return true;
}

int64_t DeviceStreamBridge::QueuedFrames() const
{
    if (bufferCount_ == 0)
    {
        return 0;
    }
    // Writes and reads move every buffer alike: the first speaks for all.
    return static_cast<int64_t>(buffers_[0].getCommittedSize() / frameBytes_);
}

uint32_t DeviceStreamBridge::Read(void* const* targets, uint32_t frames)
{
    if (bufferCount_ == 0)
    {
        return 0;
    }
    const size_t waiting = static_cast<size_t>(QueuedFrames());
    if (policy_ == ReadPolicy::kWholeOrNothing && waiting < frames)
    {
        return 0;
    }
    const size_t available = std::min<size_t>(frames, waiting);
    const size_t bytes = available * frameBytes_;
    for (uint64_t i = 0; i < bufferCount_; ++i)
    {
        auto* target = static_cast<uint8_t*>(targets[i]);
        size_t copied = 0;
        // Two rounds at most: the data may wrap once.
        while (copied < bytes)
        {
            size_t size = 0;
            void* block = buffers_[i].getContiguousBlock(size);
            if (block == nullptr || size == 0)
            {
                std::memset(target + copied, 0, bytes - copied);
                break;
            }
            const size_t take = std::min(size, bytes - copied);
            std::memcpy(target + copied, block, take);
            buffers_[i].decommitBlock(take);
            copied += take;
        }
    }
    framesRead_.fetch_add(static_cast<int64_t>(available), std::memory_order_relaxed);
    return static_cast<uint32_t>(available);
}

}  // namespace tidemix::engine
