#include "sound/CInterleavedFilter.h"

#include <utility>

CInterleavedFilter::CInterleavedFilter(std::vector<CCountedPtr<CSampleFunnel::Filter>> filters)
    : fFilters(std::move(filters))
{
}

CInterleavedFilter::~CInterleavedFilter() = default;

double CInterleavedFilter::Apply(double x)
{
    const int count = static_cast<int>(fFilters.size());
    if (count == 0)
    {
        return x;
    }
    CSampleFunnel::Filter* filter = fFilters[static_cast<size_t>(fIndex)].get();
    fIndex = fIndex + 1 < count ? fIndex + 1 : 0;
    return filter != nullptr ? filter->Apply(x) : x;
}
