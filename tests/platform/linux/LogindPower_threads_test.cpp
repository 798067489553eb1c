// The linux backend's logind services (sleep and wake, the idle inhibitor) and
// its real-time requests, against python3-dbusmock on a private bus that
// scripts/with-logind-mock.sh starts and hands over as the system bus.
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/LinuxPlatform.h"
#include "platform/linux/LogindPowerEvents.h"
#include "platform/linux/LogindProcessActivity.h"
#include "platform/linux/RealtimeScheduling.h"
#include "support/LogCapture.h"
#include "support/ThreadsTestSupport.h"

extern char** environ;

namespace
{
using threads_test::WaitUntil;
using tidemix::platform::PowerEvent;
using tidemix::platform::RealtimeGrant;
using tidemix::platform::linuxos::LogindPowerEvents;
using tidemix::platform::linuxos::LogindProcessActivity;
using tidemix::platform::linuxos::RealtimeScheduling;
using tidemix::test::LogCapture;

constexpr const char* kLogind = "org.freedesktop.login1";
constexpr const char* kLogindPath = "/org/freedesktop/login1";
constexpr const char* kManager = "org.freedesktop.login1.Manager";
constexpr const char* kMock = "org.freedesktop.DBus.Mock";
constexpr const char* kRtkit = "org.freedesktop.RealtimeKit1";
constexpr const char* kRtkitPath = "/org/freedesktop/RealtimeKit1";

struct Inhibitor
{
    std::string what, who, why, mode;
};

struct BusCloser
{
    void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};
struct MessageUnref
{
    void operator()(sd_bus_message* m) const { sd_bus_message_unref(m); }
};
using MessagePtr = std::unique_ptr<sd_bus_message, MessageUnref>;

// The test's own client of the private bus: what logind's mock holds, and
// the signals it sends on request.
class TestBus
{
public:
    TestBus()
    {
        sd_bus* bus = nullptr;
        const int r = sd_bus_open_system(&bus);
        bus_.reset(bus);
        EXPECT_GE(r, 0) << "cannot reach the private bus";
    }

    bool NameHasOwner(const char* name)
    {
        MessagePtr reply = Call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                "NameHasOwner", "s", name);
        int has = 0;
        return reply && sd_bus_message_read(reply.get(), "b", &has) >= 0 && has != 0;
    }

    std::vector<Inhibitor> Inhibitors()
    {
        std::vector<Inhibitor> found;
        MessagePtr reply = Call(kLogind, kLogindPath, kManager, "ListInhibitors", "");
        if (!reply || sd_bus_message_enter_container(reply.get(), 'a', "(ssssuu)") < 0)
        {
            ADD_FAILURE() << "ListInhibitors failed";
            return found;
        }
        const char *what, *who, *why, *mode;
        uint32_t uid, pid;
        while (sd_bus_message_read(reply.get(), "(ssssuu)", &what, &who, &why, &mode, &uid, &pid) > 0)
        {
            found.push_back({what, who, why, mode});
        }
        return found;
    }

    size_t Count(const std::string& what, const std::string& mode)
    {
        size_t n = 0;
        for (const Inhibitor& inhibitor : Inhibitors())
        {
            n += inhibitor.what == what && inhibitor.mode == mode ? 1 : 0;
        }
        return n;
    }
    size_t DelayLocks() { return Count("sleep", "delay"); }
    size_t IdleLocks() { return Count("idle", "block"); }

    // PrepareForSleep as logind sends it (from the name's owner).
    void EmitPrepareForSleep(bool start)
    {
        MessagePtr reply = Call(kLogind, kLogindPath, kMock, "EmitSignal", "sssav", kManager,
                                "PrepareForSleep", "b", 1, "b", static_cast<int>(start));
        ASSERT_TRUE(reply) << "EmitSignal failed";
    }

    // The same signal from the test's own connection: what any client could send.
    void ForgePrepareForSleep(bool start)
    {
        ASSERT_GE(sd_bus_emit_signal(bus_.get(), kLogindPath, kManager, "PrepareForSleep", "b",
                                     static_cast<int>(start)),
                  0);
        ASSERT_GE(sd_bus_flush(bus_.get()), 0);
    }

    template <typename... Args>
    MessagePtr Call(const char* destination, const char* path, const char* interface, const char* member,
                    const char* types, Args... args)
    {
        sd_bus_error error = SD_BUS_ERROR_NULL;
        sd_bus_message* reply = nullptr;
        const int r = sd_bus_call_method(bus_.get(), destination, path, interface, member, &error, &reply,
                                         types, args...);
        if (r < 0)
        {
            last_error_ = error.message != nullptr ? error.message : "call failed";
        }
        sd_bus_error_free(&error);
        return MessagePtr(r >= 0 ? reply : nullptr);
    }
    const std::string& LastError() const { return last_error_; }

private:
    std::unique_ptr<sd_bus, BusCloser> bus_;
    std::string last_error_;
};

pid_t PidFromEnvironment(const char* name)
{
    const char* value = getenv(name);
    return value != nullptr ? static_cast<pid_t>(atoi(value)) : 0;
}

// A process the test starts (a second mock) and ends.
class Spawned
{
public:
    explicit Spawned(std::vector<std::string> args)
    {
        std::vector<char*> argv;
        for (std::string& arg : args)
        {
            argv.push_back(arg.data());
        }
        argv.push_back(nullptr);
        if (posix_spawn(&pid_, argv[0], nullptr, nullptr, argv.data(), environ) != 0)
        {
            pid_ = 0;
        }
    }
    ~Spawned()
    {
        if (pid_ > 0)
        {
            kill(pid_, SIGTERM);
            waitpid(pid_, nullptr, 0);
        }
    }
    Spawned(const Spawned&) = delete;
    Spawned& operator=(const Spawned&) = delete;
    bool Started() const { return pid_ > 0; }

private:
    pid_t pid_ = 0;
};

// Events as the listeners heard them, in order.
class Journal
{
public:
    void Add(const std::string& entry)
    {
        std::lock_guard lock(mutex_);
        entries_.push_back(entry);
    }
    std::vector<std::string> Entries() const
    {
        std::lock_guard lock(mutex_);
        return entries_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> entries_;
};

const char* Name(PowerEvent event)
{
    return event == PowerEvent::WillSleep ? "WillSleep" : "HasWoken";
}

class LogindTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        // Never the machine's own bus: only inside scripts/with-logind-mock.sh.
        ASSERT_NE(PidFromEnvironment("TIDEMIX_LOGIND_MOCK_PID"), 0)
            << "run through scripts/with-logind-mock.sh (ctest does)";
        bus_.emplace();
        ASSERT_TRUE(bus_->NameHasOwner(kLogind));
    }

    // Ends the mock logind the wrapper started and waits until its name is free.
    void KillLogind()
    {
        ASSERT_EQ(kill(PidFromEnvironment("TIDEMIX_LOGIND_MOCK_PID"), SIGTERM), 0);
        ASSERT_TRUE(WaitUntil([&] { return !bus_->NameHasOwner(kLogind); }));
    }

    std::optional<TestBus> bus_;
    LogCapture log_;
};

// ---- Sleep and wake ----

using LogindPowerEventsTest = LogindTest;

TEST_F(LogindPowerEventsTest, SleepIsAllowedOnlyAfterEveryListenerReturned)
{
    LogindPowerEvents power;
    Journal journal;
    std::atomic<bool> blocking{false};
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::mutex threadsMutex;
    std::vector<std::thread::id> threads;
    power.AddListener(
        [&](PowerEvent event)
        {
            {
                std::lock_guard lock(threadsMutex);
                threads.push_back(std::this_thread::get_id());
            }
            journal.Add(std::string("first:") + Name(event));
        });
    power.AddListener(
        [&](PowerEvent event)
        {
            {
                std::lock_guard lock(threadsMutex);
                threads.push_back(std::this_thread::get_id());
            }
            if (event == PowerEvent::WillSleep)
            {
                blocking.store(true);
                released.wait();
            }
            journal.Add(std::string("second:") + Name(event));
        });
    ASSERT_TRUE(WaitUntil([&] { return bus_->DelayLocks() == 1; }));
    // Two listeners, one lock.
    const std::vector<Inhibitor> held = bus_->Inhibitors();
    ASSERT_EQ(held.size(), 1u);
    EXPECT_EQ(held[0].who, "TidemixApi");

    bus_->EmitPrepareForSleep(true);
    ASSERT_TRUE(WaitUntil([&] { return blocking.load(); }));
    // A listener is still stopping its work: the machine must wait.
    EXPECT_EQ(bus_->DelayLocks(), 1u);
    release.set_value();
    EXPECT_TRUE(WaitUntil([&] { return bus_->DelayLocks() == 0; }));

    EXPECT_EQ(journal.Entries(), (std::vector<std::string>{"first:WillSleep", "second:WillSleep"}));
    std::lock_guard lock(threadsMutex);
    ASSERT_EQ(threads.size(), 2u);
    EXPECT_EQ(threads[0], threads[1]);
    EXPECT_NE(threads[0], std::this_thread::get_id());
}

TEST_F(LogindPowerEventsTest, WakeTakesANewLockBeforeHasWokenAndOnlyLogindIsHeard)
{
    LogindPowerEvents power;
    Journal journal;
    std::atomic<int> locksAtWake{-1};
    power.AddListener(
        [&](PowerEvent event)
        {
            if (event == PowerEvent::HasWoken)
            {
                TestBus mine;  // the test's connection belongs to the main thread
                locksAtWake.store(static_cast<int>(mine.DelayLocks()));
            }
            journal.Add(Name(event));
        });
    ASSERT_TRUE(WaitUntil([&] { return bus_->DelayLocks() == 1; }));
    bus_->EmitPrepareForSleep(true);
    ASSERT_TRUE(WaitUntil([&] { return bus_->DelayLocks() == 0; }));
    // The forgery goes out first on the same connection: had it been taken,
    // it would have been heard before logind's wake.
    bus_->ForgePrepareForSleep(true);
    bus_->EmitPrepareForSleep(false);
    ASSERT_TRUE(WaitUntil([&] { return journal.Entries().size() >= 2; }));

    EXPECT_EQ(journal.Entries(), (std::vector<std::string>{"WillSleep", "HasWoken"}));
    EXPECT_EQ(locksAtWake.load(), 1);
    EXPECT_EQ(bus_->DelayLocks(), 1u);
}

TEST_F(LogindPowerEventsTest, RemovalWaitsForARunningListenerAndAListenerMayRemoveItself)
{
    LogindPowerEvents power;
    std::atomic<bool> blocking{false};
    std::atomic<bool> blockerFinished{false};
    std::atomic<int> blockerCalls{0};
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    const uint64_t blocker = power.AddListener(
        [&](PowerEvent)
        {
            blockerCalls.fetch_add(1);
            blocking.store(true);
            released.wait();
            blockerFinished.store(true);
        });
    std::atomic<uint64_t> selfId{0};
    std::atomic<int> selfCalls{0};
    selfId.store(power.AddListener(
        [&](PowerEvent)
        {
            selfCalls.fetch_add(1);
            power.RemoveListener(selfId.load());
        }));
    Journal journal;
    power.AddListener([&](PowerEvent event) { journal.Add(Name(event)); });
    ASSERT_TRUE(WaitUntil([&] { return bus_->DelayLocks() == 1; }));

    bus_->EmitPrepareForSleep(true);
    ASSERT_TRUE(WaitUntil([&] { return blocking.load(); }));
    std::atomic<bool> finishedWhenRemoved{false};
    std::thread remover(
        [&]
        {
            power.RemoveListener(blocker);
            finishedWhenRemoved.store(blockerFinished.load());
        });
    release.set_value();
    remover.join();
    EXPECT_TRUE(finishedWhenRemoved.load());

    ASSERT_TRUE(WaitUntil([&] { return bus_->DelayLocks() == 0; }));
    bus_->EmitPrepareForSleep(false);
    ASSERT_TRUE(WaitUntil([&] { return journal.Entries().size() == 2; }));
    EXPECT_EQ(journal.Entries(), (std::vector<std::string>{"WillSleep", "HasWoken"}));
    EXPECT_EQ(blockerCalls.load(), 1);
    EXPECT_EQ(selfCalls.load(), 1);
}

// ---- Without logind ----

TEST_F(LogindPowerEventsTest, WithoutLogindListenersAreKeptAndOneLineSaysWhy)
{
    KillLogind();
    LogindPowerEvents power;
    Journal journal;
    const uint64_t id = power.AddListener([&](PowerEvent event) { journal.Add(Name(event)); });
    EXPECT_NE(id, 0u);
    ASSERT_TRUE(WaitUntil([&] { return log_.Count("linux power:") >= 1; }));
    EXPECT_EQ(log_.Count("logind is not running"), 1u);
    power.RemoveListener(id);
    power.AddListener([&](PowerEvent event) { journal.Add(Name(event)); });
    EXPECT_EQ(log_.Count("linux power:"), 1u);
    EXPECT_EQ(journal.Entries().size(), 0u);
}

TEST(LogindPowerEventsNoBus, WithoutASystemBusListenersAreKeptAndOneLineSaysWhy)
{
    ASSERT_NE(PidFromEnvironment("TIDEMIX_LOGIND_MOCK_PID"), 0) << "run through scripts/with-logind-mock.sh";
    const std::string former = getenv("DBUS_SYSTEM_BUS_ADDRESS");
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/tidemix-no-bus", 1);
    LogCapture log;
    {
        LogindPowerEvents power;
        const uint64_t id = power.AddListener([](PowerEvent) {});
        EXPECT_NE(id, 0u);
        EXPECT_TRUE(WaitUntil([&] { return log.Count("cannot reach the system bus") == 1; }));
        power.RemoveListener(id);
    }
    setenv("DBUS_SYSTEM_BUS_ADDRESS", former.c_str(), 1);
    EXPECT_EQ(log.Count("linux power:"), 1u);
}

TEST_F(LogindPowerEventsTest, LogindLeavingIsOneLineAndItsReturnBringsTheLockBack)
{
    LogindPowerEvents power;
    const uint64_t id = power.AddListener([](PowerEvent) {});
    ASSERT_TRUE(WaitUntil([&] { return bus_->DelayLocks() == 1; }));
    KillLogind();
    ASSERT_TRUE(WaitUntil([&] { return log_.Count("logind has left") >= 1; }));
    EXPECT_EQ(log_.Count("logind has left"), 1u);

    Spawned logind({"/usr/bin/python3", "-m", "dbusmock", "--template", "logind", "--system"});
    ASSERT_TRUE(logind.Started());
    ASSERT_TRUE(WaitUntil([&] { return bus_->NameHasOwner(kLogind); }));
    EXPECT_TRUE(WaitUntil([&] { return bus_->DelayLocks() == 1; }));
    power.RemoveListener(id);
    EXPECT_TRUE(WaitUntil([&] { return bus_->DelayLocks() == 0; }));
    EXPECT_EQ(log_.Count("logind has left"), 1u);
}

TEST_F(LogindPowerEventsTest, LosingTheBusIsOneLineAndRemovalStillReturns)
{
    LogindPowerEvents power;
    const uint64_t id = power.AddListener([](PowerEvent) {});
    ASSERT_TRUE(WaitUntil([&] { return bus_->DelayLocks() == 1; }));
    ASSERT_EQ(kill(PidFromEnvironment("TIDEMIX_TEST_BUS_PID"), SIGTERM), 0);
    ASSERT_TRUE(WaitUntil([&] { return log_.Count("lost the system bus") >= 1; }));
    power.RemoveListener(id);
    power.AddListener([](PowerEvent) {});
    EXPECT_EQ(log_.Count("linux power:"), 1u);
}

// ---- The idle inhibitor ----

using LogindProcessActivityTest = LogindTest;

TEST_F(LogindProcessActivityTest, BeginHoldsOneIdleLockUntilEnd)
{
    LogindProcessActivity activity;
    activity.End();  // without Begin: nothing
    EXPECT_FALSE(activity.IsActive());

    activity.Begin("mixing two streams");
    activity.Begin("mixing again");
    EXPECT_TRUE(activity.IsActive());
    // Logind has it once Inhibit has answered.
    const std::vector<Inhibitor> held = bus_->Inhibitors();
    ASSERT_EQ(held.size(), 1u);
    EXPECT_EQ(held[0].what, "idle");
    EXPECT_EQ(held[0].mode, "block");
    EXPECT_EQ(held[0].why, "mixing two streams");
    EXPECT_EQ(held[0].who, "TidemixApi");

    activity.End();
    EXPECT_FALSE(activity.IsActive());
    EXPECT_TRUE(WaitUntil([&] { return bus_->IdleLocks() == 0; }));
    activity.End();

    activity.Begin("mixing once more");
    EXPECT_EQ(bus_->IdleLocks(), 1u);
    activity.End();
    EXPECT_TRUE(WaitUntil([&] { return bus_->IdleLocks() == 0; }));
    EXPECT_EQ(log_.Count("linux activity:"), 0u);
}

TEST_F(LogindProcessActivityTest, WithoutLogindItTracksActivityAndLogsOnce)
{
    KillLogind();
    LogindProcessActivity activity;
    for (int round = 0; round < 2; ++round)
    {
        activity.Begin("mixing");
        EXPECT_TRUE(activity.IsActive());
        activity.End();
        EXPECT_FALSE(activity.IsActive());
    }
    EXPECT_EQ(log_.Count("linux activity:"), 1u);
}

// ---- Real-time scheduling ----

struct Policy
{
    int policy = -1;
    int priority = -1;
    bool operator==(const Policy&) const = default;
};

Policy CurrentPolicy()
{
    Policy now;
    sched_param param{};
    pthread_getschedparam(pthread_self(), &now.policy, &param);
    now.priority = param.sched_priority;
    return now;
}

// Takes CAP_SYS_NICE out of the calling thread's effective set (capabilities
// belong to threads), so the kernel treats it like an unprivileged process.
bool DropNiceCapability()
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2] = {};
    if (syscall(SYS_capget, &header, data) != 0)
    {
        return false;
    }
    data[CAP_TO_INDEX(CAP_SYS_NICE)].effective &= ~CAP_TO_MASK(CAP_SYS_NICE);
    return syscall(SYS_capset, &header, data) == 0;
}

class RealtimeOnLogindBusTest : public LogindTest
{
protected:
    // Runs `body` on a thread of its own, so the test's thread keeps its policy.
    template <typename Body>
    void OnAThread(Body body)
    {
        std::thread thread(body);
        thread.join();
    }
};

TEST_F(RealtimeOnLogindBusTest, ARefusalLeavesTheThreadAsItWasAndIsLoggedOnce)
{
    ASSERT_FALSE(bus_->NameHasOwner(kRtkit));
    rlimit former{};
    ASSERT_EQ(getrlimit(RLIMIT_RTPRIO, &former), 0);
    rlimit none = former;
    none.rlim_cur = 0;
    ASSERT_EQ(setrlimit(RLIMIT_RTPRIO, &none), 0);

    RealtimeScheduling scheduling;
    RealtimeGrant first = RealtimeGrant::NotOffered;
    RealtimeGrant second = RealtimeGrant::NotOffered;
    Policy before, after;
    OnAThread(
        [&]
        {
            ASSERT_TRUE(DropNiceCapability());
            before = CurrentPolicy();
            first = scheduling.RequestForCurrentThread();
            second = scheduling.RequestForCurrentThread();
            after = CurrentPolicy();
        });
    setrlimit(RLIMIT_RTPRIO, &former);

    EXPECT_EQ(first, RealtimeGrant::Refused);
    EXPECT_EQ(second, RealtimeGrant::Refused);
    EXPECT_EQ(after, before);
    EXPECT_EQ(log_.Count("without real-time scheduling"), 1u);
}

TEST_F(RealtimeOnLogindBusTest, RealtimeKitIsAskedFirstWithinItsLimits)
{
    Spawned rtkit({"/usr/bin/python3", "-m", "dbusmock", "--system", kRtkit, kRtkitPath, kRtkit});
    ASSERT_TRUE(rtkit.Started());
    ASSERT_TRUE(WaitUntil([&] { return bus_->NameHasOwner(kRtkit); }));
    // As RealtimeKit's defaults would be, with a lower priority ceiling.
    ASSERT_TRUE(bus_->Call(kRtkit, kRtkitPath, kMock, "AddProperty", "ssv", kRtkit, "MaxRealtimePriority",
                           "i", int32_t{9}))
        << bus_->LastError();
    ASSERT_TRUE(bus_->Call(kRtkit, kRtkitPath, kMock, "AddProperty", "ssv", kRtkit, "RTTimeUSecMax", "x",
                           int64_t{200000}))
        << bus_->LastError();
    ASSERT_TRUE(bus_->Call(kRtkit, kRtkitPath, kMock, "AddMethod", "sssss", kRtkit, "MakeThreadRealtime",
                           "tu", "", ""))
        << bus_->LastError();

    RealtimeScheduling scheduling;
    RealtimeGrant grant = RealtimeGrant::NotOffered;
    pid_t thread = 0;
    OnAThread(
        [&]
        {
            thread = gettid();
            grant = scheduling.RequestForCurrentThread();
        });
    EXPECT_EQ(grant, RealtimeGrant::RealtimeKit);

    MessagePtr calls = bus_->Call(kRtkit, kRtkitPath, kMock, "GetMethodCalls", "s", "MakeThreadRealtime");
    ASSERT_TRUE(calls) << bus_->LastError();
    ASSERT_GE(sd_bus_message_enter_container(calls.get(), 'a', "(tav)"), 0);
    ASSERT_GT(sd_bus_message_enter_container(calls.get(), 'r', "tav"), 0);
    uint64_t when = 0;
    ASSERT_GE(sd_bus_message_read(calls.get(), "t", &when), 0);
    uint64_t asked = 0;
    uint32_t priority = 0;
    ASSERT_GE(sd_bus_message_read(calls.get(), "av", 2, "t", &asked, "u", &priority), 0);
    EXPECT_EQ(asked, static_cast<uint64_t>(thread));
    EXPECT_EQ(priority, 9u);
    rlimit rtTime{};
    ASSERT_EQ(getrlimit(RLIMIT_RTTIME, &rtTime), 0);
    EXPECT_LE(rtTime.rlim_max, 200000u);
    EXPECT_LE(rtTime.rlim_cur, rtTime.rlim_max);
    EXPECT_EQ(log_.Count("without real-time scheduling"), 0u);
}

TEST_F(RealtimeOnLogindBusTest, TheLinuxPlatformHandsOutTheLogindServicesAndAsksTheKernelWithoutRealtimeKit)
{
    setenv("PIPEWIRE_REMOTE", "tidemix-no-such-daemon", 1);  // no PipeWire daemon is reached
    tidemix::platform::linuxos::LinuxPlatform platform;
    platform.Activity().Begin("mixing");
    EXPECT_EQ(bus_->IdleLocks(), 1u);
    platform.Activity().End();
    platform.Power().AddListener([](PowerEvent) {});
    EXPECT_TRUE(WaitUntil([&] { return bus_->DelayLocks() == 1 && bus_->IdleLocks() == 0; }));

    RealtimeGrant grant = RealtimeGrant::NotOffered;
    Policy before, after;
    OnAThread(
        [&]
        {
            before = CurrentPolicy();
            grant = platform.RequestRealtimeForCurrentThread();
            after = CurrentPolicy();
        });
    ASSERT_TRUE(grant == RealtimeGrant::SchedFifo || grant == RealtimeGrant::Refused);
    if (grant == RealtimeGrant::SchedFifo)
    {
        EXPECT_EQ(after.policy, SCHED_FIFO);
        EXPECT_GE(after.priority, 1);
        EXPECT_LE(after.priority, RealtimeScheduling::kWantedPriority);
    }
    else
    {
        EXPECT_EQ(after, before);
    }
}

}  // namespace
