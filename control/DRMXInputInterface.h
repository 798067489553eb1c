#pragma once

#include <memory>

#include "engine/units/DRAVSource.h"
#include "settings/DRMXSettings.h"

// What a mix holds of an input: its selector, its node id and the capture
// source that the mix puts on the input's bus (null while none runs).
class DRMXInputInterface
{
public:
    virtual ~DRMXInputInterface() = default;
    virtual DRMX_Settings::DRMXInputSelector GetSelector() const = 0;
    virtual void SetSelector(const DRMX_Settings::DRMXInputSelector& selector) = 0;
    virtual void UpdateMixerNodeId(int nodeId) = 0;
    virtual std::shared_ptr<DRAVSource> GetSource() const = 0;
};
