#pragma once

#include <cstdint>

// A width and a height in whole units (pixels, cells).
struct DRCSizeInteger
{
    int32_t width = 0;
    int32_t height = 0;

    bool operator==(const DRCSizeInteger& other) const = default;
};
