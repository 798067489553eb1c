#pragma once

#include <cstdint>
#include <memory>

#include "engine/media/AlignedSampleBuffer.h"

struct soxr;

namespace tidemix::engine
{

// Converts two planar float channels from one fixed rate to another with
// libsoxr in its low-quality setting (16-bit quality) with the smallest DFT
// blocks, which hands out output for every small input chunk instead of in
// bursts. Output collects in a queue that the caller
// drains.
//
// Create and Reset allocate and prime the filter; Push and Pop afterwards
// neither allocate nor lock as long as each Push stays within the input size
// given at creation.
class StereoResampler
{
public:
    // Null when a rate is 0 or soxr refuses the pair.
    static std::unique_ptr<StereoResampler> Create(uint32_t inputRate, uint32_t outputRate,
                                                   uint32_t maxInputFrames, uint32_t maxOutputFrames);
    ~StereoResampler();

    StereoResampler(const StereoResampler&) = delete;
    StereoResampler& operator=(const StereoResampler&) = delete;

    // Resamples `frames` input frames into the queue. Returns false when the
    // queue had no room for all output (which is then dropped).
    bool Push(const float* left, const float* right, uint32_t frames);
    uint32_t Queued() const { return queuedEnd_ - queuedBegin_; }
    // Takes up to `frames` frames; returns how many.
    uint32_t Pop(float* left, float* right, uint32_t frames);

    // Forgets all state and primes the filter anew.
    void Reset();

private:
    StereoResampler(soxr* handle, uint32_t inputRate, uint32_t outputRate, uint32_t capacity);
    void Prime();
    void Compact();

    soxr* handle_;
    uint32_t inputRate_;
    uint32_t outputRate_;
    AlignedSampleBuffer<float> queueLeft_;
    AlignedSampleBuffer<float> queueRight_;
    uint32_t queuedBegin_ = 0;
    uint32_t queuedEnd_ = 0;
};

}  // namespace tidemix::engine
