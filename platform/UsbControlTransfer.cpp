#include "platform/UsbControlTransfer.h"

namespace tidemix::platform
{
const char* UsbStatusName(UsbStatus status)
{
    switch (status)
    {
        case UsbStatus::Ok:
            return "ok";
        case UsbStatus::Stall:
            return "stall";
        case UsbStatus::Timeout:
            return "timeout";
        case UsbStatus::NoDevice:
            return "no device";
        case UsbStatus::Overflow:
            return "overflow";
        case UsbStatus::InvalidParam:
            return "invalid parameter";
        case UsbStatus::Access:
            return "access denied";
        case UsbStatus::IoError:
            return "i/o error";
    }
    return "unknown";
}

}  // namespace tidemix::platform
