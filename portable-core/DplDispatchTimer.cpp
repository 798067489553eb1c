#include "portable-core/DplDispatchTimer.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include "portable-core/DRAVLog.h"

namespace
{
// A repeating timer never fires faster than this: a zero interval would flood
// its dispatcher with work.
constexpr double kMinimumRepeatSeconds = 0.001;
// Far beyond any process's life, yet safe to add to the steady clock.
constexpr double kMaximumSeconds = 100.0 * 365 * 24 * 3600;

std::chrono::nanoseconds IntervalToDuration(float seconds, bool repeats)
{
    double value = std::isfinite(seconds) ? static_cast<double>(seconds) : 0.0;
    if (std::isinf(seconds) && seconds > 0)
    {
        value = kMaximumSeconds;
    }
    value = std::clamp(value, repeats ? kMinimumRepeatSeconds : 0.0, kMaximumSeconds);
    return std::chrono::nanoseconds(static_cast<int64_t>(value * 1e9));
}

// What one start() shares with its thread and with the calls it dispatched.
// Each start makes a new one, so a call left over from a former run can tell
// that it is stale and a restart never needs to reset shared flags.
struct TimerRun
{
    std::atomic<bool> stop{false};
    std::atomic<bool> running{false};

    // The killer: wakes the waiting thread at once.
    std::mutex mutex;
    std::condition_variable condition;
    bool killed = false;
    // Threads that are inside the callback right now (guarded by mutex).
    std::vector<std::thread::id> inCallback;

    // Waits for `duration` on the steady clock; false when killed first.
    bool WaitFor(std::chrono::nanoseconds duration)
    {
        const auto deadline = std::chrono::steady_clock::now() + duration;
        std::unique_lock lock(mutex);
        while (!killed)
        {
            if (condition.wait_until(lock, deadline) == std::cv_status::timeout &&
                std::chrono::steady_clock::now() >= deadline)
            {
                return !killed;
            }
        }
        return false;
    }

    void Kill()
    {
        stop.store(true);
        std::unique_lock lock(mutex);
        killed = true;
        condition.notify_all();
        // A call of the callback on another thread must end before the owner
        // frees what it uses; one on this thread is the caller itself.
        const std::thread::id self = std::this_thread::get_id();
        condition.wait(lock,
                       [&]
                       {
                           return std::all_of(inCallback.begin(), inCallback.end(),
                                              [self](const std::thread::id& id) { return id == self; });
                       });
    }

    void CallUnlessStopped(const std::function<void()>& callback)
    {
        const std::thread::id self = std::this_thread::get_id();
        {
            std::lock_guard lock(mutex);
            if (stop.load())
            {
                return;
            }
            inCallback.push_back(self);
        }
        struct Leave
        {
            TimerRun& run;
            std::thread::id self;
            ~Leave()
            {
                std::lock_guard lock(run.mutex);
                run.inCallback.erase(std::find(run.inCallback.begin(), run.inCallback.end(), self));
                run.condition.notify_all();
            }
        } leave{*this, self};
        callback();
    }
};

void RunTimer(const std::shared_ptr<TimerRun>& run, const std::shared_ptr<DplDispatching>& dispatcher,
              const std::shared_ptr<const std::function<void()>>& callback, std::chrono::nanoseconds interval,
              bool repeats)
{
    while (!run->stop.load())
    {
        if (!run->WaitFor(interval))
        {
            break;  // stopped during the wait: nothing to dispatch
        }
        dispatcher->dispatch([run, callback] { run->CallUnlessStopped(*callback); });
        if (!repeats)
        {
            break;
        }
    }
    run->running.store(false);
}
}  // namespace

struct DplDispatchTimer::Impl
{
    std::shared_ptr<DplDispatching> dispatcher;
    std::shared_ptr<const std::function<void()>> callback;
    bool repeats = true;
    float intervalSeconds = 1.0f;

    std::mutex controlMutex;  // start() and stop() may come from different threads
    std::thread thread;
    std::shared_ptr<TimerRun> run;
};

DplDispatchTimer::DplDispatchTimer(std::shared_ptr<DplDispatching> dispatcher, float intervalSeconds,
                                   const std::function<void()>& callback, bool repeats, bool startNow)
    : impl_(std::make_unique<Impl>())
{
    impl_->dispatcher = std::move(dispatcher);
    impl_->callback = std::make_shared<const std::function<void()>>(callback);
    impl_->repeats = repeats;
    impl_->intervalSeconds = intervalSeconds;
    if (startNow)
    {
        start();
    }
}

DplDispatchTimer::~DplDispatchTimer()
{
    stop();
}

void DplDispatchTimer::start()
{
    if (!impl_->dispatcher || !*impl_->callback)
    {
        return;
    }
    stop();
    std::lock_guard lock(impl_->controlMutex);
    if (impl_->run)
    {
        return;  // another thread started it meanwhile
    }
    auto run = std::make_shared<TimerRun>();
    // Running from here on, so that getRunning() right after start() is true.
    run->running.store(true);
    try
    {
        impl_->thread =
            std::thread(RunTimer, run, impl_->dispatcher, impl_->callback,
                        IntervalToDuration(impl_->intervalSeconds, impl_->repeats), impl_->repeats);
    }
    catch (const std::system_error& error)
    {
        DRAVLogPrintf(kDbgPrintLevelError, "DplDispatchTimer: can't start its thread: %s", error.what());
        return;
    }
    impl_->run = std::move(run);
}

void DplDispatchTimer::stop()
{
    std::shared_ptr<TimerRun> run;
    std::thread thread;
    {
        std::lock_guard lock(impl_->controlMutex);
        run = std::move(impl_->run);
        thread = std::move(impl_->thread);
    }
    if (!run)
    {
        return;
    }
    // Outside the control mutex: the callback may itself call stop() or start().
    run->Kill();
    if (thread.joinable())
    {
        if (thread.get_id() == std::this_thread::get_id())
        {
            thread.detach();  // a dispatcher that runs work inline: the thread ends by itself
        }
        else
        {
            thread.join();
        }
    }
}

bool DplDispatchTimer::getRunning() const
{
    std::lock_guard lock(impl_->controlMutex);
    return impl_->run && impl_->run->running.load();
}
