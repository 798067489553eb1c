#pragma once

#include <functional>
#include <memory>

#include "portable-core/DplDispatchQueue.h"

// Calls a function on a dispatcher every `intervalSeconds` (or once, without
// `repeats`). The first call comes one interval after start(); the interval is
// measured from the end of the last dispatch. A thread of the timer's own does
// the waiting; the callback always runs on the dispatcher.
//
// stop() interrupts the wait at once. Once it has returned, no call of the
// callback begins, and none is still running on another thread, so the owner
// may free what the callback uses. (A callback may stop its own timer; don't
// call stop() while holding a lock the callback takes.) start() after stop(),
// or on a running timer, begins afresh: the next call comes one interval later.
class DplDispatchTimer
{
public:
    DplDispatchTimer(std::shared_ptr<DplDispatching> dispatcher, float intervalSeconds,
                     const std::function<void()>& callback, bool repeats = true, bool startNow = true);
    ~DplDispatchTimer();
    DplDispatchTimer(const DplDispatchTimer&) = delete;
    DplDispatchTimer& operator=(const DplDispatchTimer&) = delete;

    // Does nothing without a dispatcher or a callback.
    void start();
    // Does nothing on a timer that isn't started.
    void stop();
    // True from start() until stop() or, without repeats, until its one call is dispatched.
    bool getRunning() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};
