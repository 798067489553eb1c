#pragma once

#include <chrono>
#include <memory>

// The waits of a firmware update (seconds before and between its steps, 50
// and 100 ms between polls). Tests give an update a faster clock.
class DRMXFirmwareUpdateClock
{
public:
    virtual ~DRMXFirmwareUpdateClock() = default;
    virtual void SleepFor(std::chrono::milliseconds duration) = 0;

    // The real one.
    static std::shared_ptr<DRMXFirmwareUpdateClock> System();
};
