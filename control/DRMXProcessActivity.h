#pragma once

#include <memory>

// Tells the system, while mixing, that the process does latency-critical work
// for the user. Begin twice holds one activity; End ends it; destruction ends
// a running activity.
class DRMXProcessActivity
{
public:
    DRMXProcessActivity();
    virtual ~DRMXProcessActivity();
    DRMXProcessActivity(const DRMXProcessActivity&) = delete;
    DRMXProcessActivity& operator=(const DRMXProcessActivity&) = delete;

    void Begin();
    void End();
    bool IsActive() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};
