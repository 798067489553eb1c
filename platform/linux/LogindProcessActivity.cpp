#include "platform/linux/LogindProcessActivity.h"

#include "portable-core/DRAVLog.h"
#if TIDEMIX_HAVE_SYSTEMD
#include "platform/linux/SdBus.h"
#endif

namespace tidemix::platform::linuxos
{

struct LogindProcessActivity::Lock
{
#if TIDEMIX_HAVE_SYSTEMD
    UniqueFd fd;
#endif
};

LogindProcessActivity::LogindProcessActivity() = default;
LogindProcessActivity::~LogindProcessActivity() = default;

void LogindProcessActivity::Begin(const std::string& reason)
{
    std::lock_guard lock(mutex_);
    if (active_.load())
    {
        return;
    }
    active_.store(true);
    std::string whyNot;
#if TIDEMIX_HAVE_SYSTEMD
    // A connection of its own for the one call: Begin is rare, and logind
    // keeps the lock for as long as the descriptor stays open, not the
    // connection.
    if (SdBusPtr bus = OpenSystemBus(&whyNot))
    {
        UniqueFd fd = TakeInhibitor(bus.get(), "idle", reason.c_str(), "block", &whyNot);
        if (fd.valid())
        {
            lock_ = std::make_unique<Lock>();
            lock_->fd = std::move(fd);
            return;
        }
    }
#else
    (void)reason;
    whyNot = "built without sd-bus";
#endif
    if (!unavailableReported_)
    {
        unavailableReported_ = true;
        DRAVLogPrintf(kDbgPrintLevelWarning, "linux activity: the machine may idle while mixing: %s",
                      whyNot.c_str());
    }
}

void LogindProcessActivity::End()
{
    std::lock_guard lock(mutex_);
    lock_.reset();
    active_.store(false);
}

}  // namespace tidemix::platform::linuxos
