#include "portable-core/KVCTypedProperty.h"

namespace kvc_detail
{
void LogAccessorFailure(const std::string& propertyName, const char* what, const char* reason)
{
    DRAVLogPrintf(kDbgPrintLevelError, "Property <%s>: %s failed: %s", propertyName.c_str(), what, reason);
}
}  // namespace kvc_detail
