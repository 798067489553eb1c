#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "portable-core/CDplThreadMutex.h"
#include "sound/CDplAudioFormat.h"
#include "sound/CSampleFunnel.h"

// A sliding mean square over the last window of samples (of all channels
// together). The squares sit in a queue that starts holding one 0.0 and
// grows to the window's length; a running sum spares re-adding the window.
// Apply returns its input unchanged. Readers on other threads are safe: the
// queue and sum sit behind a mutex of their own.
class CDplAudioFilter_RmsMeasurement : public CSampleFunnel::Filter
{
public:
    CDplAudioFilter_RmsMeasurement(int windowMs, const CDplAudioFormat& format);
    ~CDplAudioFilter_RmsMeasurement() override;

    double Apply(double x) override;

    // sum / queue length; 0 for an empty queue.
    double GetMeanSquare() const;
    double GetSum() const;
    int GetQueueLength() const;
    int GetWindowMs() const { return fWindowMs; }
    // windowMs × rate / 1000, cut to the int range.
    int GetWindowSamples() const { return fWindowSamples; }
    const CDplAudioFormat& GetFormat() const { return fFormat; }

protected:
    double MeanSquareLocked() const;

    const CDplAudioFormat fFormat;
    mutable CDplThreadMutex fMutex;

private:
    void PushSquare(double square);
    double PopSquare();

    int32_t fWindowMs;
    int32_t fWindowSamples;
    double fSum = 0.0;
    // A ring: the queue's oldest entry is at fHead. It grows up to the window
    // and then stays, so a running filter allocates nothing.
    std::vector<double> fSquares;
    size_t fHead = 0;
    size_t fCount = 0;
};
