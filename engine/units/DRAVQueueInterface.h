#pragma once

#include <cstdint>
#include <memory>

#include "engine/media/DRAVAudioBuffer.h"
#include "engine/media/DRAVMediaBuffer.h"
#include "engine/media/DRAVMediaFormatChangeDelegate.h"
#include "engine/units/DRAVQueueStatistics.h"
#include "engine/units/DRAVQueueStrategyInterface.h"
#include "portable-core/DRAVResult.h"
#include "portable-core/DRAVTime.h"

// The queue behind a pin: frames go in by AddBuffer and come out by a worker,
// a pull, or at once.
class DRAVQueueInterface
{
public:
    virtual ~DRAVQueueInterface() = default;

    virtual DRAVResult Deinit() = 0;
    virtual DRAVResult Stop() = 0;
    virtual DRAVResult Flush() = 0;
    virtual DRAVResult SetMaxNumItems(int maxItems) = 0;
    virtual int GetMaxNumItems() = 0;
    virtual int GetCurrentNumItems() = 0;
    virtual DRAVResult SetMaxTotalSizeMB(int maxTotalSize) = 0;
    virtual int GetMaxTotalSizeMB() = 0;
    virtual int GetAvailableItemsAt(const DRAVTimestamp& time) = 0;
    virtual DRAVDuration GetAvailableDurationAt(const DRAVTimestamp& time) = 0;
    virtual DRAVResult AddBuffer(std::shared_ptr<DRAVMediaBuffer> buffer) = 0;
    virtual DRAVResult PullBuffer(const DRAVTimestamp& time, std::shared_ptr<DRAVMediaBuffer>* out,
                                  bool remove) = 0;
    virtual DRAVResult PullAudioBuffer(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                                       const DRAVDuration& duration) = 0;
    virtual DRAVResult PullAudioBuffer(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                                       int64_t frames) = 0;
    virtual DRAVResult DropBuffersBefore(const DRAVTimestamp& time) = 0;
    virtual DRAVResult DropBuffersBetween(const DRAVTimestamp& from, const DRAVTimestamp& to) = 0;
    virtual DRAVResult GetStatistics(DRAVQueueStatistics* statistics) = 0;
    virtual DRAVResult SetFormatChangeDelegate(std::shared_ptr<DRAVMediaFormatChangeDelegate> delegate) = 0;
    virtual DRAVResult AddQueueStrategy(std::shared_ptr<DRAVQueueStrategyInterface> strategy) = 0;
    virtual void SetVerboseLogging(bool verbose) = 0;
    virtual void SetPreserveBuffer(bool preserve) = 0;
};
