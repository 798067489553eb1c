#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "microphones/DRMXNotificationCenter.h"

namespace
{
using Handle = DRMXNotificationCenter::ObserverHandle;

std::string Posting(DRMXNotificationCenter& center, const std::string& name, bool* result)
{
    testing::internal::CaptureStdout();
    *result = center.postNotification(name, {});
    return testing::internal::GetCapturedStdout();
}

TEST(DRMXNotificationCenter, UnknownAndEmptyNames)
{
    DRMXNotificationCenter center;
    bool posted = true;
    EXPECT_EQ(Posting(center, "Nobody", &posted), "WARNING: Notification \"Nobody\" does not exist.\n");
    EXPECT_FALSE(posted);

    // Once added, a name stays postable with an empty list, until removed.
    const Handle handle = center.addObserver("Added", [](DRMXNotificationParameters) {});
    center.removeObserver("Added", handle);
    EXPECT_EQ(Posting(center, "Added", &posted), "");
    EXPECT_TRUE(posted);
    center.removeAllObservers("Added");
    EXPECT_NE(Posting(center, "Added", &posted), "");
    EXPECT_FALSE(posted);
    EXPECT_FALSE(center.getNotificationIterator("Added"));

    // An empty function is refused rather than thrown at a later post.
    EXPECT_FALSE(center.addObserver("Empty", DRMXNotificationObserver()).IsValid());
    EXPECT_FALSE(center.getNotificationIterator("Empty"));
}

TEST(DRMXNotificationCenter, OrderParametersAndRemovalDuringAPost)
{
    DRMXNotificationCenter center;
    std::vector<std::string> calls;
    int payload = 7;
    Handle second;
    Handle third;
    center.addObserver("N",
                       [&](DRMXNotificationParameters parameters)
                       {
                           calls.push_back("first");
                           // Each observer gets its own copy: a change here reaches no one else.
                           parameters["key"] = nullptr;
                           // Removing a later observer and itself: the post in progress still
                           // calls everyone, the next one doesn't.
                           center.removeObserver(third);
                           center.removeObserver(second);
                           center.addObserver("N",
                                              [&](DRMXNotificationParameters) { calls.push_back("added"); });
                       });
    second = center.addObserver(
        "N", [&](DRMXNotificationParameters parameters)
        { calls.push_back(parameters.at("key") == &payload ? "second" : "second without payload"); });
    third = center.addObserver("N", [&](DRMXNotificationParameters) { calls.push_back("third"); });

    EXPECT_TRUE(center.postNotification("N", {{"key", &payload}}));
    EXPECT_EQ(calls, (std::vector<std::string>{"first", "second", "third"}));
    calls.clear();
    EXPECT_TRUE(center.postNotification("N", {{"key", &payload}}));
    EXPECT_EQ(calls, (std::vector<std::string>{"first", "added"}));
}

TEST(DRMXNotificationCenter, IteratorsAndHandlesStaySafe)
{
    DRMXNotificationCenter center;
    int calls = 0;
    const Handle a = center.addObserver("A", [&](DRMXNotificationParameters) { ++calls; });
    const auto it = center.getNotificationIterator("A");
    ASSERT_TRUE(it);
    const Handle b = center.addObserver([&](DRMXNotificationParameters) { calls += 10; }, it);
    EXPECT_TRUE(center.postNotification(it, {}));
    EXPECT_EQ(calls, 11);

    // Removal by handle alone finds the list; a second removal is harmless.
    center.removeObserver(b);
    center.removeObserver(b);
    center.removeObserver(it, a);
    EXPECT_TRUE(center.postNotification(it, {}));
    EXPECT_EQ(calls, 11);

    // A removed name leaves the iterator stale, not dangling.
    center.removeAllObservers(it);
    testing::internal::CaptureStdout();
    EXPECT_FALSE(center.postNotification(it, {}));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "WARNING: Notification \"A\" does not exist.\n");
    EXPECT_FALSE(center.addObserver([](DRMXNotificationParameters) {}, it).IsValid());
    EXPECT_FALSE(center.getNotificationIterator("A"));
}

}  // namespace
