#include "portable-core/DplDispatchQueue.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include "portable-core/BreakIntoDebugger.h"
#include "portable-core/DRAVLog.h"
#include "portable-core/DplThreadName.h"

struct DplDispatchQueue::Impl
{
    std::string name;
    std::mutex mutex;
    std::vector<std::thread> workers;
    std::deque<std::function<void()>> queue;
    std::condition_variable condition;
    bool quit = false;

    void Run()
    {
        DplSetCurrentThreadName(name.c_str());
        std::unique_lock lock(mutex);
        for (;;)
        {
            condition.wait(lock, [this] { return quit || !queue.empty(); });
            if (quit)
            {
                return;  // quit wins over queued work
            }
            std::function<void()> work = std::move(queue.front());
            queue.pop_front();
            lock.unlock();
            RunOne(work);
            // Destroy what the task captured outside the queue's mutex, too.
            work = nullptr;
            lock.lock();
        }
    }

    // A task that throws must not take the worker (and the process) down
    // with it; the failure is logged and the queue goes on.
    void RunOne(const std::function<void()>& work)
    {
        try
        {
            work();
        }
        catch (const std::exception& error)
        {
            DRAVLogPrintf(kDbgPrintLevelError, "DplDispatchQueue \"%s\": a task threw: %s", name.c_str(),
                          error.what());
            BreakIntoDebugger();
        }
        catch (...)
        {
            DRAVLogPrintf(kDbgPrintLevelError, "DplDispatchQueue \"%s\": a task threw", name.c_str());
            BreakIntoDebugger();
        }
    }

    void Push(std::function<void()> work)
    {
        if (!work)
        {
            return;  // an empty function object would throw on the worker
        }
        {
            std::lock_guard lock(mutex);
            queue.push_back(std::move(work));
        }
        condition.notify_all();
    }
};

DplDispatchQueue::DplDispatchQueue(std::string name, unsigned long threadCount)
    : impl_(std::make_shared<Impl>())
{
    impl_->name = std::move(name);
    impl_->workers.reserve(threadCount);
    for (unsigned long i = 0; i < threadCount; ++i)
    {
        try
        {
            impl_->workers.emplace_back([impl = impl_] { impl->Run(); });
        }
        catch (const std::system_error& error)
        {
            // Go on with the workers there are; with none, nothing runs.
            DRAVLogPrintf(kDbgPrintLevelError, "DplDispatchQueue \"%s\": started %lu of %lu workers: %s",
                          impl_->name.c_str(), i, threadCount, error.what());
            break;
        }
    }
}

DplDispatchQueue::~DplDispatchQueue()
{
    {
        std::lock_guard lock(impl_->mutex);
        impl_->quit = true;
    }
    impl_->condition.notify_all();
    const std::thread::id self = std::this_thread::get_id();
    for (std::thread& worker : impl_->workers)
    {
        if (worker.get_id() == self)
        {
            worker.detach();  // its own reference keeps Impl alive until it returns
        }
        else if (worker.joinable())
        {
            worker.join();
        }
    }
}

void DplDispatchQueue::dispatch(const std::function<void()>& work)
{
    impl_->Push(work);
}

void DplDispatchQueue::dispatch(std::function<void()>&& work)
{
    impl_->Push(std::move(work));
}

const std::string& DplDispatchQueue::name() const
{
    return impl_->name;
}

bool DplDispatchQueue::isCurrentWorker() const
{
    const std::thread::id self = std::this_thread::get_id();
    return std::any_of(impl_->workers.begin(), impl_->workers.end(),
                       [self](const std::thread& worker) { return worker.get_id() == self; });
}
