#include "portable-core/DRAVLogFolder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "portable-core/DplFile.h"
#include "support/PortableCoreTestFolder.h"

namespace
{
// Writes `content` to `name` in `folder` and sets its modification time.
void MakeFile(const PortableCoreTestFolder& folder, const std::string& name, const std::string& content,
              time_t seconds, long nanoseconds = 0)
{
    const std::string path = folder.Child(name);
    ASSERT_TRUE(DplFile_WriteTextToFile(path.c_str(), content.c_str()));
    const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

std::string Content(const PortableCoreTestFolder& folder, const std::string& name)
{
    std::ifstream in(folder.Child(name), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::vector<std::string> Names(const PortableCoreTestFolder& folder)
{
    std::vector<std::string> names;
    DplFile_EnumFilesInFolder(folder.Path(), names, true);
    std::sort(names.begin(), names.end());
    return names;
}

char LogNameBuffer[32];
const char* LogName(int n)
{
    if (n == 0)
    {
        return LOG_FILENAME;
    }
    snprintf(LogNameBuffer, sizeof(LogNameBuffer), "Trace%02d.log", n);
    return LogNameBuffer;
}

constexpr time_t kBase = 1700000000;

TEST(DRAVLogFolder, DeleteKeepsTheNewestAndLeavesForeignFilesAlone)
{
    PortableCoreTestFolder folder;
    // Twelve logs: Trace.log the newest, Trace11.log the oldest.
    for (int n = 0; n < 12; ++n)
    {
        MakeFile(folder, LogName(n), "log" + std::to_string(n), kBase - n * 60);
    }
    // The user's own files, older than every log.
    MakeFile(folder, "notes.txt", "mine", kBase - 100000);
    MakeFile(folder, "Trace.log.bak", "mine too", kBase - 100000);
    MakeFile(folder, "TraceX.log", "and this", kBase - 100000);
    ASSERT_TRUE(DplFile_CreateFolder(folder.Child("Trace99.log"), false));  // a folder, not a log

    DRAVLog_DeleteOldLogFiles(folder.Path(), 0);
    EXPECT_EQ(Names(folder).size(), 16u) << "maxFiles of 0 deletes nothing";

    DRAVLog_DeleteOldLogFiles(folder.Path(), 10);
    const std::vector<std::string> logs = DRAVLog_ListLogFilesOldestFirst(folder.Path());
    ASSERT_EQ(logs.size(), 9u);
    EXPECT_EQ(logs.front(), "Trace08.log");
    EXPECT_EQ(logs.back(), "Trace.log");
    for (int n = 9; n < 12; ++n)
    {
        EXPECT_FALSE(DplFile_ItemExists(folder.Child(LogName(n)))) << LogName(n);
    }
    EXPECT_EQ(Content(folder, "notes.txt"), "mine");
    EXPECT_EQ(Content(folder, "Trace.log.bak"), "mine too");
    EXPECT_EQ(Content(folder, "TraceX.log"), "and this");
    EXPECT_TRUE(DplFile_FolderExists(folder.Child("Trace99.log")));

    // Fewer than maxFiles: nothing goes.
    DRAVLog_DeleteOldLogFiles(folder.Path(), 10);
    EXPECT_EQ(DRAVLog_ListLogFilesOldestFirst(folder.Path()).size(), 9u);
}

TEST(DRAVLogFolder, LeftoversOfAnInterruptedRotationAreNeverOverwritten)
{
    PortableCoreTestFolder folder;
    MakeFile(folder, "Trace.log", "new", kBase);
    MakeFile(folder, "Trace01.log", "old", kBase - 10);
    MakeFile(folder, "Trace02.log_TEMP", "left over", kBase - 20);
    DRAVLog_RenameOldLogFiles(folder.Path());
    EXPECT_EQ(Content(folder, "Trace01.log"), "new");
    EXPECT_EQ(Content(folder, "Trace02.log"), "old");
    EXPECT_EQ(Content(folder, "Trace02.log_TEMP"), "left over");
    EXPECT_EQ(Names(folder), (std::vector<std::string>{"Trace01.log", "Trace02.log", "Trace02.log_TEMP"}));
}

TEST(DRAVLogFolder, RenameNumbersNewestFirstAndReachesTwoDigitsWithoutPadding)
{
    PortableCoreTestFolder folder;
    for (int n = 0; n < 12; ++n)
    {
        MakeFile(folder, LogName(n), "log" + std::to_string(n), kBase - n);
    }
    MakeFile(folder, "readme.txt", "foreign", kBase + 5);
    DRAVLog_RenameOldLogFiles(folder.Path());
    for (int n = 0; n < 12; ++n)
    {
        EXPECT_EQ(Content(folder, LogName(n + 1)), "log" + std::to_string(n));
    }
    EXPECT_FALSE(DplFile_ItemExists(folder.Child("Trace.log")));
    EXPECT_EQ(Content(folder, "readme.txt"), "foreign");
    EXPECT_EQ(Names(folder).size(), 13u);
}

TEST(DRAVLogFolder, EqualTimesRotateInAFixedOrder)
{
    PortableCoreTestFolder folder;
    // All written in the same instant: the session numbers decide.
    MakeFile(folder, "Trace.log", "s0", kBase, 500);
    MakeFile(folder, "Trace01.log", "s1", kBase, 500);
    MakeFile(folder, "Trace02.log", "s2", kBase, 500);
    MakeFile(folder, "Trace10.log", "s10", kBase, 500);
    EXPECT_EQ(DRAVLog_ListLogFilesOldestFirst(folder.Path()),
              (std::vector<std::string>{"Trace10.log", "Trace02.log", "Trace01.log", "Trace.log"}));
    DRAVLog_RenameOldLogFiles(folder.Path());
    EXPECT_EQ(Content(folder, "Trace01.log"), "s0");
    EXPECT_EQ(Content(folder, "Trace02.log"), "s1");
    EXPECT_EQ(Content(folder, "Trace03.log"), "s2");
    EXPECT_EQ(Content(folder, "Trace04.log"), "s10");

    // Nanoseconds count before the names.
    MakeFile(folder, "Trace01.log", "s0", kBase, 100);
    EXPECT_EQ(DRAVLog_ListLogFilesOldestFirst(folder.Path()).front(), "Trace01.log");
}

TEST(DRAVLogFolder, InitCreatesTheFolderOrRotates)
{
    PortableCoreTestFolder folder;
    const std::string logs = folder.Child("a/b/Logs");
    DRAVLog::DRAVInitLogFile(logs, LOG_FILENAME, 10);
    EXPECT_TRUE(DplFile_FolderExists(logs));

    for (int n = 0; n < 11; ++n)
    {
        MakeFile(folder, std::string("a/b/Logs/") + LogName(n), std::to_string(n), kBase - n);
    }
    DRAVLog::DRAVInitLogFile(logs, LOG_FILENAME, 10);
    std::vector<std::string> names;
    DplFile_EnumFilesInFolder(logs, names);
    std::sort(names.begin(), names.end());
    ASSERT_EQ(names.size(), 9u);
    EXPECT_EQ(names.front(), "Trace01.log");
    EXPECT_EQ(names.back(), "Trace09.log");
    EXPECT_FALSE(DplFile_ItemExists(logs + "/Trace.log")) << "free for the new session";
}
}  // namespace
