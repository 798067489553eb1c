#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include "engine/media/DRAVLogIntervals.h"
#include "engine/media/DRAVMediaBufferDelegate.h"
#include "engine/units/DRAVQueueInterface.h"
#include "portable-core/CDplThreadMutex.h"
#include "portable-core/DRAVSlowLog.h"

// The queue behind every pin type but the ring buffer. The mode decides the
// way out: at once on the caller's thread (passthrough), by a worker thread
// named "TBQ - <name>" (threaded), or by a consumer's pull (pull). Blocking
// makes a producer wait for room; otherwise a full queue drops a random frame
// and keeps the new one.
class DRAVThreadedBufferQueue : public DRAVQueueInterface
{
public:
    static constexpr uint32_t kModePassthrough = 1;
    static constexpr uint32_t kModeThreaded = 2;
    static constexpr uint32_t kModePull = 4;
    static constexpr uint32_t kModeBlocking = 8;

    // How long a blocking producer waits for room, and how often it looks.
    static constexpr int64_t kBlockingTimeoutUsec = 5000000;
    static constexpr int64_t kBlockingRetryUsec = 5000;
    // How long Deinit waits for the worker before it complains.
    static constexpr int64_t kStopThreadTimeoutMsec = 10000;

    using Lambda = std::function<void(void* context, std::shared_ptr<DRAVMediaBuffer>)>;

    DRAVThreadedBufferQueue(const std::string& name, uint32_t mode, int maxItems, int maxTotalSize);
    ~DRAVThreadedBufferQueue() override;
    DRAVThreadedBufferQueue(const DRAVThreadedBufferQueue&) = delete;
    DRAVThreadedBufferQueue& operator=(const DRAVThreadedBufferQueue&) = delete;

    // Either is called once before use; a second call replaces the receiver
    // (and restarts the worker).
    DRAVResult InitWithDelegate(std::shared_ptr<DRAVMediaBufferDelegate> delegate);
    DRAVResult InitWithLambda(Lambda lambda, void* context);

    DRAVResult Deinit() override;
    DRAVResult Stop() override;
    DRAVResult Flush() override;
    DRAVResult SetMaxNumItems(int maxItems) override;
    int GetMaxNumItems() override;
    int GetCurrentNumItems() override;
    DRAVResult SetMaxTotalSizeMB(int maxTotalSize) override;
    int GetMaxTotalSizeMB() override;
    int GetAvailableItemsAt(const DRAVTimestamp& time) override;
    DRAVDuration GetAvailableDurationAt(const DRAVTimestamp& time) override;
    DRAVResult AddBuffer(std::shared_ptr<DRAVMediaBuffer> buffer) override;
    virtual DRAVResult AddBuffer(std::shared_ptr<DRAVMediaBuffer> buffer, bool unused);
    DRAVResult PullBuffer(const DRAVTimestamp& time, std::shared_ptr<DRAVMediaBuffer>* out,
                          bool remove) override;
    DRAVResult PullAudioBuffer(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                               const DRAVDuration& duration) override;
    DRAVResult PullAudioBuffer(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                               int64_t frames) override;
    DRAVResult DropBuffersBefore(const DRAVTimestamp& time) override;
    DRAVResult DropBuffersBetween(const DRAVTimestamp& from, const DRAVTimestamp& to) override;
    DRAVResult GetStatistics(DRAVQueueStatistics* statistics) override;
    DRAVResult SetFormatChangeDelegate(std::shared_ptr<DRAVMediaFormatChangeDelegate> delegate) override;
    DRAVResult AddQueueStrategy(std::shared_ptr<DRAVQueueStrategyInterface> strategy) override;
    void SetVerboseLogging(bool verbose) override;
    void SetPreserveBuffer(bool preserve) override;

    bool IsQueueFull();
    // A worker holds a frame until the host time has passed its time stamp
    // by this much; 0 means no delay.
    void SetDelayMsec(int delayMsec);
    int GetDelayMsec() const { return delayMsec_.load(std::memory_order_relaxed); }
    // Frames lost by overflow or DropBuffersBefore since the last Init.
    int64_t GetNumDroppedFrames();
    const std::string& GetName() const { return name_; }
    uint32_t GetMode() const { return mode_; }

private:
    // Shared with the worker, so that a worker told to end from inside its
    // own delivery never touches a queue that is gone.
    struct WorkerControl
    {
        std::atomic<bool> terminate{false};
        std::atomic<bool> finished{false};
    };

    DRAVResult InitInternal(std::shared_ptr<DRAVMediaBufferDelegate> delegate, Lambda lambda, void* context);
    DRAVResult AddBlocking(const std::shared_ptr<DRAVMediaBuffer>& buffer);
    DRAVResult AddNonBlocking(const std::shared_ptr<DRAVMediaBuffer>& buffer);
    bool AskStrategy(const std::shared_ptr<DRAVMediaBuffer>& buffer, bool afterQueueing);
    void SendBuffer(const std::shared_ptr<DRAVMediaBuffer>& buffer);
    // `log`, told to let its next line pass when logging is verbose.
    DRAVSlowLog& Verbose(DRAVSlowLog& log);
    void StartWorker();
    void StopWorker();
    void ThreadProc(std::shared_ptr<WorkerControl> control);

    const std::string name_;
    const uint32_t mode_;
    std::atomic<bool> stop_{false};
    int32_t maxItems_;
    int32_t maxTotalSize_;
    const bool passthrough_;
    const bool blocking_;
    const bool pull_;
    std::atomic<bool> preserveBuffer_{false};
    std::atomic<int32_t> delayMsec_{0};

    CDplThreadMutex mutex_;
    // Wakes the worker: a frame arrived, the delay changed, or it is to end.
    CDplThreadCondition frameArrived_;
    // Wakes a blocking producer: room was made, or the queue was stopped.
    CDplThreadCondition roomMade_;
    std::deque<std::shared_ptr<DRAVMediaBuffer>> queue_;
    int64_t initHostTime_ = 0;
    std::atomic<int64_t> lastAddedTimestamp_{-1};
    int64_t droppedFrames_ = 0;
    std::minstd_rand dropChooser_;

    // With verbose logging every line of the first three logs passes.
    std::atomic<bool> verbose_{false};
    DRAVSlowLog logQueueFull_{kSlowLogInterval1, kDbgPrintLevelWarning};
    DRAVSlowLog logNotAvailable_{kSlowLogInterval1, kDbgPrintLevelWarning};
    DRAVSlowLog logPreserved_{kSlowLogInterval2, static_cast<eDbgPrintLevel>(3)};
    DRAVSlowLog logDropped_{kSlowLogInterval2, static_cast<eDbgPrintLevel>(3)};

    std::thread worker_;
    std::shared_ptr<WorkerControl> workerControl_;

    Lambda lambda_;
    void* context_ = nullptr;
    std::weak_ptr<DRAVQueueStrategyInterface> strategy_;
    std::weak_ptr<DRAVMediaBufferDelegate> delegate_;
    std::weak_ptr<DRAVMediaFormatChangeDelegate> formatChangeDelegate_;
};
