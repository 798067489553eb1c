#include "portable-core/CTimestampedLogger.h"

#include <ctime>

CTimestampedLogger::CTimestampedLogger(CCountedPtr<CRelayLogger> target, int format)
    : target_(std::move(target)), format_(format)
{
}

void CTimestampedLogger::AppendTag(CRelayBuffer& line, int format, CRelayLogLevel level)
{
    if (format != 1 && format != 2)
    {
        return;
    }
    switch (level)
    {
        case kRelayLogLevelWarning:
            line.AddString("WARNING: ");
            return;
        case kRelayLogLevelError:
            line.AddString("ERROR: ");
            return;
        case kRelayLogLevelVerbose:
            if (format == 2)
            {
                line.AddString("V: ");
                return;
            }
            break;
        case kRelayLogLevelInformation:
            if (format == 2)
            {
                line.AddString("I: ");
                return;
            }
            break;
        default:
            break;
    }
    line.Add("%d: ", static_cast<int>(level));
}

int CTimestampedLogger::WriteLogBytes(const char* subject, CRelayLogLevel level, const char* bytes,
                                      int length)
{
    if (!target_)
    {
        return length;
    }
    if (static_cast<int>(level) <= kRelayLogLevelBinary)
    {
        return target_->WriteLogBytes(subject, level, bytes, length);
    }
    if (length <= 0 || bytes == nullptr)
    {
        return length;
    }
    int textLength = length;
    while (textLength > 0 && (bytes[textLength - 1] == '\r' || bytes[textLength - 1] == '\n'))
    {
        --textLength;
    }
    if (textLength == 0)
    {
        return length;
    }
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    CRelayBuffer line;
    line.Add("%02d:%02d:%02d.%04d: ", local.tm_hour, local.tm_min, local.tm_sec,
             static_cast<int>(now.tv_nsec / 1000 / 1000));
    AppendTag(line, format_, level);
    line.AddString(bytes, textLength);
    RelayLogBuffer(target_, subject, level, line);
    return length;
}
