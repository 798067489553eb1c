#include "portable-core/CRelayLogger.h"

#include <cstdio>

#include "portable-core/CBarebonesSpinLocker.h"

namespace
{
constexpr int kRelayLineBytes = 4096;

// Guards the global logger pointer; each access is a few instructions.
CBarebonesSpinLock gGlobalLoggerLock = 0;

CCountedPtr<CRelayLogger>& GlobalLoggerSlot()
{
    // Never destroyed: loggers may be asked for during static destruction.
    static auto* slot = new CCountedPtr<CRelayLogger>();
    return *slot;
}
}  // namespace

int CRelayLogger::WriteLogBytes(const char*, CRelayLogLevel, const char*, int)
{
    return 0;
}

CCountedPtr<CRelayLogger> CRelayLogger::GetSubLogger(CRelayLogChannel, const char*, bool, bool)
{
    return nullptr;
}

int CRelayLogger::ReadLogBytes(void*, int)
{
    return 0;
}

int CRelayLogger::MiscQuery(void*, unsigned int, int, const void*)
{
    return 0;
}

GlobalRelayLogger& GlobalRelayLogger::Instance()
{
    static auto* instance = new GlobalRelayLogger();
    return *instance;
}

int GlobalRelayLogger::WriteLogBytes(const char*, CRelayLogLevel, const char*, int length)
{
    return length;
}

CCountedPtr<CRelayLogger> GetGlobalRelayLogger()
{
    CBarebonesSpinLocker guard(gGlobalLoggerLock, true);
    CCountedPtr<CRelayLogger>& slot = GlobalLoggerSlot();
    if (!slot)
    {
        slot = &GlobalRelayLogger::Instance();
    }
    return slot;
}

CCountedPtr<CRelayLogger> SetGlobalRelayLogger(CCountedPtr<CRelayLogger> newLogger)
{
    if (!newLogger)
    {
        newLogger = &GlobalRelayLogger::Instance();
    }
    CCountedPtr<CRelayLogger> former;
    {
        CBarebonesSpinLocker guard(gGlobalLoggerLock, true);
        CCountedPtr<CRelayLogger>& slot = GlobalLoggerSlot();
        former = slot ? slot : CCountedPtr<CRelayLogger>(&GlobalRelayLogger::Instance());
        slot = std::move(newLogger);
    }
    // The former logger may die here, outside the lock.
    return former;
}

int vRelayLog(CRelayLogger* logger, const char* subject, CRelayLogLevel level, const char* format,
              va_list args)
{
    char line[kRelayLineBytes];
    int length = vsnprintf(line, sizeof(line), format == nullptr ? "" : format, args);
    if (length < 0)
    {
        return 0;
    }
    if (length >= kRelayLineBytes)
    {
        length = kRelayLineBytes - 1;
    }
    return logger == nullptr ? length : logger->WriteLogBytes(subject, level, line, length);
}

int RelayLog(CRelayLogger* logger, const char* subject, CRelayLogLevel level, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const int result = vRelayLog(logger, subject, level, format, args);
    va_end(args);
    return result;
}

int RelayLog(const CCountedPtr<CRelayLogger>& logger, const char* subject, CRelayLogLevel level,
             const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const int result = vRelayLog(logger.get(), subject, level, format, args);
    va_end(args);
    return result;
}

int RelayLogBuffer(CRelayLogger* logger, const char* subject, CRelayLogLevel level,
                   const CRelayBuffer& buffer)
{
    return logger == nullptr ? buffer.Length()
                             : logger->WriteLogBytes(subject, level, buffer.c_str(), buffer.Length());
}
