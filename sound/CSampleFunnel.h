#pragma once

#include <cstdint>

#include "portable-core/CCountedObject.h"
#include "sound/CSampleType.h"

// Converts an array of samples of one format into an array of another. The
// conversion goes through a normalised double in [-1, 1], where an optional
// per-sample filter may act. A funnel holds no state but its filter's.
class CSampleFunnel
{
public:
    // Sees every sample once, in the stream's order, on the normalised scale.
    class Filter : public CCountedObject
    {
    public:
        ~Filter() override = default;
        virtual double Apply(double x) = 0;
    };

    CSampleFunnel(const CSampleType& sourceType, const CSampleType& destinationType,
                  const CCountedPtr<Filter>& filter);
    virtual ~CSampleFunnel();
    CSampleFunnel(const CSampleFunnel&) = delete;
    CSampleFunnel& operator=(const CSampleFunnel&) = delete;

    // Converts `samples` samples (not frames) from `source` into `dest`.
    // Returns the count the concrete funnel reports; a negative count does
    // nothing.
    virtual int FunnelBuffer(void* dest, const void* source, int samples) = 0;

    CSampleType GetSourceType() const { return CSampleType(fSourceType); }
    CSampleType GetDestinationType() const { return CSampleType(fDestinationType); }
    const CCountedPtr<Filter>& GetFilter() const { return fFilter; }

protected:
    int32_t fSourceType;
    int32_t fDestinationType;
    CCountedPtr<Filter> fFilter;
};
