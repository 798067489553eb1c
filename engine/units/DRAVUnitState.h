#pragma once

#include <cstdint>

// The life of a unit: made, initialised (paused) and running.
enum DRAVUnitState : int32_t
{
    kDRAVUnitStateUninitialized = 0,
    kDRAVUnitStatePaused = 1,
    kDRAVUnitStateRunning = 2,
};

// "Uninitialized", "Paused", "Running"; "???" outside the range.
inline const char* DRAVUnitStateToString(int32_t state)
{
    switch (state)
    {
        case kDRAVUnitStateUninitialized:
            return "Uninitialized";
        case kDRAVUnitStatePaused:
            return "Paused";
        case kDRAVUnitStateRunning:
            return "Running";
        default:
            return "???";
    }
}
