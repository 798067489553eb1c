#include "control/DRMXCaptureSourceSlot.h"

#include "engine/media/DRAVAudioFormat.h"
#include "engine/media/DRAVMediaFormatChangeDelegate.h"
#include "engine/units/DRAVPinType.h"
#include "engine/units/DRAVRingBuffer.h"
#include "engine/units/DRAVUnitOutputPin.h"
#include "engine/units/DRAVUnitState.h"
#include "portable-core/DRAVPropertyNames.h"

namespace
{
// Replaces the first block the ring receives by silence of the fill's
// length, so the mix starts that far behind the device. It runs once, on the
// device's thread, when the ring learns its format; it allocates nothing.
class RingStartFill : public DRAVMediaFormatChangeDelegate
{
public:
    RingStartFill(const std::shared_ptr<DRAVRingBuffer>& ring, DRAVDuration fill) : ring_(ring), fill_(fill)
    {
    }

    DRAVResult MediaFormatChanged(std::shared_ptr<DRAVObject>, std::shared_ptr<DRAVMediaBuffer>) override
    {
        if (done_.exchange(true))
        {
            return DRAVResult(kDRAVResultOkNoDataChanged);
        }
        const std::shared_ptr<DRAVRingBuffer> ring = ring_.lock();
        return ring ? ring->MoveReadPointer(fill_) : DRAVResult(kDRAVResultOkNoDataChanged);
    }

private:
    const std::weak_ptr<DRAVRingBuffer> ring_;
    const DRAVDuration fill_;
    std::atomic<bool> done_{false};
};

std::shared_ptr<DRAVRingBuffer> RingOf(const std::shared_ptr<DRAVSourceAudioCaptureCoreAudio>& source)
{
    const std::shared_ptr<DRAVUnitOutputPin> pin = source->GetOutputPin(0);
    return pin ? std::dynamic_pointer_cast<DRAVRingBuffer>(pin->GetQueue()) : nullptr;
}
}  // namespace

DRMXCaptureSourceSlot::DRMXCaptureSourceSlot() = default;

DRMXCaptureSourceSlot::~DRMXCaptureSourceSlot()
{
    Stop();
}

DRAVResult DRMXCaptureSourceSlot::Start(const std::string& devicePath, const std::string& hardwareId)
{
    // A second start must not leave the first source's device open.
    Stop();

    const int64_t frames = bufferFrameCount_.load();
    auto source = std::make_shared<DRAVSourceAudioCaptureCoreAudio>(DRAVSourceConfig{});
    source->SetBufferSizeFrameCount(frames);
    DRAVResult result = source->InitSource(kDRAVPinTypePullRingBuffer);
    std::shared_ptr<RingStartFill> startFill;
    if (result.Succeeded())
    {
        if (const std::shared_ptr<DRAVRingBuffer> ring = RingOf(source))
        {
            const DRAVAudioFormat& format = kDefaultAudioFormatFloat;
            ring->SetMaxTotalSizeMB(static_cast<int>(kRingBlocks * frames * format.GetBytesPerFrame()));
            startFill = std::make_shared<RingStartFill>(
                ring, format.GetDurationFromFrames(kStartFillBlocks * frames));
            ring->SetFormatChangeDelegate(startFill);
        }
    }
    {
        CDplScopedLock lock(lock_);
        source_ = source;
        startFill_ = startFill;
    }
    if (!result.Succeeded())
    {
        return result;
    }
    if (devicePath.empty())
    {
        return DRAVResult(kDRAVResultErrUnknown, "no capture device with the hardware id \"%s\"",
                          hardwareId.c_str());
    }
    source->SetStringProperty(kPropertyCaptureDevicePath, devicePath);
    if (!hardwareId.empty())
    {
        source->SetStringProperty(kPropertyCaptureDeviceHardwareId, hardwareId);
    }
    return source->SetUnitState(kDRAVUnitStateRunning);
}

void DRMXCaptureSourceSlot::Stop()
{
    std::shared_ptr<DRAVSourceAudioCaptureCoreAudio> source;
    std::shared_ptr<DRAVMediaFormatChangeDelegate> startFill;
    {
        CDplScopedLock lock(lock_);
        source = std::move(source_);
        startFill = std::move(startFill_);
    }
    if (source)
    {
        source->SetUnitState(kDRAVUnitStatePaused);
        source->Deinit();
    }
}

std::shared_ptr<DRAVSourceAudioCaptureCoreAudio> DRMXCaptureSourceSlot::Source() const
{
    CDplScopedLock lock(lock_);
    return source_;
}

int64_t DRMXCaptureSourceSlot::GetBufferSizeFrameCount() const
{
    if (const std::shared_ptr<DRAVSourceAudioCaptureCoreAudio> source = Source())
    {
        return source->GetBufferSizeFrameCount();
    }
    return bufferFrameCount_.load();
}

DRAVResult DRMXCaptureSourceSlot::SetBufferSizeFrameCount(int64_t frames)
{
    if (frames < 1 || frames > DRAVSourceAudioCaptureCoreAudio::kMaxBufferSizeFrameCount)
    {
        return DRAVResult(kDRAVResultErrInvalidParameter, "buffer size of %lld frames",
                          static_cast<long long>(frames));
    }
    bufferFrameCount_.store(frames);
    if (const std::shared_ptr<DRAVSourceAudioCaptureCoreAudio> source = Source())
    {
        return source->SetBufferSizeFrameCount(frames);
    }
    return DRAVResult(kDRAVResultOk);
}
