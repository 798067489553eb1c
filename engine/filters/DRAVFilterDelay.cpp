#include "engine/filters/DRAVFilterDelay.h"

#include <algorithm>
#include <limits>

#include "engine/media/DRAVAudioFormat.h"
#include "portable-core/KVCMapBuilder.h"

DRAVFilterDelay::DRAVFilterDelay(const DRAVFilterConfig& config)
    : DRAVFilter("DRAVFilterDelay", DRAVFilterDelay::GetMyObjectProperties(), config, 1, 1),
      format_(std::make_shared<DRAVAudioFormat>(kDefaultAudioFormatFloat))
{
}

DRAVFilterDelay::~DRAVFilterDelay() = default;

KVCMap* DRAVFilterDelay::GetMyObjectProperties()
{
    static KVCMap* const sClassProperties =
        KVCMapBuilder<DRAVFilterDelay>(DRAVUnit::GetMyObjectProperties())
            .Int(kPropertySourceAudioDelay, &DRAVFilterDelay::SetAudioDelayMsec,
                 &DRAVFilterDelay::GetAudioDelayMsec)
            .Build();
    return sClassProperties;
}

DRAVResult DRAVFilterDelay::Init()
{
    delayMsec_.store(0);
    return InitFilter(kDRAVPinTypeThreaded, kDRAVPinTypePassthrough);
}

DRAVResult DRAVFilterDelay::InitFilter(DRAVPinType input, DRAVPinType output)
{
    DRAVResult result = DRAVFilter::InitFilter(input, output);
    if (result.Succeeded())
    {
        result = AdjustQueueByDelayMsec(kInitialQueueMsec);
    }
    if (result.Succeeded())
    {
        SetUnitInitialized(true);
    }
    else
    {
        Deinit();
    }
    return result;
}

DRAVResult DRAVFilterDelay::Deinit()
{
    SetUnitInitialized(false);
    return DRAVFilter::Deinit();
}

DRAVResult DRAVFilterDelay::SetAudioDelayMsec(int64_t delayMsec)
{
    if (delayMsec < 0 || delayMsec > kMaxDelayMsec)
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "Audio delay %lld ms out of range",
                          static_cast<long long>(delayMsec));
    }
    const int64_t former = delayMsec_.exchange(delayMsec);
    std::shared_ptr<DRAVUnitInputPin> pin = GetInputPin(0);
    if (!pin)
    {
        return DRAVResult(kDRAVResultOk);
    }
    DRAVResult result = AdjustQueueByDelayMsec(delayMsec);
    if (result.Succeeded())
    {
        pin->SetDelayMsec(static_cast<int>(delayMsec));
    }
    else
    {
        // Stamps must not move by a delay that the queue doesn't hold.
        delayMsec_.store(former);
    }
    return result;
}

DRAVResult DRAVFilterDelay::AdjustQueueByDelayMsec(int64_t delayMsec)
{
    std::shared_ptr<DRAVUnitInputPin> pin = GetInputPin(0);
    if (!pin)
    {
        return DRAVResult(kDRAVResultErrNullPointer, "<%s> has no input pin", GetFriendlyName().c_str());
    }
    std::shared_ptr<DRAVQueueInterface> queue = pin->GetQueue();
    auto audioFormat = std::dynamic_pointer_cast<DRAVAudioFormat>(GetFormat());
    if (!queue || !audioFormat)
    {
        return DRAVResult(kDRAVResultErrNullPointer, "<%s> has no queue or no audio format",
                          GetFriendlyName().c_str());
    }
    const int64_t bytesPerItem = audioFormat->GetSizeFromDuration(DRAVDuration(kQueueFrameMsec * 1000));
    if (bytesPerItem <= 0)
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "<%s> format without frame size: %s",
                          GetFriendlyName().c_str(), audioFormat->ToString().c_str());
    }
    const int64_t bytes =
        audioFormat->GetSizeFromDuration(DRAVDuration(std::max<int64_t>(0, delayMsec) * 1000));
    // A delay shorter than a frame would give a queue of no items, which
    // drops everything; a very short one would drop frames of a burst.
    const int64_t items =
        std::clamp<int64_t>(bytes / bytesPerItem, kMinQueueItems, std::numeric_limits<int>::max());
    return queue->SetMaxNumItems(static_cast<int>(items));
}

DRAVResult DRAVFilterDelay::InputMediaBufferReceived(std::shared_ptr<DRAVUnitInputPin>, int,
                                                     std::shared_ptr<DRAVMediaBuffer> frame)
{
    if (!IsUnitInitialized())
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    if (GetUnitState() != kDRAVUnitStateRunning)
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    if (!frame)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    if (std::shared_ptr<DRAVMediaFormat> frameFormat = frame->GetMediaFormat())
    {
        CDplScopedLock lock(formatMutex_);
        if (!frameFormat->IsMediaFormat(format_))
        {
            std::shared_ptr<DRAVMediaFormat> copy;
            if (frame->GetMediaFormatCopy(&copy).Succeeded() && copy)
            {
                format_ = std::move(copy);
            }
        }
    }
    frame->SetTimestamp(DRAVTimestamp(frame->GetTimestamp().Get() + delayMsec_.load() * 1000));
    return ProcessFrame(0, std::move(frame));
}

std::shared_ptr<DRAVMediaFormat> DRAVFilterDelay::GetFormat()
{
    CDplScopedLock lock(formatMutex_);
    return format_;
}
