#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "engine/devices/AudioFormatConverter.h"
#include "platform/AudioSystem.h"
#include "portable-core/CDplThreadMutex.h"
#include "portable-core/DplBipBuffer.h"

namespace tidemix::engine
{

// What stands between a device stream's thread and the engine's blocks: one
// bip buffer per buffer of the buffered format (per channel when planar), the
// converter that reads them, and the two locks of a device unit.
//
// The data lock guards the buffers and the converter; the device thread and
// the mix's thread hold it for one packet, one block copy or one request's
// conversion, never longer. The control lock serialises opening, closing,
// moving and the volume of the stream; no device or mix thread takes it.
//
// Writes take a packet or block whole into every buffer or drop it, so the
// channels never fall out of step.
class DeviceStreamBridge
{
public:
    static constexpr uint64_t kMaxBufferCount = 64;

    enum class ReadPolicy : uint8_t
    {
        // The converter gets what waits, up to what it asks for (capture).
        kWhatWaits,
        // The converter gets all it asks for or nothing (playback: what
        // isn't filled plays as silence and what waits stays).
        kWholeOrNothing,
    };

    DeviceStreamBridge(ReadPolicy policy, uint32_t blockFrames) : policy_(policy), blockFrames_(blockFrames)
    {
    }
    ~DeviceStreamBridge();
    DeviceStreamBridge(const DeviceStreamBridge&) = delete;
    DeviceStreamBridge& operator=(const DeviceStreamBridge&) = delete;

    CDplThreadMutex& DataLock() { return dataLock_; }
    CDplThreadMutex& ControlLock() { return controlLock_; }

    // The unit's block size. Set under the data lock, so that no block is
    // made or counted half in each size; ErrInvalidParameter outside 1 to
    // kMaxBlockFrameCount. Read on any thread.
    DRAVResult SetBlockFrameCount(int64_t frames);
    uint32_t BlockFrameCount() const { return blockFrames_.load(std::memory_order_relaxed); }

    // A converter whose input is read from these buffers. Any thread; needs
    // no lock, since it only reads the buffers once installed.
    std::unique_ptr<AudioFormatConverter> CreateConverter(const platform::DeviceStreamFormat& input,
                                                          const platform::DeviceStreamFormat& output,
                                                          uint32_t maxOutputFramesPerSlice,
                                                          DRAVResult* result);

    // Control thread, data lock held: buffers of `frames` frames of
    // `format` each and the converter that reads them. False (and nothing
    // held) without memory or for more than kMaxBufferCount buffers.
    bool Open(const platform::DeviceStreamFormat& format, size_t frames,
              std::unique_ptr<AudioFormatConverter> converter);
    // Control thread, data lock held: the converter that replaces the
    // current one; returns the former, to be let go of outside the lock.
    std::unique_ptr<AudioFormatConverter> SwapConverter(std::unique_ptr<AudioFormatConverter> converter);
    // Control thread, data lock held: frees the buffers and the converter.
    // The counters stay.
    void Close();
    bool IsOpen() const { return bufferCount_ != 0; }

    // Device or mix thread, data lock held: `bytes` of each of `count`
    // sources into the buffers, all or none. No allocation, no other lock,
    // no log. False when it doesn't fit (or doesn't match the buffers).
    bool Write(const void* const* sources, uint64_t count, size_t bytes);
    // Device or mix thread, data lock held: renders `frames` output frames
    // through the converter, which reads the buffers. No allocation, no
    // other lock, no log.
    void Render(void* const* targets, uint32_t frames) { converter_->Render(targets, frames); }
    // Device or mix thread, data lock held: the input frames the next Render
    // of `frames` frames takes.
    uint64_t InputFramesForOutput(uint32_t frames) const { return converter_->InputFramesForOutput(frames); }
    // Whole frames waiting in every buffer; data lock held.
    int64_t QueuedFrames() const;

    const platform::DeviceStreamFormat& Format() const { return format_; }
    uint64_t BufferCount() const { return bufferCount_; }
    // Bytes of one frame in one buffer.
    size_t FrameBytes() const { return frameBytes_; }

    // Frames written into and read out of the buffers since ResetCounters.
    int64_t FramesWritten() const { return framesWritten_.load(std::memory_order_relaxed); }
    int64_t FramesRead() const { return framesRead_.load(std::memory_order_relaxed); }
    void ResetCounters();

private:
    // Inside the converter's Render: frames out of the buffers.
    uint32_t Read(void* const* targets, uint32_t frames);

    const ReadPolicy policy_;
    std::atomic<uint32_t> blockFrames_;
    CDplThreadMutex dataLock_;
    CDplThreadMutex controlLock_;
    platform::DeviceStreamFormat format_;
    size_t frameBytes_ = 0;
    std::unique_ptr<AudioFormatConverter> converter_;
    std::array<DplBipBuffer, kMaxBufferCount> buffers_;
    uint64_t bufferCount_ = 0;
    std::atomic<int64_t> framesWritten_{0};
    std::atomic<int64_t> framesRead_{0};
};

}  // namespace tidemix::engine
