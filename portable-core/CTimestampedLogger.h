#pragma once

#include "portable-core/CRelayLogger.h"

// Puts the local time and a level tag in front of each line and hands it to
// a target. Binary and level-0 bytes pass unchanged.
class CTimestampedLogger : public CRelayLogger
{
public:
    // Format 0: no tags; 1: "WARNING: " and "ERROR: "; 2: also "V: " and "I: ".
    // In formats 1 and 2 a level without a tag shows as its number.
    CTimestampedLogger(CCountedPtr<CRelayLogger> target, int format);

    int WriteLogBytes(const char* subject, CRelayLogLevel level, const char* bytes, int length) override;

    // The tag of `level` in `format`, appended to `line`.
    static void AppendTag(CRelayBuffer& line, int format, CRelayLogLevel level);

private:
    CCountedPtr<CRelayLogger> target_;
    int format_;
};
