#include "engine/units/DRAVSource.h"

#include "engine/media/DRAVAudioFormatConfiguration.h"
#include "portable-core/KVCMapBuilder.h"

const char* DRAVSourceTypeToString(DRAVSourceType type)
{
    switch (type)
    {
        case 0:
            return "Unknown";
        case 1:
            return "AVTestGenerator";
        case 2:
            return "AudioDevice";
        case 3:
            return "AudioDeviceDefault";
        case 4:
            return "AudioLoopbackDevice";
        case 6:
            return "AudioTestGenerator";
        case 7:
            return "VideoTestGenerator";
        case 8:
            return "D3DCapture";
        case 9:
            return "VideoCaptureDshow";
        case 12:
            return "FilePlayer";
        case 13:
            return "VirtualCapture";
        default:
            return "(Unknown)";
    }
}

DRAVSource::DRAVSource(const std::string& name, KVCMap* propertyMap, DRAVSourceConfig config, int outputPins)
    : DRAVUnit(name, propertyMap != nullptr ? propertyMap : DRAVSource::GetMyObjectProperties(), 0,
               outputPins),
      config_(config)
{
}

DRAVSource::~DRAVSource()
{
    if (IsUnitInitialized())
    {
        DRAVSource::Deinit();
    }
}

KVCMap* DRAVSource::GetMyObjectProperties()
{
    static KVCMap* const sClassProperties =
        KVCMapBuilder<DRAVSource>(DRAVUnit::GetMyObjectProperties())
            .Bool(kPropertySourceMuteAudio, &DRAVSource::SetAudioMute, &DRAVSource::GetAudioMute)
            .Double(kPropertySourceAudioGain, &DRAVSource::SetAudioGain, &DRAVSource::GetAudioGain)
            .Int(kPropertySourceAudioDelay, &DRAVSource::SetAudioDelayMsec, &DRAVSource::GetAudioDelayMsec)
            .Int(kPropertyAudioBufferSizeMs, &DRAVSource::SetAudioBufferSizeMsec,
                 &DRAVSource::GetAudioBufferSizeMsec)
            .Int(kPropertySourceStartTimeUsec, &DRAVSource::SetStartTimeUsec, &DRAVSource::GetStartTimeUsec)
            .Bool(kPropertySourceTimestampWatchdog, &DRAVSource::SetTimestampWatchdog,
                  &DRAVSource::GetTimestampWatchdog)
            .Bool(kPropertySourceEnableSourceCopy, &DRAVSource::SetEnableSourceCopy,
                  &DRAVSource::GetEnableSourceCopy)
            .Build();
    return sClassProperties;
}

DRAVResult DRAVSource::Init()
{
    return InitSource(outputPinType_.load());
}

DRAVResult DRAVSource::InitSource(DRAVPinType outputPinType)
{
    outputPinType_.store(outputPinType);
    DRAVResult result = InitUnit(kDRAVPinTypeNone, outputPinType);
    if (!result.Succeeded())
    {
        return result;
    }
    if (HasAudioPin() && outputPinType != kDRAVPinTypePullBlocking)
    {
        // Audio is pulled in spans of the consumer's size, which only a ring gives.
        std::shared_ptr<DRAVUnitOutputPin> pin = GetOutputPin(GetAudioPinIndex());
        if (pin && pin->GetPinType() != kDRAVPinTypePullRingBuffer)
        {
            result = pin->ChangePinType(kDRAVPinTypePullRingBuffer);
        }
    }
    return result;
}

DRAVResult DRAVSource::Deinit()
{
    std::shared_ptr<DRAVUnit> self = SharedUnit();
    converterPull_.Store(nullptr);
    audioConverter_.StopUnit(self);
    audioDelay_.StopUnit(self);
    audioLevelmeter_.StopUnit(self);
    audioEncoder_.StopUnit(self);
    return DRAVUnit::Deinit();
}

std::shared_ptr<DRAVUnitOutputPin> DRAVSource::ChoosePullPin(int pin)
{
    if (pin < 0)
    {
        pin = GetNumOutputPins() > 1 ? 1 : 0;
    }
    return GetOutputPin(pin);
}

DRAVResult DRAVSource::RequestAudioFrame(const DRAVTimestamp& time, const DRAVDuration& duration, int pin)
{
    if (!IsUnitInitialized())
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    if (GetUnitState() != kDRAVUnitStateRunning)
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    if (std::shared_ptr<DRAVUnitPullInterface> converter = converterPull_.Load())
    {
        return converter->RequestAudioFrame(time, duration, pin);
    }
    std::shared_ptr<DRAVUnitOutputPin> output = ChoosePullPin(pin);
    if (!output)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    std::shared_ptr<DRAVQueueInterface> queue = output->GetQueue();
    if (!queue)
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    return queue->DropBuffersBefore(time - duration);
}

DRAVResult DRAVSource::PullAudioFrame(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                                      const DRAVDuration& duration, int pin)
{
    if (!IsUnitInitialized())
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    if (GetUnitState() != kDRAVUnitStateRunning)
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    if (std::shared_ptr<DRAVUnitPullInterface> converter = converterPull_.Load())
    {
        return converter->PullAudioFrame(time, out, duration, -1);
    }
    std::shared_ptr<DRAVUnitOutputPin> output = ChoosePullPin(pin);
    if (!output)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    return output->PullAudioBuffer(time, out, duration);
}

DRAVResult DRAVSource::PullAudioFrame(const DRAVTimestamp&, std::shared_ptr<DRAVAudioBuffer>*, int64_t, int)
{
    return DRAVResult(kDRAVResultErrNoData);
}

DRAVResult DRAVSource::MediaBufferReceived(std::shared_ptr<DRAVObject>,
                                           std::shared_ptr<DRAVMediaBuffer> frame)
{
    if (GetUnitState() != kDRAVUnitStateRunning)
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    return ProcessFrame(0, std::move(frame));
}

DRAVResult DRAVSource::StartChildFilter(DRAVUnit::ChildUnit& holder, int32_t filterType,
                                        std::shared_ptr<DRAVMediaBufferDelegate> receiver)
{
    std::shared_ptr<DRAVUnit> self = SharedUnit();
    if (!self)
    {
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    DRAVUnit::ChildUnitType type;
    type.category = DRAVUnit::ChildUnitType::kCategoryFilter;
    type.type = filterType;
    DRAVResult result = holder.StartUnit(type, self, receiver, true);
    if (!result.Succeeded())
    {
        // The source works on without this child.
        holder.StopUnit(self);
        return result;
    }
    std::shared_ptr<DRAVUnit> child = holder.GetUnit();
    CDplScopedLock lock(firstAudioFilterMutex_);
    if (child && firstAudioFilter_.expired())
    {
        firstAudioFilter_ = child;
    }
    return result;
}

DRAVResult DRAVSource::StartAudioConverter()
{
    auto self = std::dynamic_pointer_cast<DRAVMediaBufferDelegate>(SharedUnit());
    converterPull_.Store(nullptr);
    DRAVResult result = StartChildFilter(audioConverter_, kFilterTypeAudioConverter, self);
    if (result.Succeeded())
    {
        if (std::shared_ptr<DRAVUnit> converter = audioConverter_.GetUnit())
        {
            converter->SetJsonProperty(kPropertyAudioFormatConfiguration,
                                       DRAVAudioFormatConfiguration(kDefaultAudioFormatFloat).ToJSON());
            converter->SetPreserveBuffer(true);
            // Pulls go through the converter from now on; found once here
            // rather than cast for every block.
            converterPull_.Store(std::dynamic_pointer_cast<DRAVUnitPullInterface>(converter));
        }
    }
    return result;
}

DRAVResult DRAVSource::StartAudioDelay()
{
    auto self = std::dynamic_pointer_cast<DRAVMediaBufferDelegate>(SharedUnit());
    return StartChildFilter(audioDelay_, kFilterTypeAudioDelay, self);
}

DRAVResult DRAVSource::StartAudioLevelmeter()
{
    // The meter is an end point: it sees the stream and hands nothing on.
    return StartChildFilter(audioLevelmeter_, kFilterTypeAudioLevelmeter, nullptr);
}

DRAVResult DRAVSource::StartAudioEncoder(std::shared_ptr<DRAVMediaBufferDelegate> receiver)
{
    return StartChildFilter(audioEncoder_, kFilterTypeAudioEncoder, std::move(receiver));
}

DRAVResult DRAVSource::GetAudioStatistics(DRAVQueueStatistics* statistics)
{
    if (statistics == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    std::shared_ptr<DRAVUnit> first;
    {
        CDplScopedLock lock(firstAudioFilterMutex_);
        first = firstAudioFilter_.lock();
    }
    if (!first)
    {
        return DRAVResult(kDRAVResultErrNoData);
    }
    if (std::shared_ptr<DRAVUnitInputPin> pin = first->GetInputPin(0))
    {
        pin->GetQueueStatistics(statistics);
    }
    return DRAVResult(kDRAVResultOk);
}

bool DRAVSource::NeedsReset(bool reload)
{
    if (resetCounter_.load() != 0)
    {
        return false;
    }
    if (reload)
    {
        resetCounter_.store(kResetCounterReload);
    }
    return true;
}

void DRAVSource::CountDownReset()
{
    int64_t current = resetCounter_.load();
    while (current > 0 && !resetCounter_.compare_exchange_weak(current, current - 1))
    {
    }
}

void DRAVSource::SetAudioMute(bool mute)
{
    audioMute_.store(mute);
}

bool DRAVSource::GetAudioMute()
{
    return audioMute_.load();
}

void DRAVSource::SetAudioDelayMsec(int64_t delayMsec)
{
    audioDelayMsec_.store(delayMsec);
    if (std::shared_ptr<DRAVUnit> delay = audioDelay_.GetUnit())
    {
        delay->SetIntProperty(kPropertySourceAudioDelay, delayMsec, false);
    }
    SetStartTimeUsec(DRAVGetHostTime().Get());
    if (std::shared_ptr<DRAVUnitOutputPin> pin = GetOutputPin(0))
    {
        if (std::shared_ptr<DRAVQueueInterface> queue = pin->GetQueue())
        {
            queue->Flush();
        }
    }
}

int64_t DRAVSource::GetAudioDelayMsec()
{
    return audioDelayMsec_.load();
}

void DRAVSource::SetAudioBufferSizeMsec(int64_t sizeMsec)
{
    audioBufferSizeMsec_.store(sizeMsec);
}

int64_t DRAVSource::GetAudioBufferSizeMsec()
{
    return audioBufferSizeMsec_.load();
}

void DRAVSource::SetStartTimeUsec(int64_t startTimeUsec)
{
    SetResetPinStatistics(true);
    startTimeUsec_.store(startTimeUsec);
}

int64_t DRAVSource::GetStartTimeUsec()
{
    return startTimeUsec_.load();
}

void DRAVSource::SetTimestampWatchdog(bool enable)
{
    timestampWatchdog_.store(enable);
}

bool DRAVSource::GetTimestampWatchdog()
{
    return timestampWatchdog_.load();
}

void DRAVSource::SetEnableSourceCopy(bool enable)
{
    enableSourceCopy_.store(enable);
}

bool DRAVSource::GetEnableSourceCopy()
{
    return enableSourceCopy_.load();
}
