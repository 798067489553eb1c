#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "engine/media/DRAVLogIntervals.h"
#include "engine/units/DRAVQueueInterface.h"
#include "portable-core/CDplRingBuffer.h"
#include "portable-core/CDplThreadMutex.h"
#include "portable-core/DRAVSlowLog.h"

// The queue behind "PullRingBuffer" pins: audio goes in as frames of any
// length and comes out in pieces of the length the consumer asks for, with
// the time stamp of their first byte. Frames lose their identity on entry:
// only bytes, one format and the read and write time stamps remain.
//
// The read time stamp always tells where the held bytes begin: after an
// overrun it is the write time stamp less the duration of what the ring kept.
class DRAVRingBuffer : public DRAVQueueInterface
{
public:
    // A capacity that holds less than this in the stream's format makes an
    // overrun keep only the newest half of the ring.
    static constexpr int64_t kDropHalfBelowUsec = 500000;
    // Pulls and drops shorter than this are refused or ignored.
    static constexpr int64_t kMinPullUsec = 10;
    static constexpr int64_t kMinDropUsec = 10000;
    // What DropBuffersBefore keeps with preserve buffer, and the most silence
    // it refills with when asked to drop past the end.
    static constexpr int64_t kPreserveUsec = 100000;
    static constexpr int64_t kMaxRefillUsec = 100000;

    explicit DRAVRingBuffer(const std::string& name);
    ~DRAVRingBuffer() override;
    DRAVRingBuffer(const DRAVRingBuffer&) = delete;
    DRAVRingBuffer& operator=(const DRAVRingBuffer&) = delete;

    DRAVResult Init();
    DRAVResult Deinit() override;
    DRAVResult Stop() override;
    DRAVResult Flush() override;
    DRAVResult SetMaxNumItems(int maxItems) override;
    int GetMaxNumItems() override;
    int GetCurrentNumItems() override;
    // `bytes` is the capacity in bytes. Taken only while fewer bytes than that
    // are held; the content is then discarded.
    DRAVResult SetMaxTotalSizeMB(int bytes) override;
    // The bytes held.
    int GetMaxTotalSizeMB() override;
    int GetAvailableItemsAt(const DRAVTimestamp& time) override;
    DRAVDuration GetAvailableDurationAt(const DRAVTimestamp& time) override;
    // AddBuffer on the producer's thread (a capture device's), the pulls on
    // the mix's thread: each holds the ring's lock for one block's copy. The
    // lock is also what a resize (SetMaxTotalSizeMB, at a pin's start) holds
    // while it allocates. Overruns and shortages are logged at most once per
    // interval.
    DRAVResult AddBuffer(std::shared_ptr<DRAVMediaBuffer> buffer) override;
    DRAVResult PullBuffer(const DRAVTimestamp& time, std::shared_ptr<DRAVMediaBuffer>* out,
                          bool remove) override;
    DRAVResult PullAudioBuffer(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                               const DRAVDuration& duration) override;
    DRAVResult PullAudioBuffer(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                               int64_t frames) override;
    DRAVResult DropBuffersBefore(const DRAVTimestamp& time) override;
    DRAVResult DropBuffersBetween(const DRAVTimestamp& from, const DRAVTimestamp& to) override;
    DRAVResult GetStatistics(DRAVQueueStatistics* statistics) override;
    // The delegate is called without the ring's lock held.
    DRAVResult SetFormatChangeDelegate(std::shared_ptr<DRAVMediaFormatChangeDelegate> delegate) override;
    DRAVResult AddQueueStrategy(std::shared_ptr<DRAVQueueStrategyInterface> strategy) override;
    void SetVerboseLogging(bool verbose) override;
    void SetPreserveBuffer(bool preserve) override;

    // Resets the ring to `duration` of silence, so that the consumer finds
    // data again and runs that far behind the writer.
    DRAVResult MoveReadPointer(DRAVDuration duration);
    // The capacity as a duration in the held format; -2 without a format.
    DRAVDuration GetBufferDuration();

    int64_t GetBytesInBuffer() const { return bytesInBuffer_.load(std::memory_order_acquire); }
    // Writes that overwrote unread bytes, and pulls that found too little or
    // nothing:
    // what the ring absorbed of the two clocks' drift.
    int64_t GetOverrunCount() const { return overruns_.load(std::memory_order_relaxed); }
    int64_t GetShortPullCount() const { return shortPulls_.load(std::memory_order_relaxed); }
    int64_t GetCapacity();
    DRAVTimestamp GetReadTimestamp();
    DRAVTimestamp GetWriteTimestamp();
    int64_t GetTotalBytesWritten();
    bool GetDropHalf();
    std::shared_ptr<DRAVMediaFormat> GetMediaFormat();
    const std::string& GetName() const { return name_; }

private:
    // Under the mutex: the audio format held, or null.
    std::shared_ptr<DRAVAudioFormat> AudioFormatLocked() const;
    int64_t HeldLocked();
    void UpdateHeldLocked();
    DRAVDuration BufferDurationLocked() const;
    DRAVResult MoveReadPointerLocked(DRAVDuration duration);
    // `log`, told to let its next line pass when logging is verbose.
    DRAVSlowLog& Verbose(DRAVSlowLog& log);

    CDplRingBuffer ring_;
    CDplThreadMutex mutex_;
    std::shared_ptr<DRAVMediaFormat> format_;
    DRAVTimestamp writeTimestamp_{-1};
    DRAVTimestamp readTimestamp_{-1};
    int64_t totalBytesWritten_ = 0;
    std::atomic<int64_t> bytesInBuffer_{0};
    std::atomic<int64_t> overruns_{0};
    std::atomic<int64_t> shortPulls_{0};
    int64_t firstAddWallClockMsec_ = -1;
    int64_t timeBase_ = 0;
    int64_t capacity_ = 0;
    std::weak_ptr<DRAVMediaFormatChangeDelegate> formatChangeDelegate_;
    const std::string name_;
    // With verbose logging every line of the first three logs passes.
    std::atomic<bool> verbose_{false};
    std::atomic<bool> preserveBuffer_{false};
    bool dropHalf_ = false;

    DRAVSlowLog logNotEnoughData_{kLogIntervalNotEnoughDropData, kDbgPrintLevelError};
    DRAVSlowLog logShortRead_{kLogIntervalNotEnoughDropData, kDbgPrintLevelError};
    DRAVSlowLog logDropped_{kLogIntervalDropBuffer, kDbgPrintLevelWarning};
    DRAVSlowLog logNotEnoughDropData_{kLogIntervalDropBuffer, kDbgPrintLevelWarning};
    DRAVSlowLog logOverwrite_{kSlowLogInterval1, kDbgPrintLevelWarning};
};
