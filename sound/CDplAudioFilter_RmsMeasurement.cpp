#include "sound/CDplAudioFilter_RmsMeasurement.h"

#include <algorithm>

namespace
{
int32_t CutToInt(int64_t value)
{
    return static_cast<int32_t>(std::clamp<int64_t>(value, INT32_MIN, INT32_MAX));
}
}  // namespace

CDplAudioFilter_RmsMeasurement::CDplAudioFilter_RmsMeasurement(int windowMs, const CDplAudioFormat& format)
    : fFormat(format),
      fWindowMs(windowMs),
      fWindowSamples(CutToInt(int64_t{windowMs} * format.sampleRate / 1000))
{
    PushSquare(0.0);
}

CDplAudioFilter_RmsMeasurement::~CDplAudioFilter_RmsMeasurement() = default;

double CDplAudioFilter_RmsMeasurement::Apply(double x)
{
    CDplScopedLock lock(fMutex);
    if (fCount > 0 && static_cast<int64_t>(fCount) >= fWindowSamples)
    {
        fSum -= PopSquare();
    }
    const double square = x * x;
    PushSquare(square);
    fSum += square;
    return x;
}

double CDplAudioFilter_RmsMeasurement::GetMeanSquare() const
{
    CDplScopedLock lock(fMutex);
    return MeanSquareLocked();
}

double CDplAudioFilter_RmsMeasurement::GetSum() const
{
    CDplScopedLock lock(fMutex);
    return fSum;
}

int CDplAudioFilter_RmsMeasurement::GetQueueLength() const
{
    CDplScopedLock lock(fMutex);
    return static_cast<int>(fCount);
}

double CDplAudioFilter_RmsMeasurement::MeanSquareLocked() const
{
    return fCount == 0 ? 0.0 : fSum / static_cast<double>(fCount);
}

void CDplAudioFilter_RmsMeasurement::PushSquare(double square)
{
    if (fCount == fSquares.size())
    {
        // Only while the queue is still shorter than the window.
        const size_t limit = static_cast<size_t>(std::max<int32_t>(fWindowSamples, 1));
        const size_t capacity =
            std::min(std::max<size_t>(fSquares.size() * 2, 16), std::max(limit, fCount + 1));
        std::vector<double> grown(capacity);
        for (size_t i = 0; i < fCount; ++i)
        {
            grown[i] = fSquares[(fHead + i) % fSquares.size()];
        }
        fSquares.swap(grown);
        fHead = 0;
    }
    fSquares[(fHead + fCount) % fSquares.size()] = square;
    ++fCount;
}

double CDplAudioFilter_RmsMeasurement::PopSquare()
{
    const double square = fSquares[fHead];
    fHead = fHead + 1 == fSquares.size() ? 0 : fHead + 1;
    --fCount;
    return square;
}
