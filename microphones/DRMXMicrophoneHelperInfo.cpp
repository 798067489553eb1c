#include "microphones/DRMXMicrophoneHelperInfo.h"

#include "microphones/DRMXMicrophoneHelper.h"
#include "microphones/DRMXMicrophoneReed.h"
#include "microphones/DRMXMicrophoneReedPro.h"

namespace
{
template <typename Helper>
DRMXMicrophoneHelperInfo Describe(Helper& helper)
{
    DRMXMicrophoneHelperInfo info;
    info.device = helper.GetUSBDeviceInterface();
    info.dfu = helper.IsDFUInterface();
    info.locationId = helper.GetLocationId();
    info.vendorId = helper.GetVendorId();
    info.productId = helper.GetProductId();
    return info;
}
}  // namespace

std::optional<DRMXMicrophoneHelperInfo> DRMXMicrophoneHelperInfo::Of(DRMXMicrophoneInterface* microphone)
{
    if (auto* reed = dynamic_cast<DRMXMicrophoneHelper<DRMXMicrophoneReed>*>(microphone))
    {
        return Describe(*reed);
    }
    if (auto* pro = dynamic_cast<DRMXMicrophoneHelper<DRMXMicrophoneReedPro>*>(microphone))
    {
        return Describe(*pro);
    }
    return std::nullopt;
}
