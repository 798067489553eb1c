#include "platform/linux/RealtimeScheduling.h"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include "portable-core/DRAVLog.h"
#if TIDEMIX_HAVE_SYSTEMD
#include "platform/linux/SdBus.h"
#endif

namespace tidemix::platform::linuxos
{
namespace
{
#if TIDEMIX_HAVE_SYSTEMD
constexpr const char* kRtkitName = "org.freedesktop.RealtimeKit1";
constexpr const char* kRtkitPath = "/org/freedesktop/RealtimeKit1";

// Asks RealtimeKit; false, with the reason, when it is not there or says no.
bool AskRealtimeKit(int wanted, std::string* whyNot)
{
    SdBusPtr bus = OpenSystemBus(whyNot);
    if (!bus)
    {
        return false;
    }
    // A missing RealtimeKit must not hold up the audio thread's start.
    sd_bus_set_method_call_timeout(bus.get(), kBusCallTimeoutUsec);
    SdBusError error;
    int32_t maxPriority = 0;
    int r = sd_bus_get_property_trivial(bus.get(), kRtkitName, kRtkitPath, kRtkitName, "MaxRealtimePriority",
                                        error.get(), 'i', &maxPriority);
    int64_t maxRtTimeUsec = 0;
    if (r >= 0)
    {
        r = sd_bus_get_property_trivial(bus.get(), kRtkitName, kRtkitPath, kRtkitName, "RTTimeUSecMax",
                                        error.get(), 'x', &maxRtTimeUsec);
    }
    if (r < 0)
    {
        *whyNot = "RealtimeKit: " + error.Describe(r);
        return false;
    }
    const int priority = std::min(wanted, static_cast<int>(maxPriority));
    if (priority < 1 || maxRtTimeUsec <= 0)
    {
        *whyNot = "RealtimeKit grants no real-time priority";
        return false;
    }
    // RealtimeKit refuses a process that may run unbounded on the processor:
    // RLIMIT_RTTIME must not exceed its RTTimeUSecMax.
    rlimit limit{};
    if (getrlimit(RLIMIT_RTTIME, &limit) != 0)
    {
        *whyNot = std::string("RLIMIT_RTTIME: ") + std::strerror(errno);
        return false;
    }
    const auto cap = static_cast<rlim_t>(maxRtTimeUsec);
    if (limit.rlim_max == RLIM_INFINITY || limit.rlim_max > cap)
    {
        limit.rlim_max = cap;
    }
    limit.rlim_cur = std::min(limit.rlim_cur, limit.rlim_max);
    if (setrlimit(RLIMIT_RTTIME, &limit) != 0)
    {
        *whyNot = std::string("RLIMIT_RTTIME: ") + std::strerror(errno);
        return false;
    }
    const auto thread = static_cast<uint64_t>(gettid());
    r = sd_bus_call_method(bus.get(), kRtkitName, kRtkitPath, kRtkitName, "MakeThreadRealtime", error.get(),
                           nullptr, "tu", thread, static_cast<uint32_t>(priority));
    if (r < 0)
    {
        *whyNot = "RealtimeKit: " + error.Describe(r);
        return false;
    }
    return true;
}
#endif

// SCHED_FIFO from the kernel, within RLIMIT_RTPRIO unless the process is
// privileged (the kernel decides; a refusal leaves the thread as it was).
bool AskKernel(int wanted, std::string* whyNot)
{
    sched_param param{};
    param.sched_priority = std::min(wanted, sched_get_priority_max(SCHED_FIFO));
    rlimit limit{};
    if (getrlimit(RLIMIT_RTPRIO, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY && limit.rlim_cur > 0 &&
        limit.rlim_cur < static_cast<rlim_t>(param.sched_priority))
    {
        param.sched_priority = static_cast<int>(limit.rlim_cur);
    }
    const int error = pthread_setschedparam(pthread_self(), SCHED_FIFO, &param);
    if (error != 0)
    {
        *whyNot = std::string("SCHED_FIFO: ") + std::strerror(error);
        return false;
    }
    return true;
}
}  // namespace

RealtimeGrant RealtimeScheduling::RequestForCurrentThread()
{
    std::string rtkitWhyNot = "built without sd-bus";
#if TIDEMIX_HAVE_SYSTEMD
    if (AskRealtimeKit(kWantedPriority, &rtkitWhyNot))
    {
        return RealtimeGrant::RealtimeKit;
    }
#endif
    std::string kernelWhyNot;
    if (AskKernel(kWantedPriority, &kernelWhyNot))
    {
        return RealtimeGrant::SchedFifo;
    }
    if (!refusalReported_.exchange(true))
    {
        // A warning, not an error: the mix runs on, with a larger risk of gaps.
        DRAVLogPrintf(kDbgPrintLevelWarning,
                      "linux platform: the mix thread runs without real-time scheduling (%s; %s)",
                      rtkitWhyNot.c_str(), kernelWhyNot.c_str());
    }
    return RealtimeGrant::Refused;
}

}  // namespace tidemix::platform::linuxos
