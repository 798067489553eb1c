#pragma once

#include <cstdarg>

#include "portable-core/CCountedObject.h"
#include "portable-core/CRelayBuffer.h"

// Levels of relay logging.
enum CRelayLogLevel : int
{
    kRelayLogLevelBinary = 1,
    kRelayLogLevelVerbose = 2,
    kRelayLogLevelInformation = 3,
    kRelayLogLevelWarning = 4,
    kRelayLogLevelError = 5,
};

// Names a sub-log of a logger.
enum CRelayLogChannel : int
{
    kRelayLogChannelDefault = 0,
};

// Receives log bytes at a level; loggers chain into filters and forwarders.
// Every operation does nothing by default.
class CRelayLogger : public virtual CCountedObject
{
public:
    ~CRelayLogger() override = default;

    // Returns the bytes taken.
    virtual int WriteLogBytes(const char* subject, CRelayLogLevel level, const char* bytes, int length);
    virtual CCountedPtr<CRelayLogger> GetSubLogger(CRelayLogChannel channel, const char* name, bool create,
                                                   bool inherit);
    virtual void CrashWorthyError() {}
    virtual int ReadLogBytes(void* buffer, int length);
    virtual int MiscQuery(void* result, unsigned int query, int size, const void* argument);
};

// The default logger: takes every byte and keeps none. One instance lives for
// the whole process.
class GlobalRelayLogger : public CRelayLogger
{
public:
    static GlobalRelayLogger& Instance();
    int WriteLogBytes(const char* subject, CRelayLogLevel level, const char* bytes, int length) override;
    void rc_LastRefDestroyed() const override {}

private:
    GlobalRelayLogger() = default;
};

// The process's relay logger; the first call installs the default.
CCountedPtr<CRelayLogger> GetGlobalRelayLogger();
// Installs a logger (null restores the default) and returns the former one.
CCountedPtr<CRelayLogger> SetGlobalRelayLogger(CCountedPtr<CRelayLogger> newLogger);

// Format on the stack (at most 4,095 bytes) and hand the text to the logger.
// A null logger is allowed: the result is then the text's length.
int RelayLog(CRelayLogger* logger, const char* subject, CRelayLogLevel level, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
int RelayLog(const CCountedPtr<CRelayLogger>& logger, const char* subject, CRelayLogLevel level,
             const char* format, ...) __attribute__((format(printf, 4, 5)));
int vRelayLog(CRelayLogger* logger, const char* subject, CRelayLogLevel level, const char* format,
              va_list args);
int RelayLogBuffer(CRelayLogger* logger, const char* subject, CRelayLogLevel level,
                   const CRelayBuffer& buffer);
inline int RelayLogBuffer(const CCountedPtr<CRelayLogger>& logger, const char* subject, CRelayLogLevel level,
                          const CRelayBuffer& buffer)
{
    return RelayLogBuffer(logger.get(), subject, level, buffer);
}
