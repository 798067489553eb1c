#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "engine/units/DRAVFilter.h"
#include "engine/media/DRAVMediaFormat.h"
#include "portable-core/CDplThreadMutex.h"

// Holds frames back for a number of milliseconds and moves their time stamps
// by as much. The input queue's worker does the holding; this filter shifts
// the stamps and hands the frames on.
class DRAVFilterDelay : public DRAVFilter
{
public:
    static constexpr DRAVFilterType kFilterType = 9;
    // The input queue starts sized for this much delay.
    static constexpr int64_t kInitialQueueMsec = 2000;
    // The queue is sized as if every frame were this long.
    static constexpr int64_t kQueueFrameMsec = 40;
    // Never fewer items: a short delay still needs room for the frames that
    // arrive while the worker hands one on.
    static constexpr int kMinQueueItems = 3;
    // The queue's worker counts the delay in int milliseconds.
    static constexpr int64_t kMaxDelayMsec = 0x7fffffff;

    explicit DRAVFilterDelay(const DRAVFilterConfig& config = DRAVFilterConfig{kFilterType, false});
    ~DRAVFilterDelay() override;

    static KVCMap* GetMyObjectProperties();

    // Delay 0, threaded input, passthrough output.
    DRAVResult Init() override;
    DRAVResult InitFilter(DRAVPinType input, DRAVPinType output) override;
    DRAVResult Deinit() override;

    // Takes effect with the next frame. ErrInvalidParameter for a delay below
    // 0 or above kMaxDelayMsec, which is then ignored; when the queue cannot
    // be sized for it, the former delay stays.
    DRAVResult SetAudioDelayMsec(int64_t delayMsec);
    int64_t GetAudioDelayMsec() const { return delayMsec_.load(); }
    // Sizes input pin 0's queue for `delayMsec` of 40 ms frames, at least
    // kMinQueueItems. ErrNullPointer without pin, queue or audio format;
    // ErrInvalidParameter for a format without frame size.
    DRAVResult AdjustQueueByDelayMsec(int64_t delayMsec);

    DRAVResult InputMediaBufferReceived(std::shared_ptr<DRAVUnitInputPin> pin, int pinNumber,
                                        std::shared_ptr<DRAVMediaBuffer> frame) override;

    // The format the queue is sized in: the default float format until a
    // frame of another format arrives.
    std::shared_ptr<DRAVMediaFormat> GetFormat();

private:
    std::atomic<int64_t> delayMsec_{0};
    CDplThreadMutex formatMutex_;
    std::shared_ptr<DRAVMediaFormat> format_;
};
