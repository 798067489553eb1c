#include "engine/units/DRAVQueueStatistics.h"

#include <cinttypes>
#include <cstdio>

std::string DRAVQueueStatistics::GetContentString(const std::string& prefix) const
{
    constexpr double kBytesPerMB = 1024.0 * 1024.0;
    char text[512];
    snprintf(text, sizeof(text),
             "%s%s%d \t(%s): %.2f fps %" PRId64 " buffers with %.2f MB (max: %" PRId64
             " buffers, %.2f MB)\n"
             "%s%s - %s => %s",
             prefix.c_str(), isInput ? "IN  " : "OUT ", pinNumber, DRAVPinTypeString(pinType),
             framesPerSecond, buffers, static_cast<double>(bytes) / kBytesPerMB, maxBuffers,
             static_cast<double>(maxBytes) / kBytesPerMB, prefix.c_str(), firstTimestamp.ToString().c_str(),
             lastTimestamp.ToString().c_str(),
             DRAVTimestamp((lastTimestamp - firstTimestamp).Get()).ToString().c_str());
    return text;
}
