#include <gtest/gtest.h>

#include <memory>

#include "control/DRMXProcessActivity.h"
#include "platform/sim/SimPlatform.h"

namespace
{
TEST(DRMXProcessActivity, OneActivityAtATimeEndedByEndOrDestruction)
{
    auto platform = std::make_shared<tidemix::platform::sim::SimPlatform>();
    tidemix::platform::Platform::Use(platform);
    auto& activities = platform->Activities();
    {
        DRMXProcessActivity activity;
        activity.End();  // nothing runs: nothing to end
        activity.Begin();
        activity.Begin();
        EXPECT_EQ(activities.Begins(), 1);
        EXPECT_TRUE(activities.IsActive());
        activity.End();
        EXPECT_FALSE(activities.IsActive());
        activity.Begin();
        EXPECT_EQ(activities.Begins(), 2);
    }
    EXPECT_FALSE(activities.IsActive());
    tidemix::platform::Platform::Use(nullptr);
}
}  // namespace
