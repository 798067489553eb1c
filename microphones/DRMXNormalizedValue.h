#pragma once

#include <cmath>

// A value limited to 0.0 to 1.0. NaN reads as 0.0, so that a broken reading
// never reaches a device as a level.
inline double cutToNormalizedValue(double value)
{
    if (std::isnan(value) || value < 0.0)
    {
        return 0.0;
    }
    return value > 1.0 ? 1.0 : value;
}
