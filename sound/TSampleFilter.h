#pragma once

#include "sound/CSampleFilterFunnel.h"
#include "sound/TSampleTraits.h"

// Filters samples of one format: each is normalised, handed to the filter and
// scaled back. Instantiated in the library for the formats that
// DplAudio_CreateAudioProcessingFilter offers.
template <class Traits>
class TSampleFilter final : public CSampleFilterFunnel
{
public:
    explicit TSampleFilter(const CCountedPtr<Filter>& filter);
    ~TSampleFilter() override;

    // Does nothing without a filter (returns 0). Otherwise returns `samples`.
    int FunnelBuffer(void* dest, const void* source, int samples) override;
    int ObserveBuffer(const void* source, int samples) override;
};
