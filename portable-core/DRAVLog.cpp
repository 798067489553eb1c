#include "portable-core/DRAVLog.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <shared_mutex>

namespace
{
void DefaultHandler(eDbgPrintLevel level, const std::string& line)
{
    if (level == kDbgPrintLevelError || level == kDbgPrintLevelWarning)
    {
        fprintf(stderr, "tidemix %s %s\n", level == kDbgPrintLevelError ? "ERR" : "wrn", line.c_str());
    }
}

struct LogHub
{
    std::shared_mutex mutex;
    DRAVLogHandler handler = DefaultHandler;
};

LogHub& Hub()
{
    static LogHub* hub = new LogHub();  // never destroyed: lines may come during static destruction
    return *hub;
}
}  // namespace

void DRAVLogLine(eDbgPrintLevel level, const std::string& line)
{
    LogHub& hub = Hub();
    std::shared_lock lock(hub.mutex);
    hub.handler(level, line);
}

void DRAVLogPrintf(eDbgPrintLevel level, const char* format, ...)
{
    char buffer[512] = {};
    va_list args;
    va_start(args, format);
    vsnprintf(buffer, sizeof(buffer), format, args);
    va_end(args);
    DRAVLogLine(level, buffer);
}

DRAVLogHandler DRAVSetLogHandler(DRAVLogHandler handler)
{
    LogHub& hub = Hub();
    std::unique_lock lock(hub.mutex);
    DRAVLogHandler former = std::move(hub.handler);
    hub.handler = handler ? std::move(handler) : DefaultHandler;
    return former;
}
