#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "portable-core/CForwardingLogger.h"
#include "portable-core/CRelayBuffer.h"
#include "portable-core/CRelayLogger.h"
#include "portable-core/CTimestampedLogger.h"
#include "portable-core/DRAVFileLogger.h"
#include "portable-core/DRAVLog.h"
#include "portable-core/DRAVSlowLog.h"
#include "portable-core/DplFile.h"
#include "support/LogCapture.h"
#include "support/PortableCoreTestFolder.h"

namespace
{
// True when `text` starts with `pattern`, where 'd' stands for any digit.
bool StartsWithPattern(const std::string& text, const std::string& pattern)
{
    return text.size() >= pattern.size() &&
           std::equal(pattern.begin(), pattern.end(), text.begin(),
                      [](char p, char t)
                      { return p == 'd' ? std::isdigit(static_cast<unsigned char>(t)) != 0 : p == t; });
}

std::vector<std::string> ReadLines(const std::string& path)
{
    std::vector<std::string> lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);)
    {
        lines.push_back(line + "\n");
    }
    return lines;
}

TEST(DRAVFileLogger, WritesTaggedLinesIntoATimeNamedFile)
{
    PortableCoreTestFolder folder;
    DRAVFileLogger logger;
    const std::string logs = folder.Child("logs/engine");
    ASSERT_TRUE(logger.Open(logs, "ignored"));
    EXPECT_TRUE(DplFile_FolderExists(logs));
    const std::string name = DplFile_GetFileName(logger.GetPath());
    EXPECT_TRUE(DRAVFileLogger::IsSessionLogName(name)) << name;
    logger.Trace(kDbgPrintLevelError, "disk %s", "full");
    logger.Trace(kDbgPrintLevelWarning, "late by %d ms", 12);
    logger.Trace(static_cast<eDbgPrintLevel>(5), "plain");
    logger.Close();
    logger.Trace(kDbgPrintLevelError, "after close");

    const auto lines = ReadLines(logger.GetPath());
    ASSERT_EQ(lines.size(), 3u);
    for (const std::string& line : lines)
    {
        EXPECT_TRUE(StartsWithPattern(line, "dd:dd:dd.dddd  ")) << line;
    }
    EXPECT_EQ(lines[0].substr(14), " ERR disk full\n");
    EXPECT_EQ(lines[1].substr(14), " wrn late by 12 ms\n");
    EXPECT_EQ(lines[2].substr(14), "     plain\n");
}

TEST(DRAVFileLogger, KeepsAtMostTenSessionLogsAndServesAsTheLogHandler)
{
    PortableCoreTestFolder folder;
    for (int day = 1; day <= 12; ++day)
    {
        char name[64];
        snprintf(name, sizeof(name), "2020-01-%02d 10-00-00.log", day);
        ASSERT_TRUE(DplFile_WriteTextToFile(folder.Child(name).c_str(), "old"));
    }
    ASSERT_TRUE(DplFile_WriteTextToFile(folder.Child("thesis.docx").c_str(), "precious"));
    ASSERT_TRUE(DplFile_WriteTextToFile(folder.Child("0000-old.log").c_str(), "precious"));

    auto logger = std::make_shared<DRAVFileLogger>();
    ASSERT_TRUE(logger->Open(folder.Path(), ""));
    std::vector<std::string> names;
    DplFile_EnumFilesInFolder(folder.Path(), names);
    std::sort(names.begin(), names.end());
    std::vector<std::string> sessions;
    std::copy_if(names.begin(), names.end(), std::back_inserter(sessions), DRAVFileLogger::IsSessionLogName);
    ASSERT_EQ(sessions.size(), 10u);
    EXPECT_EQ(sessions.front(), "2020-01-04 10-00-00.log") << "the oldest three went";
    EXPECT_TRUE(DplFile_FileExists(folder.Child("thesis.docx")));
    EXPECT_TRUE(DplFile_FileExists(folder.Child("0000-old.log")));

    // The new session's file serves as the library's log handler.
    DRAVLogHandler former = DRAVSetLogHandler(DRAVFileLogger::MakeLogHandler(logger));
    DRAVLogPrintf(kDbgPrintLevelWarning, "through the hub %d", 7);
    DRAVSetLogHandler(former);
    DRAVLogPrintf(kDbgPrintLevelInfo, "not in the file");
    const auto lines = ReadLines(logger->GetPath());
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].substr(14), " wrn through the hub 7\n");
}

TEST(DRAVSlowLog, EveryNthCallOrOnePerIntervalPasses)
{
    DRAVSlowLog slow(10, kDbgPrintLevelWarning);
    std::vector<int> passed;
    for (int call = 0; call < 25; ++call)
    {
        if (slow.ShouldPass(DRAVTimestamp(call)))
        {
            passed.push_back(call);
        }
    }
    EXPECT_EQ(passed, (std::vector<int>{0, 10, 20}));
    EXPECT_EQ(slow.GetSuppressed(), 4);

    // With an interval, one message per interval passes.
    DRAVSlowLog timed(DRAVDuration::OneSecond(), kDbgPrintLevelError);
    EXPECT_TRUE(timed.ShouldPass(DRAVTimestamp(5000000)));
    EXPECT_FALSE(timed.ShouldPass(DRAVTimestamp(5999999)));
    EXPECT_TRUE(timed.ShouldPass(DRAVTimestamp(6000000)));
    EXPECT_FALSE(timed.ShouldPass(DRAVTimestamp(6000001)));
    timed.Force();
    EXPECT_TRUE(timed.ShouldPass(DRAVTimestamp(6000002)));

    // A short interval lets only the first (or a forced) message pass.
    DRAVSlowLog shortInterval(DRAVDuration(100000), kDbgPrintLevelError);
    EXPECT_TRUE(shortInterval.ShouldPass(DRAVTimestamp(0)));
    EXPECT_FALSE(shortInterval.ShouldPass(DRAVTimestamp(10000000)));
    shortInterval.Force();
    EXPECT_TRUE(shortInterval.ShouldPass(DRAVTimestamp(10000001)));
}

TEST(DRAVSlowLog, PassingLinesReachTheLogHub)
{
    tidemix::test::LogCapture captured;
    DRAVSlowLog slow(3, kDbgPrintLevelWarning);
    int passed = 0;
    for (int i = 0; i < 7; ++i)
    {
        passed += slow.Log("Render", "underrun %d", i) ? 1 : 0;
    }
    EXPECT_EQ(passed, 3);
    ASSERT_EQ(captured.Entries().size(), 3u);
    EXPECT_EQ(captured.Entries()[0].first, kDbgPrintLevelWarning);
    EXPECT_EQ(captured.Entries()[0].second, "Render: underrun 0");
    EXPECT_EQ(captured.Entries()[1].second, "Render: underrun 3 (2 similar suppressed)");
    const std::string longText(2000, 'x');
    EXPECT_TRUE(DRAVSlowLog(1, kDbgPrintLevelInfo).Log("f", "%s", longText.c_str()));
    EXPECT_EQ(captured.Entries().back().second.size(), 3u + 511u) << "cut at 512 bytes";
}

TEST(CRelayBuffer, GrowsFromTheInlineStore)
{
    CRelayBuffer buffer;
    EXPECT_EQ(buffer.Capacity(), 127);
    EXPECT_STREQ(buffer.c_str(), "");
    buffer.AddString(nullptr, 3);
    EXPECT_STREQ(buffer.c_str(), "   ");
    buffer.AddString("abcdef", 2).AddString("xyz");
    EXPECT_STREQ(buffer.c_str(), "   abxyz");
    EXPECT_TRUE(buffer.IsInline());

    const std::string many(200, 'h');
    buffer.AddString(many.c_str());
    EXPECT_FALSE(buffer.IsInline());
    EXPECT_EQ(buffer.Capacity(), 254) << "twice the old capacity";
    EXPECT_EQ(buffer.Length(), 208);
    buffer.AddString(std::string(1000, 'k').c_str());
    EXPECT_EQ(buffer.Capacity(), 1208) << "the need, when more than twice";
    EXPECT_EQ(buffer.c_str()[buffer.Length()], '\0');

    buffer.Set("%d-%s", 42, "x");
    EXPECT_STREQ(buffer.c_str(), "42-x");
    buffer.Add(500, " %s", std::string(300, 'y').c_str());
    EXPECT_EQ(buffer.Length(), 305);
    buffer.Truncate(2);
    EXPECT_STREQ(buffer.c_str(), "42");
    buffer.Truncate(10);
    EXPECT_STREQ(buffer.c_str(), "42");

    CRelayBuffer copy(buffer);
    EXPECT_TRUE(copy == buffer);
    copy.AddString("!");
    EXPECT_TRUE(copy != buffer);
    CRelayBuffer big;
    big.AddString(std::string(400, 'b').c_str());
    const char* heapText = big.c_str();
    CRelayBuffer moved(std::move(big));
    EXPECT_EQ(moved.c_str(), heapText) << "a move takes the heap text over";
    EXPECT_EQ(big.Length(), 0);
    copy = moved;
    EXPECT_TRUE(copy == moved);
    CRelayBuffer small;
    small.Add("short");
    moved = std::move(small);
    EXPECT_STREQ(moved.c_str(), "short");
    EXPECT_TRUE(moved.IsInline());
}

class CollectingLogger : public CRelayLogger
{
public:
    int WriteLogBytes(const char* subject, CRelayLogLevel level, const char* bytes, int length) override
    {
        calls.push_back(
            {subject == nullptr ? "" : subject, level, std::string(bytes, static_cast<size_t>(length))});
        return length;
    }
    struct Call
    {
        std::string subject;
        CRelayLogLevel level;
        std::string text;
    };
    std::vector<Call> calls;
};

TEST(RelayLog, FormatsAndHandsOn)
{
    EXPECT_EQ(RelayLog(static_cast<CRelayLogger*>(nullptr), "s", kRelayLogLevelError, "%d items", 12), 8);
    CCountedPtr<CollectingLogger> logger(new CollectingLogger());
    EXPECT_EQ(RelayLog(logger.get(), "pump", kRelayLogLevelWarning, "slow %s", "down"), 9);
    ASSERT_EQ(logger->calls.size(), 1u);
    const auto& call = logger->calls[0];
    EXPECT_EQ(std::tie(call.subject, call.level, call.text),
              std::make_tuple(std::string("pump"), kRelayLogLevelWarning, std::string("slow down")));
    const std::string huge(5000, 'z');
    CCountedPtr<CRelayLogger> asBase = logger;
    EXPECT_EQ(RelayLog(asBase, "s", kRelayLogLevelVerbose, "%s", huge.c_str()), 4095);
    CRelayBuffer buffer;
    buffer.Add("buffered");
    EXPECT_EQ(RelayLogBuffer(asBase, "b", kRelayLogLevelInformation, buffer), 8);
    EXPECT_EQ(logger->calls.back().text, "buffered");
}

TEST(RelayLog, GlobalLoggerDefaultsAndSwaps)
{
    CCountedPtr<CRelayLogger> global = GetGlobalRelayLogger();
    ASSERT_TRUE(global);
    EXPECT_EQ(global.get(), &GlobalRelayLogger::Instance());
    EXPECT_EQ(global->GetSubLogger(kRelayLogChannelDefault, "sub", true, true), nullptr);

    CCountedPtr<CollectingLogger> mine(new CollectingLogger());
    SetGlobalRelayLogger(mine);
    RelayLog(GetGlobalRelayLogger(), "g", kRelayLogLevelError, "to mine");
    EXPECT_EQ(mine->calls.size(), 1u);
    CCountedPtr<CRelayLogger> back = SetGlobalRelayLogger(nullptr);
    EXPECT_EQ(back.get(), mine.get());
    EXPECT_EQ(GetGlobalRelayLogger().get(), &GlobalRelayLogger::Instance());
}

TEST(CForwardingLogger, QueuesFiltersDropsAndForwardsAcrossTheWrap)
{
    int thrown = 0;
    try
    {
        CForwardingLogger logger(nullptr, kRelayLogLevelVerbose, 1000, false);
    }
    catch (int code)
    {
        thrown = code;
    }
    EXPECT_EQ(thrown, -1) << "the ring must be a power of two";
    for (const bool doubled : {false, true})
    {
        CCountedPtr<CollectingLogger> target(new CollectingLogger());
        CCountedPtr<CForwardingLogger> logger(
            new CForwardingLogger(target, kRelayLogLevelInformation, 64, doubled));
        EXPECT_EQ(logger->WriteLogBytes("s", kRelayLogLevelVerbose, "quiet", 5), 5)
            << "below the lowest level";
        EXPECT_EQ(logger->WriteLogBytes("s", kRelayLogLevelError, "x", 0), 0);
        EXPECT_EQ(logger->ForwardSome(), 0);
        EXPECT_TRUE(target->calls.empty());

        const std::string forty(40, 'a');
        EXPECT_EQ(logger->WriteLogBytes("s", kRelayLogLevelError, forty.c_str(), 40), 40);
        const std::string thirty(30, 'b');
        EXPECT_EQ(logger->WriteLogBytes("s", kRelayLogLevelError, thirty.c_str(), 30), 0) << "dropped whole";
        EXPECT_EQ(logger->ForwardSome(), 40);
        ASSERT_EQ(target->calls.size(), 1u);
        EXPECT_EQ(target->calls[0].text, forty);
        EXPECT_EQ(target->calls[0].subject, "");

        // This one wraps the ring's end: bytes 40..63 and 0..5.
        EXPECT_EQ(logger->WriteLogBytes("s", kRelayLogLevelError, thirty.c_str(), 30), 30);
        EXPECT_EQ(logger->ForwardSome(), 30);
        std::string joined;
        for (size_t i = 1; i < target->calls.size(); ++i)
        {
            joined += target->calls[i].text;
        }
        EXPECT_EQ(joined, thirty);
        EXPECT_EQ(target->calls.size(), doubled ? 2u : 3u) << "a doubled ring forwards the wrap in one call";
        EXPECT_EQ(logger->WriteLogBytes("s", kRelayLogLevelError, std::string(64, 'c').c_str(), 64), 0)
            << "a ring of 64 holds 63";
    }
}

TEST(CTimestampedLogger, StampsTagsAndTrims)
{
    CCountedPtr<CollectingLogger> target(new CollectingLogger());
    CCountedPtr<CTimestampedLogger> plain(new CTimestampedLogger(target, 0));
    CCountedPtr<CTimestampedLogger> tagged(new CTimestampedLogger(target, 2));
    CCountedPtr<CTimestampedLogger> warnings(new CTimestampedLogger(target, 1));

    EXPECT_EQ(plain->WriteLogBytes("s", kRelayLogLevelInformation, "\r\n\n", 3), 3);
    EXPECT_TRUE(target->calls.empty()) << "only line ends: nothing written";

    plain->WriteLogBytes("s", kRelayLogLevelInformation, "hello\r\n", 7);
    ASSERT_EQ(target->calls.size(), 1u);
    EXPECT_TRUE(StartsWithPattern(target->calls[0].text, "dd:dd:dd.dddd: hello")) << target->calls[0].text;
    EXPECT_EQ(target->calls[0].text.size(), 20u);

    const std::tuple<CTimestampedLogger*, CRelayLogLevel, std::string> tags[] = {
        {tagged.get(), kRelayLogLevelVerbose, "V: x"},
        {tagged.get(), kRelayLogLevelInformation, "I: x"},
        {tagged.get(), kRelayLogLevelWarning, "WARNING: x"},
        {tagged.get(), kRelayLogLevelError, "ERROR: x"},
        {warnings.get(), kRelayLogLevelInformation, "3: x"}};
    for (const auto& [logger, level, expected] : tags)
    {
        logger->WriteLogBytes("s", level, "x", 1);
        EXPECT_EQ(target->calls.back().text.substr(15), expected);
    }

    tagged->WriteLogBytes("s", kRelayLogLevelBinary, "\x01\x02\n", 3);
    EXPECT_EQ(target->calls.back().text, "\x01\x02\n") << "binary passes as it is";
    CCountedPtr<CTimestampedLogger> orphan(new CTimestampedLogger(nullptr, 2));
    EXPECT_EQ(orphan->WriteLogBytes("s", kRelayLogLevelError, "abc", 3), 3);
}
}  // namespace
