#pragma once

#include <memory>
#include <string>

#include "control/DRMXMixerNodeBase.h"

// The node a mix makes for each of its inputs.
class DRMXMixerNode : public DRMXMixerNodeBase
{
public:
    DRMXMixerNode(const std::string& name, const DRMX_Settings::DRMXInputSelector& inputSelector,
                  const DRMX_Settings::DRMXOutputSelector& outputSelector);
    ~DRMXMixerNode() override;

    DRAVResult Deinit() override;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};
