// The shared USB table on the simulated bus, and what only the simulation
// can show: hot-plug events and the release of every handle.
#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "microphones/DRMXMicrophoneHelper.h"
#include "microphones/DRMXMicrophoneReed.h"
#include "support/SimUsbMicrophoneRig.h"

namespace
{
using tidemix::test::SimUsbMicrophoneRig;
namespace Table = tidemix::test::UsbMicrophoneTable;

TEST(UsbMicrophoneSim, SetAndReadBackOnEachModel)
{
    SimUsbMicrophoneRig rig;
    Table::SetAndReadBackOnEachModel(rig);
}

TEST(UsbMicrophoneSim, RequestsCarryTheExactFields)
{
    SimUsbMicrophoneRig rig;
    Table::RequestsCarryTheExactFields(rig);
}

TEST(UsbMicrophoneSim, StallAndTimeoutMoveNothing)
{
    SimUsbMicrophoneRig rig;
    Table::StallAndTimeoutMoveNothing(rig);
}

TEST(UsbMicrophoneSim, ShortAndOverlongReplies)
{
    SimUsbMicrophoneRig rig;
    Table::ShortAndOverlongReplies(rig);
}

TEST(UsbMicrophoneSim, UnpluggedDeviceIsNotInitialized)
{
    SimUsbMicrophoneRig rig;
    Table::UnpluggedDeviceIsNotInitialized(rig);
}

TEST(UsbMicrophoneSim, EnumerationAndSerialNumber)
{
    SimUsbMicrophoneRig rig;
    Table::EnumerationAndSerialNumber(rig);
}

TEST(UsbMicrophoneSim, ArrivalsDeparturesAndHandles)
{
    SimUsbMicrophoneRig rig;
    auto& bus = rig.Sim();
    std::mutex mutex;
    std::vector<std::pair<tidemix::platform::UsbEvent, uint16_t>> events;
    const uint64_t id = bus.AddListener(
        [&](tidemix::platform::UsbEvent event, const auto& info)
        {
            std::lock_guard lock(mutex);
            events.emplace_back(event, info.productId);
        });
    const uint32_t location = rig.Plug(0x0B21, "H", {});
    {
        DRMXMicrophoneHelper<DRMXMicrophoneReed> helper(location, 0x7E11, 0x0B21, "H");
        EXPECT_EQ(bus.OpenHandles(location), 1);
    }
    EXPECT_EQ(bus.OpenHandles(location), 0);  // the destructor closed it
    rig.Unplug(location);
    bus.FlushNotifications();
    bus.RemoveListener(id);
    rig.Plug(0x0B23, "late", {});
    bus.FlushNotifications();
    std::lock_guard lock(mutex);
    using tidemix::platform::UsbEvent;
    EXPECT_EQ(events, (std::vector<std::pair<UsbEvent, uint16_t>>{{UsbEvent::Arrived, 0x0B21},
                                                                  {UsbEvent::Departed, 0x0B21}}));
}
}  // namespace
