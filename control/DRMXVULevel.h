#pragma once

// A meter value from a power in decibels: -50 dB and below read 0.0, 0 dB and
// above read 1.0, linear in decibels between them (NaN reads 0.0).
inline double DRMXMeterValueFromDecibels(double decibels)
{
    const double value = (decibels + 50.0) / 50.0;
    if (!(value > 0.0))
    {
        return 0.0;
    }
    return value > 1.0 ? 1.0 : value;
}
