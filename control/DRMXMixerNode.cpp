#include "control/DRMXMixerNode.h"

// Nothing of its own yet; the record keeps the layout stable for what a node
// may come to hold.
struct DRMXMixerNode::Impl
{
};

DRMXMixerNode::DRMXMixerNode(const std::string& name, const DRMX_Settings::DRMXInputSelector& inputSelector,
                             const DRMX_Settings::DRMXOutputSelector& outputSelector)
    : DRMXMixerNodeBase(name, nullptr, inputSelector, outputSelector), impl_(std::make_unique<Impl>())
{
}

DRMXMixerNode::~DRMXMixerNode() = default;

DRAVResult DRMXMixerNode::Deinit()
{
    return DRAVResult(kDRAVResultOk);
}
