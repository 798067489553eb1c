#pragma once

#include <list>
#include <vector>

// Maps a hardware scale given by rising sample points to 0.0..1.0 and back.
// Every interval between two points gets the same share of the normalized
// range, however wide it is in hardware terms. Immutable after construction,
// so one object serves all threads.
class DRMXBucketNormalizationService
{
public:
    // A list that fails CheckSampleList is replaced by the line 0.0, 1.0.
    explicit DRMXBucketNormalizationService(const std::list<double>& samples);

    // At least two entries, strictly rising when truncated to integers.
    static bool CheckSampleList(const std::list<double>& samples);

    double GetNormalized(double value) const;
    double GetDeNormalized(double value) const;

    const std::vector<double>& Samples() const { return samples_; }

private:
    std::vector<double> samples_;
};
