#pragma once

#include "settings/DRMXSettings.h"

// What a mix holds of an input: its selector and its node id. The capture
// source behind it joins this interface with the engine's sources.
class DRMXInputInterface
{
public:
    virtual ~DRMXInputInterface() = default;
    virtual DRMX_Settings::DRMXInputSelector GetSelector() const = 0;
    virtual void SetSelector(const DRMX_Settings::DRMXInputSelector& selector) = 0;
    virtual void UpdateMixerNodeId(int nodeId) = 0;
};
