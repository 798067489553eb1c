#include "engine/devices/AudioFormatConverter.h"

#include <algorithm>
#include <cstring>
#include <numeric>

#include "engine/devices/DeviceSampleCodec.h"

namespace tidemix::engine
{
namespace
{

using platform::DeviceStreamFormat;
using platform::SampleEncoding;

constexpr size_t kLine = 64;

size_t RoundToLine(size_t bytes)
{
    return (bytes + kLine - 1) / kLine * kLine;
}

DRAVResult CheckFormat(const DeviceStreamFormat& format, const char* side)
{
    if (format.sampleRate < AudioFormatConverter::kMinRate ||
        format.sampleRate > AudioFormatConverter::kMaxRate)
        return DRAVResult(kDRAVResultErrInvalidFormat, "%s rate %u Hz", side, format.sampleRate);
    if (format.channels == 0 || format.channels > AudioFormatConverter::kMaxChannels)
        return DRAVResult(kDRAVResultErrInvalidFormat, "%s has %u channels", side, format.channels);
    if (format.encoding != SampleEncoding::Float32 && format.encoding != SampleEncoding::Int16)
        return DRAVResult(kDRAVResultErrInvalidFormat, "%s sample encoding", side);
    return kDRAVResultOk;
}

}  // namespace

DeviceStreamFormat AudioFormatConverter::MixFormat()
{
    DeviceStreamFormat format;
    format.sampleRate = 48000;
    format.channels = 2;
    format.encoding = SampleEncoding::Float32;
    format.interleaved = false;
    return format;
}

std::unique_ptr<AudioFormatConverter> AudioFormatConverter::Create(const DeviceStreamFormat& input,
                                                                   const DeviceStreamFormat& output,
                                                                   uint32_t maxOutputFramesPerSlice,
                                                                   InputCallback callback, DRAVResult* result)
{
    DRAVResult check = CheckFormat(input, "input");
    if (check.Succeeded())
        check = CheckFormat(output, "output");
    if (check.Succeeded() && maxOutputFramesPerSlice == 0)
        check = DRAVResult(kDRAVResultErrInvalidParameter, "a slice of 0 frames");
    if (check.Succeeded() && !callback)
        check = DRAVResult(kDRAVResultErrNullPointer, "no input callback");

    std::unique_ptr<AudioFormatConverter> converter;
    if (check.Succeeded())
    {
        converter.reset(
            new AudioFormatConverter(input, output, maxOutputFramesPerSlice, std::move(callback)));
        if (input.sampleRate != output.sampleRate)
        {
            converter->resampler_ = StereoResampler::Create(
                input.sampleRate, output.sampleRate, converter->maxInputFrames_, maxOutputFramesPerSlice);
            if (!converter->resampler_)
            {
                check = DRAVResult(kDRAVResultErrConversionFailed, "no resampler from %u to %u Hz",
                                   input.sampleRate, output.sampleRate);
                converter.reset();
            }
        }
    }
    if (result != nullptr)
        *result = check;
    return converter;
}

AudioFormatConverter::AudioFormatConverter(const DeviceStreamFormat& input, const DeviceStreamFormat& output,
                                           uint32_t maxOutputFrames, InputCallback callback)
    : input_(input), output_(output), maxOutputFrames_(maxOutputFrames), callback_(std::move(callback))
{
    const uint64_t divisor = std::gcd(input.sampleRate, output.sampleRate);
    inputRateUnits_ = input.sampleRate / divisor;
    outputRateUnits_ = output.sampleRate / divisor;
    maxInputFrames_ = static_cast<uint32_t>(
        (static_cast<uint64_t>(maxOutputFrames) * inputRateUnits_ + outputRateUnits_ - 1) / outputRateUnits_ +
        1);

    // Each planar channel starts on its own cache line.
    const size_t bytesPerBuffer = RoundToLine(static_cast<size_t>(maxInputFrames_) * input.BytesPerSample() *
                                              (input.interleaved ? input.channels : 1));
    inputStorage_.Reset(bytesPerBuffer * input.BufferCount());
    for (uint32_t b = 0; b < input.BufferCount(); ++b)
        inputBuffers_[b] = inputStorage_.Data() + b * bytesPerBuffer;

    inputLeft_.Reset(maxInputFrames_);
    inputRight_.Reset(maxInputFrames_);
    outputLeft_.Reset(maxOutputFrames);
    outputRight_.Reset(maxOutputFrames);
}

uint64_t AudioFormatConverter::InputFramesForOutput(uint32_t frames) const
{
    // Mirrors the slicing of Render.
    uint64_t scheduleOutput = scheduleOutput_;
    uint64_t scheduleInput = scheduleInput_;
    uint64_t total = 0;
    for (uint32_t done = 0; done < frames;)
    {
        const uint32_t slice = std::min(maxOutputFrames_, frames - done);
        const uint64_t target =
            ((scheduleOutput + slice) * inputRateUnits_ + outputRateUnits_ - 1) / outputRateUnits_;
        total += target - scheduleInput;
        scheduleInput = target;
        scheduleOutput += slice;
        while (scheduleOutput >= outputRateUnits_)
        {
            scheduleOutput -= outputRateUnits_;
            scheduleInput -= inputRateUnits_;
        }
        done += slice;
    }
    return total;
}

void AudioFormatConverter::Reset()
{
    scheduleInput_ = scheduleOutput_ = 0;
    inputPulled_ = outputRendered_ = shortFrames_ = 0;
    if (resampler_)
        resampler_->Reset();
}

void AudioFormatConverter::Render(void* const* buffers, uint32_t frames)
{
    if (buffers == nullptr)
        return;
    for (uint32_t done = 0; done < frames;)
    {
        const uint32_t slice = std::min(maxOutputFrames_, frames - done);
        RenderSlice(buffers, done, slice);
        done += slice;
    }
}

uint32_t AudioFormatConverter::PullInput(uint32_t frames)
{
    // Converting up, a very short render may need no new input at all.
    if (frames == 0)
        return 0;
    const uint32_t filled = std::min(callback_(inputBuffers_.data(), frames), frames);
    if (filled < frames)
    {
        // What the callback didn't fill plays as silence (all-zero bytes are
        // silence in both encodings).
        const size_t frameBytes = input_.BytesPerSample() * (input_.interleaved ? input_.channels : 1);
        for (uint32_t b = 0; b < input_.BufferCount(); ++b)
            std::memset(static_cast<uint8_t*>(inputBuffers_[b]) + filled * frameBytes, 0,
                        (frames - filled) * frameBytes);
    }
    return filled;
}

void AudioFormatConverter::RenderSlice(void* const* buffers, uint32_t outputOffset, uint32_t frames)
{
    const uint64_t target =
        ((scheduleOutput_ + frames) * inputRateUnits_ + outputRateUnits_ - 1) / outputRateUnits_;
    const uint32_t need = static_cast<uint32_t>(target - scheduleInput_);
    scheduleInput_ = target;
    scheduleOutput_ += frames;
    while (scheduleOutput_ >= outputRateUnits_)
    {
        scheduleOutput_ -= outputRateUnits_;
        scheduleInput_ -= inputRateUnits_;
    }

    PullInput(need);
    inputPulled_ += need;
    DeviceSampleCodec::DecodeToStereo(input_, inputBuffers_.data(), need, inputLeft_.Data(),
                                      inputRight_.Data());

    const float* left = inputLeft_.Data();
    const float* right = inputRight_.Data();
    if (resampler_)
    {
        resampler_->Push(inputLeft_.Data(), inputRight_.Data(), need);
        const uint32_t popped = resampler_->Pop(outputLeft_.Data(), outputRight_.Data(), frames);
        if (popped < frames)
        {
            std::memset(outputLeft_.Data() + popped, 0, (frames - popped) * sizeof(float));
            std::memset(outputRight_.Data() + popped, 0, (frames - popped) * sizeof(float));
            shortFrames_ += frames - popped;
        }
        left = outputLeft_.Data();
        right = outputRight_.Data();
    }

    const size_t sampleBytes = output_.BytesPerSample();
    for (uint32_t b = 0; b < output_.BufferCount(); ++b)
    {
        const size_t offsetBytes = outputOffset * sampleBytes * (output_.interleaved ? output_.channels : 1);
        outputCursor_[b] = static_cast<uint8_t*>(buffers[b]) + offsetBytes;
    }
    DeviceSampleCodec::EncodeFromStereo(output_, left, right, frames, outputCursor_.data());
    outputRendered_ += frames;
}

}  // namespace tidemix::engine
