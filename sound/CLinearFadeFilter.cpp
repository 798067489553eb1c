#include "sound/CLinearFadeFilter.h"

CLinearFadeFilter::CLinearFadeFilter(double step, double startGain) : fStep(step), fGain(startGain) {}

CLinearFadeFilter::~CLinearFadeFilter() = default;

double CLinearFadeFilter::Apply(double x)
{
    double gain = fGain;
    if (gain > 1.0)
    {
        gain = 1.0;
    }
    else if (gain < -1.0)
    {
        gain = -1.0;
    }
    fGain += fStep;
    return x * gain;
}
