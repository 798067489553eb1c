#include "portable-core/DRAVFileLogger.h"

#include <algorithm>
#include <cstdarg>
#include <ctime>
#include <vector>

#include "portable-core/DplFile.h"
#include "portable-core/DplTime.h"

namespace
{
const char* LevelTag(eDbgPrintLevel level)
{
    switch (level)
    {
        case kDbgPrintLevelError:
            return "ERR";
        case kDbgPrintLevelWarning:
            return "wrn";
        default:
            return "   ";
    }
}
}  // namespace

DRAVFileLogger::~DRAVFileLogger()
{
    Close();
}

bool DRAVFileLogger::IsSessionLogName(const std::string& name)
{
    // "YYYY-MM-DD HH-MM-SS.log": 19 characters of time and the extension.
    static const char kPattern[] = "dddd-dd-dd dd-dd-dd.log";
    if (name.size() != sizeof(kPattern) - 1)
    {
        return false;
    }
    for (size_t i = 0; i < name.size(); ++i)
    {
        const char want = kPattern[i];
        if (want == 'd' ? (name[i] < '0' || name[i] > '9') : name[i] != want)
        {
            return false;
        }
    }
    return true;
}

bool DRAVFileLogger::Open(const std::string& folder, const std::string&)
{
    CDplScopedLock lock(mutex_);
    Close();
    if (!DplFile_FolderExists(folder) && !DplFile_CreateFolder(folder, true))
    {
        return false;
    }
    std::vector<std::string> names;
    DplFile_EnumFilesInFolder(folder, names, false);
    names.erase(
        std::remove_if(names.begin(), names.end(), [](const std::string& n) { return !IsSessionLogName(n); }),
        names.end());
    // Names are times, so the sorted order is oldest first.
    std::sort(names.begin(), names.end());
    for (size_t i = 0; names.size() - i >= static_cast<size_t>(kMaxFiles); ++i)
    {
        DplFile_Delete(DplFile_AddPathComponent(folder, names[i]));
    }

    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    char stamp[64];
    strftime(stamp, sizeof(stamp), "%Y-%m-%d %H-%M-%S", &local);
    char fileName[80];
    snprintf(fileName, sizeof(fileName), "%s.log", stamp);
    path_ = DplFile_AddPathComponent(folder, fileName);
    file_ = fopen(path_.c_str(), "a");
    return file_ != nullptr;
}

void DRAVFileLogger::Close()
{
    CDplScopedLock lock(mutex_);
    if (file_ != nullptr)
    {
        fclose(file_);
        file_ = nullptr;
    }
}

bool DRAVFileLogger::IsOpen()
{
    CDplScopedLock lock(mutex_);
    return file_ != nullptr;
}

void DRAVFileLogger::Trace(eDbgPrintLevel level, const char* format, ...)
{
    char message[512];
    va_list args;
    va_start(args, format);
    vsnprintf(message, sizeof(message), format, args);
    va_end(args);
    TraceLine(level, message);
}

void DRAVFileLogger::TraceLine(eDbgPrintLevel level, const char* message)
{
    char time[32];
    DplTime_GetCurrentTimeString(time, sizeof(time));
    CDplScopedLock lock(mutex_);
    if (file_ != nullptr)
    {
        fprintf(file_, "%s %s %s\n", time, LevelTag(level), message == nullptr ? "" : message);
        fflush(file_);
    }
}

DRAVLogHandler DRAVFileLogger::MakeLogHandler(std::shared_ptr<DRAVFileLogger> logger)
{
    return [logger = std::move(logger)](eDbgPrintLevel level, const std::string& line)
    {
        if (logger)
        {
            logger->TraceLine(level, line.c_str());
        }
    };
}
