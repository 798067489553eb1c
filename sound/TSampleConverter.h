#pragma once

#include <memory>

#include "sound/CSampleFunnel.h"
#include "sound/TSampleTraits.h"

// Converts the format of `From` into that of `To` (both TSampleTraits), one
// sample at a time through the normalised double scale. Every pair of the 26
// formats is instantiated once, in the library; there is no conversion code
// in this header.
template <class From, class To>
class TSampleConverter final : public CSampleFunnel
{
public:
    explicit TSampleConverter(const CCountedPtr<Filter>& filter);
    ~TSampleConverter() override;

    // Returns `samples`; 0 for a negative count or a null buffer.
    int FunnelBuffer(void* dest, const void* source, int samples) override;
};

// A converter from `From` to the format `to` (1 to 26), null for any other.
template <class From>
std::unique_ptr<CSampleFunnel> MakeConverterTo(const CSampleType& to,
                                               const CCountedPtr<CSampleFunnel::Filter>& filter);
