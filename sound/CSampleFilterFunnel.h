#pragma once

#include "sound/CSampleFunnel.h"

// A funnel that filters samples in place without changing their format.
class CSampleFilterFunnel : public CSampleFunnel
{
public:
    using CSampleFunnel::CSampleFunnel;
    ~CSampleFilterFunnel() override;

    // Runs the filter over `samples` samples of `source` and writes nothing:
    // for a filter that only watches the signal. Returns the count seen, 0
    // without a filter.
    virtual int ObserveBuffer(const void* source, int samples) = 0;
};
