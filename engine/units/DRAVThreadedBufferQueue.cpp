#include "engine/units/DRAVThreadedBufferQueue.h"

#include <algorithm>
#include <chrono>
#include <ctime>

#include "portable-core/DRAVLog.h"
#include "portable-core/DplThreadName.h"
#include "portable-core/DplTime.h"

namespace
{
// A worker waiting for a frame's delay looks at the clock at least this often,
// so a delay changed without a signal still takes effect soon.
constexpr int64_t kWorkerMaxWaitUsec = 50000;
// An idle worker wakes this often even without a signal.
constexpr int64_t kWorkerIdleWaitUsec = 100000;

double SecondsBetween(DRAVTimestamp from, DRAVTimestamp to)
{
    return static_cast<double>((to - from).Get()) / 1e6;
}

}  // namespace

DRAVThreadedBufferQueue::DRAVThreadedBufferQueue(const std::string& name, uint32_t mode, int maxItems,
                                                 int maxTotalSize)
    : name_(name),
      mode_(mode),
      maxItems_(std::max(0, maxItems)),
      maxTotalSize_(maxTotalSize),
      passthrough_((mode & kModePassthrough) != 0),
      blocking_((mode & kModeBlocking) != 0),
      pull_((mode & kModePull) != 0)
{
}

DRAVThreadedBufferQueue::~DRAVThreadedBufferQueue()
{
    StopWorker();
}

DRAVResult DRAVThreadedBufferQueue::InitWithDelegate(std::shared_ptr<DRAVMediaBufferDelegate> delegate)
{
    return InitInternal(std::move(delegate), nullptr, nullptr);
}

DRAVResult DRAVThreadedBufferQueue::InitWithLambda(Lambda lambda, void* context)
{
    return InitInternal(nullptr, std::move(lambda), context);
}

DRAVResult DRAVThreadedBufferQueue::InitInternal(std::shared_ptr<DRAVMediaBufferDelegate> delegate,
                                                 Lambda lambda, void* context)
{
    // The worker reads the receiver without a lock: it is only changed while
    // no worker runs.
    StopWorker();
    {
        CDplScopedLock lock(mutex_);
        delegate_ = delegate;
        lambda_ = std::move(lambda);
        context_ = context;
        stop_.store(false);
        droppedFrames_ = 0;
        initHostTime_ = DRAVGetHostTime().Get();
    }
    if (!pull_ && !passthrough_)
    {
        StartWorker();
    }
    return DRAVResult(kDRAVResultOk);
}

void DRAVThreadedBufferQueue::StartWorker()
{
    workerControl_ = std::make_shared<WorkerControl>();
    worker_ = std::thread(&DRAVThreadedBufferQueue::ThreadProc, this, workerControl_);
}

void DRAVThreadedBufferQueue::StopWorker()
{
    if (!worker_.joinable())
    {
        return;
    }
    std::shared_ptr<WorkerControl> control = workerControl_;
    {
        CDplScopedLock lock(mutex_);
        control->terminate.store(true);
        frameArrived_.Broadcast();
    }
    if (worker_.get_id() == std::this_thread::get_id())
    {
        // Told to end from inside its own delivery: it ends when that returns,
        // without touching this queue again.
        worker_.detach();
        return;
    }
    const int64_t deadline = DplTime_GetMonotonicNanoseconds() + kStopThreadTimeoutMsec * 1000000;
    while (!control->finished.load() && DplTime_GetMonotonicNanoseconds() < deadline)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    if (!control->finished.load())
    {
        DRAVLogPrintf(kDbgPrintLevelError, "TBQ: worker of <%s> did not stop within %lld ms; still waiting",
                      name_.c_str(), static_cast<long long>(kStopThreadTimeoutMsec));
    }
    // Never let the queue go while its worker may still deliver.
    worker_.join();
}

void DRAVThreadedBufferQueue::ThreadProc(std::shared_ptr<WorkerControl> control)
{
    const std::string threadName = "TBQ - " + name_;
    DplSetCurrentThreadName(threadName.c_str());
    while (!control->terminate.load())
    {
        std::shared_ptr<DRAVMediaBuffer> frame;
        {
            CDplScopedLock lock(mutex_);
            if (control->terminate.load())
            {
                break;
            }
            if (queue_.empty())
            {
                frameArrived_.Wait(mutex_, kWorkerIdleWaitUsec * 1000);
                continue;
            }
            const int32_t delayMsec = delayMsec_.load(std::memory_order_relaxed);
            if (delayMsec > 0)
            {
                const int64_t due = queue_.front()->GetTimestamp().Get() + int64_t{delayMsec} * 1000;
                const int64_t wait = due - DRAVGetHostTime().Get();
                if (wait > 0)
                {
                    // Sleep until the frame is due rather than spinning on the clock.
                    frameArrived_.Wait(mutex_, std::min(wait, kWorkerMaxWaitUsec) * 1000);
                    continue;
                }
            }
            frame = std::move(queue_.front());
            queue_.pop_front();
            roomMade_.Broadcast();
        }
        SendBuffer(frame);
    }
    control->finished.store(true);
}

DRAVSlowLog& DRAVThreadedBufferQueue::Verbose(DRAVSlowLog& log)
{
    if (verbose_.load(std::memory_order_relaxed))
    {
        log.Force();
    }
    return log;
}

void DRAVThreadedBufferQueue::SendBuffer(const std::shared_ptr<DRAVMediaBuffer>& buffer)
{
    if (lambda_)
    {
        lambda_(context_, buffer);
        return;
    }
    if (auto delegate = delegate_.lock())
    {
        delegate->MediaBufferReceived(nullptr, buffer);
    }
}

bool DRAVThreadedBufferQueue::AskStrategy(const std::shared_ptr<DRAVMediaBuffer>& buffer, bool afterQueueing)
{
    std::shared_ptr<DRAVQueueStrategyInterface> strategy;
    {
        CDplScopedLock lock(mutex_);
        strategy = strategy_.lock();
    }
    if (!strategy)
    {
        return false;
    }
    return afterQueueing ? strategy->SendAfterQueueing(buffer) : strategy->SendBeforeQueueing(buffer);
}

DRAVResult DRAVThreadedBufferQueue::AddBuffer(std::shared_ptr<DRAVMediaBuffer> buffer)
{
    return AddBuffer(std::move(buffer), true);
}

DRAVResult DRAVThreadedBufferQueue::AddBuffer(std::shared_ptr<DRAVMediaBuffer> buffer, bool unused)
{
    (void)unused;
    if (!buffer)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    lastAddedTimestamp_.store(buffer->GetTimestamp().Get(), std::memory_order_relaxed);
    if (passthrough_)
    {
        SendBuffer(buffer);
        return DRAVResult(kDRAVResultOk);
    }
    return blocking_ ? AddBlocking(buffer) : AddNonBlocking(buffer);
}

DRAVResult DRAVThreadedBufferQueue::AddBlocking(const std::shared_ptr<DRAVMediaBuffer>& buffer)
{
    const int64_t deadline = DplTime_GetMonotonicNanoseconds() + kBlockingTimeoutUsec * 1000;
    if (AskStrategy(buffer, false))
    {
        SendBuffer(buffer);
    }
    CDplScopedLock lock(mutex_);
    while (true)
    {
        if (stop_.load())
        {
            return DRAVResult(kDRAVResultErrNotInitialized);
        }
        if (maxItems_ <= 0)
        {
            // Room can never come: waiting would only stall the producer.
            return DRAVResult(kDRAVResultErrInsufficientMemory, "queue <%s> holds no frames", name_.c_str());
        }
        if (static_cast<int64_t>(queue_.size()) < maxItems_)
        {
            queue_.push_back(buffer);
            frameArrived_.Signal();
            if (AskStrategy(buffer, true))
            {
                SendBuffer(buffer);
            }
            return DRAVResult(kDRAVResultOk);
        }
        const int64_t left = deadline - DplTime_GetMonotonicNanoseconds();
        if (left <= 0)
        {
            return DRAVResult(kDRAVResultErrInsufficientMemory, "queue <%s> stayed full", name_.c_str());
        }
        roomMade_.Wait(mutex_, std::min(left, kBlockingRetryUsec * 1000));
    }
}

DRAVResult DRAVThreadedBufferQueue::AddNonBlocking(const std::shared_ptr<DRAVMediaBuffer>& buffer)
{
    CDplScopedLock lock(mutex_);
    if (AskStrategy(buffer, false))
    {
        SendBuffer(buffer);
    }
    if (static_cast<int64_t>(queue_.size()) >= maxItems_ && !queue_.empty())
    {
        // An overloaded stream loses frames spread over the queue rather than
        // always its oldest. Seeded by the second, as drops within one second
        // start from the same choice.
        dropChooser_.seed(static_cast<std::minstd_rand::result_type>(time(nullptr)));
        while (static_cast<int64_t>(queue_.size()) >= maxItems_ && !queue_.empty())
        {
            const size_t index = dropChooser_() % queue_.size();
            queue_.erase(queue_.begin() + static_cast<std::ptrdiff_t>(index));
            ++droppedFrames_;
        }
        Verbose(logQueueFull_).Log(__func__, "Queue is full (max. %d) <%s>", maxItems_, name_.c_str());
    }
    if (maxItems_ > 0)
    {
        queue_.push_back(buffer);
        frameArrived_.Signal();
    }
    else
    {
        ++droppedFrames_;
        Verbose(logQueueFull_).Log(__func__, "Queue is full (max. %d) <%s>", maxItems_, name_.c_str());
    }
    if (AskStrategy(buffer, true))
    {
        SendBuffer(buffer);
    }
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVThreadedBufferQueue::Deinit()
{
    Stop();
    StopWorker();
    CDplScopedLock lock(mutex_);
    queue_.clear();
    roomMade_.Broadcast();
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVThreadedBufferQueue::Stop()
{
    if (blocking_)
    {
        CDplScopedLock lock(mutex_);
        stop_.store(true);
        roomMade_.Broadcast();
    }
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVThreadedBufferQueue::Flush()
{
    CDplScopedLock lock(mutex_);
    if (!queue_.empty())
    {
        if (preserveBuffer_.load())
        {
            std::shared_ptr<DRAVMediaBuffer> newest = std::move(queue_.back());
            queue_.clear();
            queue_.push_back(std::move(newest));
        }
        else
        {
            queue_.clear();
        }
        roomMade_.Broadcast();
    }
    initHostTime_ = DRAVGetHostTime().Get();
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVThreadedBufferQueue::SetMaxNumItems(int maxItems)
{
    CDplScopedLock lock(mutex_);
    maxItems_ = std::max(0, maxItems);
    roomMade_.Broadcast();
    return DRAVResult(kDRAVResultOk);
}

int DRAVThreadedBufferQueue::GetMaxNumItems()
{
    CDplScopedLock lock(mutex_);
    return maxItems_;
}

int DRAVThreadedBufferQueue::GetCurrentNumItems()
{
    CDplScopedLock lock(mutex_);
    return static_cast<int>(queue_.size());
}

bool DRAVThreadedBufferQueue::IsQueueFull()
{
    CDplScopedLock lock(mutex_);
    return static_cast<int64_t>(queue_.size()) >= maxItems_;
}

DRAVResult DRAVThreadedBufferQueue::SetMaxTotalSizeMB(int maxTotalSize)
{
    CDplScopedLock lock(mutex_);
    if (maxTotalSize < maxTotalSize_)
    {
        return DRAVResult(kDRAVResultOkNoDataChanged);
    }
    maxTotalSize_ = maxTotalSize;
    return DRAVResult(kDRAVResultOk);
}

int DRAVThreadedBufferQueue::GetMaxTotalSizeMB()
{
    CDplScopedLock lock(mutex_);
    return maxTotalSize_;
}

// Under the lock: the worker and producers change the deque at the same time.
int DRAVThreadedBufferQueue::GetAvailableItemsAt(const DRAVTimestamp& time)
{
    CDplScopedLock lock(mutex_);
    int count = 0;
    for (const auto& frame : queue_)
    {
        if (frame->GetTimestamp() > time)
        {
            break;
        }
        ++count;
    }
    return count;
}

DRAVDuration DRAVThreadedBufferQueue::GetAvailableDurationAt(const DRAVTimestamp& time)
{
    CDplScopedLock lock(mutex_);
    if (queue_.empty())
    {
        return DRAVDuration(-1);
    }
    DRAVDuration total(0);
    for (const auto& frame : queue_)
    {
        if (frame->GetTimestamp() > time)
        {
            break;
        }
        total += frame->GetDuration();
    }
    return total;
}

DRAVResult DRAVThreadedBufferQueue::PullBuffer(const DRAVTimestamp& time,
                                               std::shared_ptr<DRAVMediaBuffer>* out, bool remove)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    CDplScopedLock lock(mutex_);
    if (queue_.empty())
    {
        return DRAVResult(kDRAVResultErrNoData);
    }
    const DRAVTimestamp oldest = queue_.front()->GetTimestamp();
    if (time.Get() >= 0 && oldest > time)
    {
        Verbose(logNotAvailable_)
            .Log(__func__,
                 "Requested frames not yet available (requested: %s - oldest: %s, TBQ size: %d) <%s>",
                 time.ToString().c_str(), oldest.ToString().c_str(), maxItems_, name_.c_str());
        return DRAVResult(kDRAVResultErrNoData);
    }
    *out = queue_.front();
    if (remove)
    {
        queue_.pop_front();
        roomMade_.Broadcast();
    }
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVThreadedBufferQueue::PullAudioBuffer(const DRAVTimestamp& time,
                                                    std::shared_ptr<DRAVAudioBuffer>* out,
                                                    const DRAVDuration& duration)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    CDplScopedLock lock(mutex_);
    if (queue_.empty())
    {
        return DRAVResult(kDRAVResultErrNoData);
    }
    if (queue_.front()->GetDuration() != duration)
    {
        return DRAVResult(kDRAVResultErrInsufficientMemory);
    }
    // Looked at before the frame leaves, so that a frame of another kind is not lost.
    auto audio = std::dynamic_pointer_cast<DRAVAudioBuffer>(queue_.front());
    if (!audio)
    {
        return DRAVResult(kDRAVResultErrInvalidCast);
    }
    std::shared_ptr<DRAVMediaBuffer> taken;
    DRAVResult result = PullBuffer(time, &taken, true);
    if (result.Succeeded())
    {
        *out = std::move(audio);
    }
    return result;
}

DRAVResult DRAVThreadedBufferQueue::PullAudioBuffer(const DRAVTimestamp&, std::shared_ptr<DRAVAudioBuffer>*,
                                                    int64_t)
{
    return DRAVResult(kDRAVResultErrNotImplemented);
}

DRAVResult DRAVThreadedBufferQueue::DropBuffersBefore(const DRAVTimestamp& time)
{
    CDplScopedLock lock(mutex_);
    if (queue_.empty())
    {
        return DRAVResult(kDRAVResultOkNoDataChanged);
    }
    const DRAVTimestamp first = queue_.front()->GetTimestamp();
    const bool preserve = preserveBuffer_.load();
    int64_t dropped = 0;
    while (!queue_.empty() && queue_.front()->GetTimestamp() + queue_.front()->GetDuration() < time)
    {
        if (preserve && queue_.size() == 1)
        {
            queue_.front()->SetTimestamp(time);
            Verbose(logPreserved_)
                .Log(__func__,
                     "Preserved last buffer with old timestamp: (first %s cur %s -> diff %.3f sec) <%s>",
                     first.ToString().c_str(), time.ToString().c_str(), SecondsBetween(first, time),
                     name_.c_str());
            break;
        }
        queue_.pop_front();
        ++dropped;
    }
    if (!preserve && queue_.empty())
    {
        Verbose(logPreserved_)
            .Log(__func__, "Queue is empty after dropping old frames (first %s cur %s -> diff %.3f sec) <%s>",
                 first.ToString().c_str(), time.ToString().c_str(), SecondsBetween(first, time),
                 name_.c_str());
    }
    droppedFrames_ += dropped;
    if (dropped > 0)
    {
        roomMade_.Broadcast();
        logDropped_.Log(__func__, "Dropped %d frames (first %s cur %s -> diff %.3f sec) <%s>",
                        static_cast<int>(dropped), first.ToString().c_str(), time.ToString().c_str(),
                        SecondsBetween(first, time), name_.c_str());
        return DRAVResult(kDRAVResultOk);
    }
    return DRAVResult(kDRAVResultOkNoDataChanged);
}

DRAVResult DRAVThreadedBufferQueue::DropBuffersBetween(const DRAVTimestamp&, const DRAVTimestamp&)
{
    return DRAVResult(kDRAVResultErrNotImplemented);
}

DRAVResult DRAVThreadedBufferQueue::GetStatistics(DRAVQueueStatistics* statistics)
{
    if (statistics == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    CDplScopedLock lock(mutex_);
    statistics->buffers = static_cast<int64_t>(queue_.size());
    int64_t bytes = 0;
    for (const auto& frame : queue_)
    {
        bytes += frame->GetUsedBufferSize();
    }
    statistics->bytes = bytes;
    statistics->maxBuffers = maxItems_;
    statistics->maxBytes = int64_t{maxTotalSize_};
    statistics->firstTimestamp = queue_.empty() ? DRAVTimestamp(-1) : queue_.front()->GetTimestamp();
    statistics->lastTimestamp = queue_.empty() ? DRAVTimestamp(-1) : queue_.back()->GetTimestamp();
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVThreadedBufferQueue::SetFormatChangeDelegate(
    std::shared_ptr<DRAVMediaFormatChangeDelegate> delegate)
{
    CDplScopedLock lock(mutex_);
    formatChangeDelegate_ = delegate;
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVThreadedBufferQueue::AddQueueStrategy(std::shared_ptr<DRAVQueueStrategyInterface> strategy)
{
    CDplScopedLock lock(mutex_);
    strategy_ = strategy;
    return DRAVResult(kDRAVResultOk);
}

void DRAVThreadedBufferQueue::SetVerboseLogging(bool verbose)
{
    verbose_.store(verbose, std::memory_order_relaxed);
}

void DRAVThreadedBufferQueue::SetPreserveBuffer(bool preserve)
{
    preserveBuffer_.store(preserve);
}

void DRAVThreadedBufferQueue::SetDelayMsec(int delayMsec)
{
    delayMsec_.store(std::max(0, delayMsec), std::memory_order_relaxed);
    CDplScopedLock lock(mutex_);
    frameArrived_.Broadcast();
}

int64_t DRAVThreadedBufferQueue::GetNumDroppedFrames()
{
    CDplScopedLock lock(mutex_);
    return droppedFrames_;
}
