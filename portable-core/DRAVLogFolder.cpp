#include "portable-core/DRAVLogFolder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "portable-core/DplFile.h"

namespace
{
struct LogEntry
{
    std::string name;
    int number = 0;  // 0 for "Trace.log"
    int64_t seconds = 0;
    int64_t nanoseconds = 0;
};

// "Trace.log" gives 0, "Trace<digits>.log" its number; anything else -1.
int LogNumber(const std::string& name)
{
    const std::string base = LOG_BASEFILENAME;
    const std::string extension = LOG_FILEEXTENSION;
    if (name.size() < base.size() + extension.size() || name.compare(0, base.size(), base) != 0 ||
        name.compare(name.size() - extension.size(), extension.size(), extension) != 0)
    {
        return -1;
    }
    const std::string digits = name.substr(base.size(), name.size() - base.size() - extension.size());
    if (digits.empty())
    {
        return 0;
    }
    if (digits.size() > 6 ||
        !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
    {
        return -1;
    }
    return std::stoi(digits);
}

std::vector<LogEntry> ListLogs(const std::string& folder)
{
    std::vector<std::string> names;
    DplFile_EnumFilesInFolder(folder, names, false);
    std::vector<LogEntry> logs;
    for (const std::string& name : names)
    {
        const int number = LogNumber(name);
        struct stat info
        {
        };
        if (number < 0 || lstat(DplFile_AddPathComponent(folder, name).c_str(), &info) != 0 ||
            !S_ISREG(info.st_mode))
        {
            continue;
        }
        logs.push_back({name, number, info.st_mtim.tv_sec, info.st_mtim.tv_nsec});
    }
    std::sort(logs.begin(), logs.end(),
              [](const LogEntry& a, const LogEntry& b)
              {
                  if (a.seconds != b.seconds)
                  {
                      return a.seconds < b.seconds;
                  }
                  if (a.nanoseconds != b.nanoseconds)
                  {
                      return a.nanoseconds < b.nanoseconds;
                  }
                  if (a.number != b.number)
                  {
                      return a.number > b.number;
                  }
                  return a.name > b.name;
              });
    return logs;
}

constexpr char kTemporarySuffix[] = "_TEMP";

bool RenameWithoutReplacing(const std::string& folder, const std::string& from, const std::string& to)
{
    return renameat2(AT_FDCWD, DplFile_AddPathComponent(folder, from).c_str(), AT_FDCWD,
                     DplFile_AddPathComponent(folder, to).c_str(), RENAME_NOREPLACE) == 0;
}

std::string NumberedName(size_t n)
{
    char name[64];
    snprintf(name, sizeof(name), "%s%02zu%s", LOG_BASEFILENAME, n, LOG_FILEEXTENSION);
    return name;
}
}  // namespace

std::vector<std::string> DRAVLog_ListLogFilesOldestFirst(const std::string& folder)
{
    std::vector<std::string> names;
    for (const LogEntry& log : ListLogs(folder))
    {
        names.push_back(log.name);
    }
    return names;
}

void DRAVLog_DeleteOldLogFiles(const std::string& folder, int64_t maxFiles)
{
    if (maxFiles < 1)
    {
        return;
    }
    const std::vector<std::string> logs = DRAVLog_ListLogFilesOldestFirst(folder);
    if (static_cast<int64_t>(logs.size()) < maxFiles)
    {
        return;
    }
    const size_t excess = logs.size() - static_cast<size_t>(maxFiles - 1);
    for (size_t i = 0; i < excess; ++i)
    {
        DplFile_Delete(DplFile_AddPathComponent(folder, logs[i]));
    }
}

void DRAVLog_RenameOldLogFiles(const std::string& folder)
{
    const std::vector<std::string> logs = DRAVLog_ListLogFilesOldestFirst(folder);
    const size_t count = logs.size();
    // Two passes through temporary names, so that a name is never taken while
    // in use. No rename ever replaces a file: a leftover of an interrupted
    // rotation that holds a temporary name makes this run pick another one.
    std::vector<std::pair<std::string, std::string>> moved;  // temporary, final
    for (size_t i = 0; i < count; ++i)
    {
        const std::string final = NumberedName(count - i);
        std::string temporary = final + kTemporarySuffix;
        bool done = RenameWithoutReplacing(folder, logs[i], temporary);
        for (int attempt = 1; !done && errno == EEXIST && attempt < 100; ++attempt)
        {
            temporary = final + kTemporarySuffix + std::to_string(attempt);
            done = RenameWithoutReplacing(folder, logs[i], temporary);
        }
        if (done)
        {
            moved.emplace_back(temporary, final);
        }
    }
    for (auto it = moved.rbegin(); it != moved.rend(); ++it)
    {
        RenameWithoutReplacing(folder, it->first, it->second);
    }
}

void DRAVLog::DRAVInitLogFile(const std::string& folder, const std::string&, int64_t maxFiles)
{
    if (DplFile_FolderExists(folder))
    {
        DRAVLog_DeleteOldLogFiles(folder, maxFiles);
        DRAVLog_RenameOldLogFiles(folder);
    }
    else
    {
        DplFile_CreateFolder(folder, true);
    }
}
