#pragma once

#include <atomic>

#include "platform/PowerEvents.h"

namespace tidemix::platform::linuxos
{

// Real-time scheduling for the calling thread: first from RealtimeKit on the
// system bus (as a desktop session grants it to unprivileged processes), else
// SCHED_FIFO straight from the kernel where the process may set it, else
// nothing. A refusal is logged once by each instance; LinuxPlatform keeps one
// for the whole process.
class RealtimeScheduling
{
public:
    // The priority asked for: below what audio servers give their own data
    // threads, which feed ours.
    static constexpr int kWantedPriority = 20;

    RealtimeGrant RequestForCurrentThread();

private:
    std::atomic<bool> refusalReported_{false};
};

}  // namespace tidemix::platform::linuxos
