#include "engine/DRAVIntervalLog.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
// Captures the log hub's lines for one test and restores the former handler.
class CapturedLog
{
public:
    CapturedLog()
        : former_(
              DRAVSetLogHandler([this](eDbgPrintLevel, const std::string& line) { lines.push_back(line); }))
    {
    }
    ~CapturedLog() { DRAVSetLogHandler(former_); }
    std::vector<std::string> lines;

private:
    DRAVLogHandler former_;
};

TEST(DRAVIntervalLog, OneLinePerIntervalUnlessForced)
{
    CapturedLog captured;
    DRAVIntervalLog log(DRAVDuration::OneMinute(), kDbgPrintLevelWarning);
    EXPECT_TRUE(log.Log("f", "first %d", 1));
    EXPECT_FALSE(log.Log("f", "second"));
    EXPECT_FALSE(log.Log("f", "third"));
    EXPECT_EQ(log.GetSuppressed(), 2);
    ASSERT_EQ(captured.lines.size(), 1u);
    EXPECT_EQ(captured.lines[0], "f: first 1");

    log.SetForce(true);
    EXPECT_TRUE(log.Log("f", "forced"));
    ASSERT_EQ(captured.lines.size(), 2u);
    EXPECT_EQ(captured.lines[1], "f: forced (2 similar lines suppressed)");
}

TEST(DRAVIntervalLog, ZeroIntervalLetsEveryLineOut)
{
    CapturedLog captured;
    DRAVIntervalLog log(DRAVDuration(0), kDbgPrintLevelError);
    EXPECT_TRUE(log.Log("g", "a"));
    EXPECT_TRUE(log.Log("g", "b"));
    EXPECT_EQ(captured.lines.size(), 2u);
}
}  // namespace
