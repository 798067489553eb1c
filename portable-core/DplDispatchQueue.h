#pragma once

#include <functional>
#include <memory>
#include <string>

// Something that runs function objects later.
class DplDispatching
{
public:
    virtual void dispatch(const std::function<void()>& work) = 0;
    virtual void dispatch(std::function<void()>&& work) = 0;
    virtual ~DplDispatching() = default;
};

// A queue of work served by `threadCount` workers named after the queue. With
// one worker it is strictly serial in dispatch order; with none nothing runs.
// A task may dispatch to its own queue. Destruction sets quit: the running
// tasks finish, queued ones never run and are destroyed with the queue.
// Destroyed from one of its own workers (a task that drops the last owner), it
// joins the others and lets the calling worker end by itself once its task
// returns. A task that throws is logged and the queue goes on.
class DplDispatchQueue : public DplDispatching
{
public:
    DplDispatchQueue(std::string name, unsigned long threadCount);
    ~DplDispatchQueue() override;
    DplDispatchQueue(const DplDispatchQueue&) = delete;
    DplDispatchQueue& operator=(const DplDispatchQueue&) = delete;

    void dispatch(const std::function<void()>& work) override;
    void dispatch(std::function<void()>&& work) override;

    const std::string& name() const;
    // True when called on one of this queue's workers.
    bool isCurrentWorker() const;

private:
    struct Impl;
    std::shared_ptr<Impl> impl_;  // shared with the workers
};
