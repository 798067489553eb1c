#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>

#include "engine/media/AlignedSampleBuffer.h"
#include "portable-core/DRAVResult.h"

namespace tidemix::engine
{

// Sums up to 255 stereo input buses into one stereo output, with a linear
// gain per bus and on the output, and meters each bus before its gain and the
// output after its gain.
//
// Each bus is pulled through its own callback, which fills two planar float
// channels with the requested number of frames and returns true, or returns
// false when it has nothing: the bus then plays silence and the others go on.
//
// Levels are the mean square of the last rendered block in decibels
// (10 * log10), per channel: a full-scale sine reads -3.01 dB, silence reads
// kLevelFloorDecibels. With the mix's 20 ms blocks that is a 20 ms window,
// short enough for a meter read 30 times a second.
//
// Threads: configure buses (count, callbacks) while nothing renders. Gains and
// levels may be set and read from any thread at any time; Render runs on one
// audio thread and neither allocates, locks nor logs.
class AudioBusMixer
{
public:
    static constexpr uint32_t kMaxBusCount = 255;
    static constexpr float kLevelFloorDecibels = -120.0f;

    using BusCallback = std::function<bool(float* left, float* right, uint32_t frames)>;

    // One bus's turn in a render, for a reader that lends its block instead
    // of copying it. The reader calls Mix at most once, with two planar
    // channels of the asked frame count that need stay valid only during the
    // call; a bus whose reader doesn't call it plays silence. A reader that
    // has to build its block may build it in the scratch channels.
    class BusBlock
    {
    public:
        BusBlock(const BusBlock&) = delete;
        BusBlock& operator=(const BusBlock&) = delete;

        float* ScratchLeft() const { return mixer_.busLeft_.Data(); }
        float* ScratchRight() const { return mixer_.busRight_.Data(); }
        void Mix(const float* left, const float* right);

    private:
        friend class AudioBusMixer;
        BusBlock(AudioBusMixer& mixer, uint32_t bus, float* left, float* right, uint32_t frames,
                 bool accumulate)
            : mixer_(mixer), bus_(bus), left_(left), right_(right), frames_(frames), accumulate_(accumulate)
        {
        }

        AudioBusMixer& mixer_;
        uint32_t bus_;
        float* left_;
        float* right_;
        uint32_t frames_;
        bool accumulate_;
        bool mixed_ = false;
    };
    using BusReader = std::function<void(BusBlock& block, uint32_t frames)>;

    // maxFramesPerRender: the largest block handed to the callbacks; a longer
    // Render is done in several slices.
    explicit AudioBusMixer(uint32_t maxFramesPerRender = 960);

    AudioBusMixer(const AudioBusMixer&) = delete;
    AudioBusMixer& operator=(const AudioBusMixer&) = delete;

    // More than kMaxBusCount: "ErrInvalidParameter", nothing changes.
    DRAVResult SetBusCount(uint32_t count);
    uint32_t BusCount() const { return busCount_; }
    // A null callback makes the bus silent. A bus out of range is refused.
    DRAVResult SetBusCallback(uint32_t bus, BusCallback callback);
    // The same for a reader, which saves the copy into the scratch channels.
    // A bus has either a callback or a reader; setting one drops the other.
    DRAVResult SetBusReader(uint32_t bus, BusReader reader);

    // Gains are limited to 0.0 to 1.0 (NaN counts as 0.0). A bus out of range
    // is refused; reading one gives 0.0.
    DRAVResult SetBusGain(uint32_t bus, float gain);
    float BusGain(uint32_t bus) const;
    void SetOutputGain(float gain);
    float OutputGain() const;

    // channel 0 is left, 1 is right. Out of range: the floor.
    float BusLevelDecibels(uint32_t bus, uint32_t channel) const;
    float OutputLevelDecibels(uint32_t channel) const;

    // Mixes `frames` frames into the two planar outputs. Real-time safe.
    // On the mix's audio thread: calls the bus callbacks there; no
    // allocation, no lock, no log.
    void Render(float* left, float* right, uint32_t frames);

    uint32_t MaxFramesPerRender() const { return maxFrames_; }

private:
    void RenderSlice(float* left, float* right, uint32_t frames);

    uint32_t maxFrames_;
    // Decided once, off the audio thread: the AVX2 loops where the processor has them.
    bool wideVectors_;
    uint32_t busCount_ = 0;
    std::array<BusCallback, kMaxBusCount> callbacks_;
    std::array<BusReader, kMaxBusCount> readers_;
    std::array<std::atomic<float>, kMaxBusCount> gains_;
    std::atomic<float> outputGain_{1.0f};
    std::array<std::atomic<float>, kMaxBusCount * 2> busLevels_;
    std::array<std::atomic<float>, 2> outputLevels_;
    // One bus is pulled at a time, so one pair of scratch channels serves all.
    AlignedSampleBuffer<float> busLeft_;
    AlignedSampleBuffer<float> busRight_;
    // Sums of squares of the current render, accumulated over its slices.
    std::array<double, kMaxBusCount * 2> busEnergy_{};
};

}  // namespace tidemix::engine
