#pragma once

#include <vector>

#include "sound/CSampleFunnel.h"

// Gives each channel of interleaved sound a filter of its own: sample i goes
// to filter (start + i) mod count. A null entry passes its samples through;
// with no filters at all every sample passes through.
class CInterleavedFilter final : public CSampleFunnel::Filter
{
public:
    explicit CInterleavedFilter(std::vector<CCountedPtr<CSampleFunnel::Filter>> filters);
    ~CInterleavedFilter() override;

    double Apply(double x) override;

    int GetIndex() const { return fIndex; }
    // Makes the next sample go to the first filter again.
    void ResetIndex() { fIndex = 0; }
    // Makes the next sample go to filter `index`; ignored outside the list.
    void SetIndex(int index)
    {
        if (index >= 0 && index < static_cast<int>(fFilters.size()))
        {
            fIndex = index;
        }
    }
    const std::vector<CCountedPtr<CSampleFunnel::Filter>>& GetFilters() const { return fFilters; }

private:
    std::vector<CCountedPtr<CSampleFunnel::Filter>> fFilters;
    int fIndex = 0;
};
