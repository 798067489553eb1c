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

// The shared table's cases, each on a bus of its own.
TEST(UsbMicrophoneSim, SharedTable)
{
    const std::pair<const char*, void (*)(tidemix::test::UsbMicrophoneRig&)> cases[] = {
        {"SetAndReadBackOnEachModel", Table::SetAndReadBackOnEachModel},
        {"RequestsCarryTheExactFields", Table::RequestsCarryTheExactFields},
        {"StallAndTimeoutMoveNothing", Table::StallAndTimeoutMoveNothing},
        {"ShortAndOverlongReplies", Table::ShortAndOverlongReplies},
        {"UnpluggedDeviceIsNotInitialized", Table::UnpluggedDeviceIsNotInitialized},
        {"EnumerationAndSerialNumber", Table::EnumerationAndSerialNumber},
    };
    for (const auto& [name, run] : cases)
    {
        SCOPED_TRACE(name);
        SimUsbMicrophoneRig rig;
        run(rig);
    }
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
