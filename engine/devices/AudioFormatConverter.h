#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>

#include "engine/devices/StereoResampler.h"
#include "engine/media/AlignedSampleBuffer.h"
#include "platform/AudioSystem.h"
#include "portable-core/DRAVResult.h"

namespace tidemix::engine
{

// Converts a stream from one device format to another at the fixed ratio of
// their rates, pulling its input through a callback. One side is normally the
// mix's format (48000 Hz stereo planar float, see MixFormat()) and the other a
// device's: a capture source renders one mix block and the converter pulls
// the device frames it needs; a playback device asks for its packet and the
// converter pulls mix frames.
//
// Channels go through two planar float channels (see DeviceSampleCodec for
// the mapping). Equal rates skip the resampler, so float stereo planar at
// equal rates passes bit for bit.
//
// Input is scheduled so that after any number of renders the input pulled is
// exactly ceil(outputFramesRendered x inputRate / outputRate): the frame
// counts never drift. The resampler's filter adds a short fixed delay (a few
// dozen frames of silence at the start).
//
// Render and the callback run on one thread and neither allocates nor locks.
class AudioFormatConverter
{
public:
    // Fill `frames` frames of the input format into `buffers` (one per channel
    // when planar, else one) and return how many frames were filled; frames
    // not filled are taken as silence.
    using InputCallback = std::function<uint32_t(void* const* buffers, uint32_t frames)>;

    static constexpr uint32_t kMaxChannels = 64;
    static constexpr uint32_t kMinRate = 1000;
    static constexpr uint32_t kMaxRate = 768000;

    static platform::DeviceStreamFormat MixFormat();

    // maxOutputFramesPerSlice: a longer Render is done in several slices, each
    // one callback. Refuses (null, `result` says why) rates outside kMinRate to
    // kMaxRate, 0 or more than kMaxChannels channels, a slice of 0 frames and a
    // null callback.
    static std::unique_ptr<AudioFormatConverter> Create(const platform::DeviceStreamFormat& input,
                                                        const platform::DeviceStreamFormat& output,
                                                        uint32_t maxOutputFramesPerSlice,
                                                        InputCallback callback, DRAVResult* result = nullptr);

    AudioFormatConverter(const AudioFormatConverter&) = delete;
    AudioFormatConverter& operator=(const AudioFormatConverter&) = delete;

    // Writes exactly `frames` output frames into `buffers` (output format).
    // On a device thread or the mix's thread, the callback inside it: no
    // allocation, no lock, no log.
    void Render(void* const* buffers, uint32_t frames);

    // The input frames the next Render of `frames` frames will pull.
    uint64_t InputFramesForOutput(uint32_t frames) const;

    // Forgets the resampler's state and the counters, as after Create.
    void Reset();

    const platform::DeviceStreamFormat& InputFormat() const { return input_; }
    const platform::DeviceStreamFormat& OutputFormat() const { return output_; }
    bool Resamples() const { return resampler_ != nullptr; }
    uint64_t InputFramesPulled() const { return inputPulled_; }
    uint64_t OutputFramesRendered() const { return outputRendered_; }
    // Output frames the resampler couldn't supply in time, played as silence.
    uint64_t ShortFrames() const { return shortFrames_; }

private:
    AudioFormatConverter(const platform::DeviceStreamFormat& input,
                         const platform::DeviceStreamFormat& output, uint32_t maxOutputFrames,
                         InputCallback callback);
    void RenderSlice(void* const* buffers, uint32_t outputOffset, uint32_t frames);
    uint32_t PullInput(uint32_t frames);

    platform::DeviceStreamFormat input_;
    platform::DeviceStreamFormat output_;
    uint32_t maxOutputFrames_;
    uint32_t maxInputFrames_;
    InputCallback callback_;
    std::unique_ptr<StereoResampler> resampler_;

    // Rates divided by their greatest common divisor; the schedule counters
    // are kept below one period of the ratio so they never overflow.
    uint64_t inputRateUnits_;
    uint64_t outputRateUnits_;
    uint64_t scheduleInput_ = 0;
    uint64_t scheduleOutput_ = 0;

    uint64_t inputPulled_ = 0;
    uint64_t outputRendered_ = 0;
    uint64_t shortFrames_ = 0;

    AlignedSampleBuffer<uint8_t> inputStorage_;  // input format, per buffer
    std::array<void*, kMaxChannels> inputBuffers_{};
    std::array<void*, kMaxChannels> outputCursor_{};
    AlignedSampleBuffer<float> inputLeft_, inputRight_;    // at the input rate
    AlignedSampleBuffer<float> outputLeft_, outputRight_;  // at the output rate
};

}  // namespace tidemix::engine
