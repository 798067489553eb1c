#include "platform/linux/LogindPowerEvents.h"

#if TIDEMIX_HAVE_SYSTEMD
#include <poll.h>
#include <sys/eventfd.h>
#include <time.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/SdBus.h"
#include "portable-core/DRAVLog.h"
#include "portable-core/DplThreadName.h"
#endif

namespace tidemix::platform::linuxos
{
#if TIDEMIX_HAVE_SYSTEMD
namespace
{
constexpr const char* kLogindName = "org.freedesktop.login1";
constexpr const char* kLogindPath = "/org/freedesktop/login1";
constexpr const char* kLogindManager = "org.freedesktop.login1.Manager";
constexpr const char* kOwnerChangedRule =
    "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
    "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg0='org.freedesktop.login1'";
constexpr const char* kDelayWhy = "Stops mixing before the machine sleeps";

// Milliseconds until sd-bus's next deadline (an absolute CLOCK_MONOTONIC time), or -1.
int PollTimeoutMs(sd_bus* bus)
{
    uint64_t until = 0;
    if (sd_bus_get_timeout(bus, &until) < 0 || until == UINT64_MAX)
    {
        return -1;
    }
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const uint64_t nowUsec =
        static_cast<uint64_t>(now.tv_sec) * 1'000'000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
    if (until <= nowUsec)
    {
        return 0;
    }
    // Rounded up, so the wait never ends just before the deadline.
    const uint64_t ms = (until - nowUsec + 999) / 1000;
    return ms > 60'000 ? 60'000 : static_cast<int>(ms);
}
}  // namespace

struct LogindPowerEvents::State
{
    // Held while listeners run, so RemoveListener waits for a running call;
    // recursive so a listener may remove itself.
    std::recursive_mutex listenerMutex;
    std::map<uint64_t, Listener> listeners;
    uint64_t nextListener = 1;

    std::once_flag startOnce;
    std::thread events;
    std::atomic<bool> stopping{false};
    // Tells the event thread to stop or to take or drop the delay lock.
    UniqueFd wake;

    // The event thread's own; nothing else touches these.
    SdBusPtr bus;
    SdBusSlotPtr sleepMatch;
    SdBusSlotPtr ownerMatch;
    UniqueFd delayLock;
    bool logindPresent = false;
    bool asleep = false;
    bool absenceReported = false;

    void Start()
    {
        wake.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        if (!wake.valid())
        {
            DRAVLogPrintf(kDbgPrintLevelWarning, "linux power: no sleep or wake events: eventfd: %s",
                          std::strerror(errno));
            return;
        }
        events = std::thread([this] { Run(); });
    }

    void Stop()
    {
        stopping.store(true);
        Poke();
        if (events.joinable())
        {
            events.join();
        }
    }

    void Poke()
    {
        if (wake.valid())
        {
            const uint64_t one = 1;
            // Nonblocking; a full counter already means "look again".
            [[maybe_unused]] const ssize_t ignored = ::write(wake.get(), &one, sizeof(one));
        }
    }

    bool HasListeners()
    {
        std::lock_guard lock(listenerMutex);
        return !listeners.empty();
    }

    void Run()
    {
        DplSetCurrentThreadName("power.events");
        if (Connect())
        {
            SyncLock();
            Loop();
        }
        // Released here, on the thread that used them.
        delayLock.reset();
        sleepMatch.reset();
        ownerMatch.reset();
        bus.reset();
    }

    // Until stopped or the bus is gone; without work it waits in poll.
    void Loop()
    {
        while (!stopping.load())
        {
            const int r = sd_bus_process(bus.get(), nullptr);
            if (r < 0 || sd_bus_is_open(bus.get()) <= 0)
            {
                const std::string why =
                    std::string("lost the system bus: ") + std::strerror(r < 0 ? -r : ENOTCONN);
                ReportAbsent(why.c_str());
                break;
            }
            if (r > 0)
            {
                continue;  // more may be queued
            }
            pollfd fds[2] = {{sd_bus_get_fd(bus.get()), static_cast<short>(sd_bus_get_events(bus.get())), 0},
                             {wake.get(), POLLIN, 0}};
            if (poll(fds, 2, PollTimeoutMs(bus.get())) < 0 && errno != EINTR)
            {
                DRAVLogPrintf(kDbgPrintLevelWarning, "linux power: poll: %s; no more sleep or wake events",
                              std::strerror(errno));
                break;
            }
            if ((fds[1].revents & POLLIN) != 0)
            {
                uint64_t count = 0;
                [[maybe_unused]] const ssize_t ignored = ::read(wake.get(), &count, sizeof(count));
                SyncLock();
            }
        }
    }

    bool Connect()
    {
        std::string whyNot;
        bus = OpenSystemBus(&whyNot);
        if (!bus)
        {
            DRAVLogPrintf(kDbgPrintLevelWarning, "linux power: no sleep or wake events: %s", whyNot.c_str());
            return false;
        }
        sd_bus_slot* slot = nullptr;
        int r = sd_bus_match_signal(bus.get(), &slot, kLogindName, kLogindPath, kLogindManager,
                                    "PrepareForSleep", &State::OnPrepareForSleep, this);
        sleepMatch.reset(slot);
        if (r >= 0)
        {
            slot = nullptr;
            r = sd_bus_add_match(bus.get(), &slot, kOwnerChangedRule, &State::OnOwnerChanged, this);
            ownerMatch.reset(slot);
        }
        if (r < 0)
        {
            DRAVLogPrintf(kDbgPrintLevelWarning,
                          "linux power: no sleep or wake events: cannot watch logind: %s", std::strerror(-r));
            return false;
        }
        // After the matches, so that an arrival in between is not missed.
        SdBusError error;
        sd_bus_message* raw = nullptr;
        r = sd_bus_call_method(bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                               "org.freedesktop.DBus", "NameHasOwner", error.get(), &raw, "s", kLogindName);
        SdBusMessagePtr reply(raw);
        int has = 0;
        if (r >= 0)
        {
            r = sd_bus_message_read(reply.get(), "b", &has);
        }
        if (r < 0)
        {
            DRAVLogPrintf(kDbgPrintLevelWarning, "linux power: no sleep or wake events: %s",
                          error.Describe(r).c_str());
            return false;
        }
        logindPresent = has != 0;
        if (!logindPresent)
        {
            ReportAbsent("logind is not running");
        }
        return true;
    }

    bool BusAnswers()
    {
        SdBusError error;
        return sd_bus_call_method(bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                  "org.freedesktop.DBus.Peer", "Ping", error.get(), nullptr, "") >= 0;
    }

    void ReportAbsent(const char* why)
    {
        if (!absenceReported)
        {
            absenceReported = true;
            DRAVLogPrintf(kDbgPrintLevelWarning, "linux power: no sleep or wake events: %s", why);
        }
    }

    // Holds the delay lock exactly while someone listens, logind is there and
    // no sleep is under way.
    void SyncLock()
    {
        const bool want = HasListeners() && logindPresent && !asleep;
        if (want && !delayLock.valid())
        {
            std::string whyNot;
            delayLock = TakeInhibitor(bus.get(), "sleep", kDelayWhy, "delay", &whyNot);
            if (!delayLock.valid())
            {
                const std::string why = "cannot hold back sleep: " + whyNot;
                ReportAbsent(why.c_str());
            }
        }
        else if (!want && delayLock.valid())
        {
            delayLock.reset();
        }
    }

    void Deliver(PowerEvent event)
    {
        std::lock_guard lock(listenerMutex);
        std::vector<uint64_t> ids;
        for (const auto& entry : listeners)
        {
            ids.push_back(entry.first);
        }
        for (uint64_t id : ids)
        {
            // A listener removed by an earlier one isn't called.
            auto it = listeners.find(id);
            if (it != listeners.end())
            {
                Listener listener = it->second;
                listener(event);
            }
        }
    }

    static int OnPrepareForSleep(sd_bus_message* message, void* user, sd_bus_error*)
    {
        auto* self = static_cast<State*>(user);
        int start = 0;
        if (sd_bus_message_read(message, "b", &start) < 0)
        {
            return 0;
        }
        if (start != 0)
        {
            self->Deliver(PowerEvent::WillSleep);
            // Every listener has stopped what must not run across the sleep:
            // only now may the machine go.
            self->asleep = true;
            self->delayLock.reset();
        }
        else
        {
            self->asleep = false;
            self->SyncLock();
            self->Deliver(PowerEvent::HasWoken);
        }
        return 0;
    }

    static int OnOwnerChanged(sd_bus_message* message, void* user, sd_bus_error*)
    {
        auto* self = static_cast<State*>(user);
        const char* name = nullptr;
        const char* oldOwner = nullptr;
        const char* newOwner = nullptr;
        if (sd_bus_message_read(message, "sss", &name, &oldOwner, &newOwner) < 0)
        {
            return 0;
        }
        const bool present = newOwner != nullptr && *newOwner != '\0';
        if (present == self->logindPresent)
        {
            return 0;
        }
        self->logindPresent = present;
        if (present)
        {
            self->absenceReported = false;
            self->asleep = false;
            DRAVLogLine(kDbgPrintLevelInfo, "linux power: logind is back; sleep and wake are reported again");
            self->SyncLock();
        }
        else
        {
            // The lock died with its holder.
            self->delayLock.reset();
            // A bus that is shutting down drops logind first: then the bus's
            // loss is what the one line tells.
            if (self->BusAnswers())
            {
                self->ReportAbsent("logind has left the system bus");
            }
        }
        return 0;
    }
};

LogindPowerEvents::LogindPowerEvents() : state_(std::make_unique<State>()) {}

LogindPowerEvents::~LogindPowerEvents()
{
    state_->Stop();
}

uint64_t LogindPowerEvents::AddListener(Listener listener)
{
    std::call_once(state_->startOnce, [this] { state_->Start(); });
    uint64_t id = 0;
    bool first = false;
    {
        std::lock_guard lock(state_->listenerMutex);
        id = state_->nextListener++;
        first = state_->listeners.empty();
        state_->listeners.emplace(id, std::move(listener));
    }
    if (first)
    {
        state_->Poke();
    }
    return id;
}

void LogindPowerEvents::RemoveListener(uint64_t id)
{
    bool last = false;
    {
        std::lock_guard lock(state_->listenerMutex);
        last = state_->listeners.erase(id) > 0 && state_->listeners.empty();
    }
    if (last)
    {
        state_->Poke();
    }
}

#else

struct LogindPowerEvents::State
{
};

LogindPowerEvents::LogindPowerEvents() = default;
LogindPowerEvents::~LogindPowerEvents() = default;

// A build without sd-bus has no source of sleep and wake.
uint64_t LogindPowerEvents::AddListener(Listener)
{
    return 0;
}

void LogindPowerEvents::RemoveListener(uint64_t) {}

#endif
}  // namespace tidemix::platform::linuxos
