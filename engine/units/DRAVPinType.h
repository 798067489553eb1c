#pragma once

#include <cstdint>

// The kinds of pin, and so of the queue behind it.
enum DRAVPinType : int32_t
{
    kDRAVPinTypeNone = 0,
    kDRAVPinTypePassthrough = 1,
    kDRAVPinTypeThreaded = 2,
    kDRAVPinTypeThreadedBlocking = 3,
    kDRAVPinTypePull = 4,
    kDRAVPinTypePullBlocking = 5,
    kDRAVPinTypePullRingBuffer = 6,
};

// "None", "Passthrough", ... "PullRingBuffer"; "???" outside the table.
inline const char* DRAVPinTypeString(int32_t type)
{
    switch (type)
    {
        case kDRAVPinTypeNone:
            return "None";
        case kDRAVPinTypePassthrough:
            return "Passthrough";
        case kDRAVPinTypeThreaded:
            return "Threaded";
        case kDRAVPinTypeThreadedBlocking:
            return "ThreadedBlocking";
        case kDRAVPinTypePull:
            return "Pull";
        case kDRAVPinTypePullBlocking:
            return "PullBlocking";
        case kDRAVPinTypePullRingBuffer:
            return "PullRingBuffer";
        default:
            return "???";
    }
}
