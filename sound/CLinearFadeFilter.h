#pragma once

#include "sound/CSampleFunnel.h"

// A gain ramp: each sample is multiplied by the current gain, limited to
// [-1, 1], and the gain then moves on by the step. Belongs to one stream.
class CLinearFadeFilter final : public CSampleFunnel::Filter
{
public:
    CLinearFadeFilter(double step, double startGain);
    ~CLinearFadeFilter() override;

    double Apply(double x) override;

    double GetStep() const { return fStep; }
    double GetGain() const { return fGain; }

private:
    double fStep;
    double fGain;
};
