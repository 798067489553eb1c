#pragma once

#include <functional>
#include <string>

// Levels of diagnostic lines: 0 error, 1 warning, anything else plain.
enum eDbgPrintLevel : int
{
    kDbgPrintLevelError = 0,
    kDbgPrintLevelWarning = 1,
    kDbgPrintLevelInfo = 2,
};

// Every diagnostic line of the library passes through one handler. The host
// may install its own (a file logger, its UI); the default writes errors and
// warnings to stderr. Never call this on an audio or device thread: it may
// take a lock and allocate; hot paths go through DRAVSlowLog.
using DRAVLogHandler = std::function<void(eDbgPrintLevel level, const std::string& line)>;

void DRAVLogLine(eDbgPrintLevel level, const std::string& line);
void DRAVLogPrintf(eDbgPrintLevel level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Installs a handler and returns the former one. An empty handler restores the default.
DRAVLogHandler DRAVSetLogHandler(DRAVLogHandler handler);
