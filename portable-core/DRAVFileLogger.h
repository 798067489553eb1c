#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "portable-core/CDplThreadMutex.h"
#include "portable-core/DRAVLog.h"

// A text log: each line carries the local time and a level tag ("ERR",
// "wrn" or three blanks). One file per session, named after the local time
// it was opened at, e.g. "2026-11-19 01-54-10.log"; at most ten such files
// stay in the folder. Other files of the folder are left alone.
class DRAVFileLogger
{
public:
    static constexpr int kMaxFiles = 10;

    DRAVFileLogger() = default;
    virtual ~DRAVFileLogger();
    DRAVFileLogger(const DRAVFileLogger&) = delete;
    DRAVFileLogger& operator=(const DRAVFileLogger&) = delete;

    // Creates the folder if needed, deletes the oldest session logs so that
    // the new one makes at most ten, and opens the new one. `name` is not part
    // of the file name, which is the time. Lines are appended, so two opens
    // within one second share a file rather than lose the first.
    bool Open(const std::string& folder, const std::string& name);
    void Close();
    bool IsOpen();
    const std::string& GetPath() const { return path_; }

    void Trace(eDbgPrintLevel level, const char* format, ...) __attribute__((format(printf, 3, 4)));
    void TraceLine(eDbgPrintLevel level, const char* message);

    // A handler for DRAVSetLogHandler that writes every library line to `logger`.
    static DRAVLogHandler MakeLogHandler(std::shared_ptr<DRAVFileLogger> logger);

    // True for names this logger gives its files ("YYYY-MM-DD HH-MM-SS.log").
    static bool IsSessionLogName(const std::string& name);

private:
    CDplThreadMutex mutex_;
    FILE* file_ = nullptr;
    std::string path_;
};
