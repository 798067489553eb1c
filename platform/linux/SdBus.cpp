#if TIDEMIX_HAVE_SYSTEMD
#include "platform/linux/SdBus.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

namespace tidemix::platform::linuxos
{
namespace
{
constexpr const char* kLogindName = "org.freedesktop.login1";
constexpr const char* kLogindPath = "/org/freedesktop/login1";
constexpr const char* kLogindManager = "org.freedesktop.login1.Manager";
// Who holds the lock, as logind lists it.
constexpr const char* kWho = "TidemixApi";
}  // namespace

std::string SdBusError::Describe(int code) const
{
    if (sd_bus_error_is_set(&error_) && error_.message != nullptr)
    {
        return error_.message;
    }
    return std::strerror(code < 0 ? -code : code);
}

SdBusPtr OpenSystemBus(std::string* whyNot)
{
    sd_bus* bus = nullptr;
    const int r = sd_bus_open_system(&bus);
    if (r < 0)
    {
        if (whyNot)
        {
            *whyNot = std::string("cannot reach the system bus: ") + std::strerror(-r);
        }
        return nullptr;
    }
    return SdBusPtr(bus);
}

UniqueFd TakeInhibitor(sd_bus* bus, const char* what, const char* why, const char* mode, std::string* whyNot)
{
    SdBusError error;
    sd_bus_message* raw = nullptr;
    SdBusMessagePtr call;
    int r = sd_bus_message_new_method_call(bus, &raw, kLogindName, kLogindPath, kLogindManager, "Inhibit");
    call.reset(raw);
    if (r >= 0)
    {
        r = sd_bus_message_append(call.get(), "ssss", what, kWho, why, mode);
    }
    SdBusMessagePtr reply;
    if (r >= 0)
    {
        raw = nullptr;
        r = sd_bus_call(bus, call.get(), kBusCallTimeoutUsec, error.get(), &raw);
        reply.reset(raw);
    }
    int fd = -1;
    if (r >= 0)
    {
        r = sd_bus_message_read(reply.get(), "h", &fd);
    }
    if (r < 0)
    {
        if (whyNot)
        {
            *whyNot = error.Describe(r);
        }
        return UniqueFd();
    }
    // The message owns the descriptor it carries: keep a copy of our own.
    UniqueFd lock(fcntl(fd, F_DUPFD_CLOEXEC, 3));
    if (!lock.valid() && whyNot)
    {
        *whyNot = std::string("cannot keep the lock: ") + std::strerror(errno);
    }
    return lock;
}

}  // namespace tidemix::platform::linuxos
#endif
