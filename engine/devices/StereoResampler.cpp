#include "engine/devices/StereoResampler.h"

#include <soxr.h>

#include <algorithm>
#include <cstring>

namespace tidemix::engine
{
namespace
{
// soxr's default DFT sizes process in large blocks and hold back up to ~450
// output frames when converting down (~2900 for 8 to 48 kHz); the smallest
// sizes bound that to about 100 frames times the upsampling factor, for a
// small cost in speed.
constexpr unsigned kLog2DftSize = 8;

// Zero input fed at the start so that the filter's held-back frames are
// already covered: afterwards every chunk of input at the exact rate ratio
// yields at least its share of output, at the price of this many frames of
// latency.
uint32_t PrimingOutputFrames(uint32_t inputRate, uint32_t outputRate)
{
    const uint32_t upsampling = (outputRate + inputRate - 1) / inputRate;
    return 128 * upsampling + 32;
}
constexpr uint32_t kPrimingChunk = 16;
}  // namespace

std::unique_ptr<StereoResampler> StereoResampler::Create(uint32_t inputRate, uint32_t outputRate,
                                                         uint32_t maxInputFrames, uint32_t maxOutputFrames)
{
    if (inputRate == 0 || outputRate == 0)
        return nullptr;
    soxr_error_t error = nullptr;
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_S, SOXR_FLOAT32_S);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_LQ, 0);
    soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
    runtime.log2_min_dft_size = kLog2DftSize;
    runtime.log2_large_dft_size = kLog2DftSize;
    soxr_t handle = soxr_create(inputRate, outputRate, 2, &error, &io, &quality, &runtime);
    if (handle == nullptr || error != nullptr)
    {
        if (handle != nullptr)
            soxr_delete(handle);
        return nullptr;
    }
    // Room for the largest push's output plus what priming and rounding leave.
    const uint64_t largestPush = static_cast<uint64_t>(maxInputFrames) * outputRate / inputRate +
                                 PrimingOutputFrames(inputRate, outputRate) * 2 + 1024;
    const uint64_t capacity = largestPush + maxOutputFrames;
    std::unique_ptr<StereoResampler> resampler(
        new StereoResampler(handle, inputRate, outputRate, static_cast<uint32_t>(capacity)));
    resampler->Prime();
    return resampler;
}

StereoResampler::StereoResampler(soxr* handle, uint32_t inputRate, uint32_t outputRate, uint32_t capacity)
    : handle_(handle),
      inputRate_(inputRate),
      outputRate_(outputRate),
      queueLeft_(capacity),
      queueRight_(capacity)
{
}

StereoResampler::~StereoResampler()
{
    soxr_delete(handle_);
}

void StereoResampler::Reset()
{
    soxr_clear(handle_);
    queuedBegin_ = queuedEnd_ = 0;
    Prime();
}

void StereoResampler::Prime()
{
    const uint32_t inputFrames = static_cast<uint32_t>(
        (static_cast<uint64_t>(PrimingOutputFrames(inputRate_, outputRate_)) * inputRate_ + outputRate_ - 1) /
        outputRate_);
    const float zeros[kPrimingChunk] = {};
    for (uint32_t done = 0; done < inputFrames; done += kPrimingChunk)
        Push(zeros, zeros, std::min(kPrimingChunk, inputFrames - done));
}

void StereoResampler::Compact()
{
    if (queuedBegin_ == 0)
        return;
    const uint32_t queued = Queued();
    std::memmove(queueLeft_.Data(), queueLeft_.Data() + queuedBegin_, queued * sizeof(float));
    std::memmove(queueRight_.Data(), queueRight_.Data() + queuedBegin_, queued * sizeof(float));
    queuedBegin_ = 0;
    queuedEnd_ = queued;
}

bool StereoResampler::Push(const float* left, const float* right, uint32_t frames)
{
    Compact();
    const float* input[2] = {left, right};
    size_t consumed = 0;
    bool fitted = true;
    while (consumed < frames)
    {
        const float* in[2] = {input[0] + consumed, input[1] + consumed};
        const uint32_t room = static_cast<uint32_t>(queueLeft_.Size()) - queuedEnd_;
        float* out[2] = {queueLeft_.Data() + queuedEnd_, queueRight_.Data() + queuedEnd_};
        size_t used = 0;
        size_t produced = 0;
        soxr_process(handle_, in, frames - consumed, &used, out, room, &produced);
        queuedEnd_ += static_cast<uint32_t>(produced);
        consumed += used;
        if (used == 0 && produced == 0)
        {
            // No room left: the rest of this output is lost.
            fitted = false;
            break;
        }
    }
    return fitted;
}

uint32_t StereoResampler::Pop(float* left, float* right, uint32_t frames)
{
    const uint32_t taken = std::min(frames, Queued());
    std::memcpy(left, queueLeft_.Data() + queuedBegin_, taken * sizeof(float));
    std::memcpy(right, queueRight_.Data() + queuedBegin_, taken * sizeof(float));
    queuedBegin_ += taken;
    return taken;
}

}  // namespace tidemix::engine
