#include "engine/filters/DRAVAudioLevelmeter.h"

#include <algorithm>
#include <limits>

#include "engine/media/DRAVAudioBuffer.h"
#include "engine/media/DRAVMediaBufferLock.h"
#include "portable-core/KVCMapBuilder.h"
#include "sound/CDplAudioProcessor.h"

DRAVAudioLevelmeter::DRAVAudioLevelmeter(const DRAVFilterConfig& config)
    : DRAVFilter("DRAVAudioLevelmeter", DRAVAudioLevelmeter::GetMyObjectProperties(), config, 1, 1)
{
}

DRAVAudioLevelmeter::~DRAVAudioLevelmeter() = default;

KVCMap* DRAVAudioLevelmeter::GetMyObjectProperties()
{
    static KVCMap* const sClassProperties =
        KVCMapBuilder<DRAVAudioLevelmeter>(DRAVUnit::GetMyObjectProperties())
            .Double(kPropertyAudioVULevelDecreaseValue, &DRAVAudioLevelmeter::SetVUDecreaseValue,
                    &DRAVAudioLevelmeter::GetVUDecreaseValue)
            .Double(kPropertyAudioVULevelChannel1, nullptr, &DRAVAudioLevelmeter::GetVULevelChannel1)
            .Double(kPropertyAudioVULevelChannel2, nullptr, &DRAVAudioLevelmeter::GetVULevelChannel2)
            .Build();
    return sClassProperties;
}

DRAVResult DRAVAudioLevelmeter::Init()
{
    return InitFilter(kDRAVPinTypePassthrough, kDRAVPinTypePassthrough);
}

DRAVResult DRAVAudioLevelmeter::InitFilter(DRAVPinType input, DRAVPinType output)
{
    DRAVResult result = DRAVFilter::InitFilter(input, output);
    if (!result.Succeeded())
    {
        Deinit();
        return result;
    }
    {
        // Made before the unit counts as initialised, so that the first frame
        // already finds it.
        auto processor = std::make_unique<CDplAudioProcessor>(CSampleType(CSampleType::kFloat32),
                                                              kMeterChannels, kMeterSampleRate);
        processor->SetDecreaseDbPerSecond(kDefaultDecreaseDbPerSecond);
        CDplScopedLock lock(mutex_);
        processor_ = std::move(processor);
    }
    SetUnitInitialized(true);
    return result;
}

DRAVResult DRAVAudioLevelmeter::Deinit()
{
    SetUnitInitialized(false);
    std::unique_ptr<CDplAudioProcessor> processor;
    {
        CDplScopedLock lock(mutex_);
        processor.swap(processor_);
    }
    return DRAVFilter::Deinit();
}

DRAVResult DRAVAudioLevelmeter::InputMediaBufferReceived(std::shared_ptr<DRAVUnitInputPin>, int,
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
    if (frame->GetMediaType() != kDRAVMediaTypeAudio)
    {
        return DRAVResult(kDRAVResultOk);
    }
    auto* audio = dynamic_cast<DRAVAudioBuffer*>(frame.get());
    if (audio == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    // The meter reads float samples; other sample types would read as noise.
    const auto* format = dynamic_cast<const DRAVAudioFormat*>(audio->GetMediaFormat().get());
    if (format != nullptr && format->GetSampleType() != kDRAVAudioSampleTypeFloat)
    {
        return DRAVResult(kDRAVResultOk);
    }
    std::shared_ptr<DRAVBuffer> storage;
    DRAVResult result;
    DRAVMediaBufferReadLock<DRAVBuffer> read(std::move(frame), &storage, &result);
    if (!read.IsLocked())
    {
        return result;
    }
    const int bytes = static_cast<int>(
        std::min<int64_t>(storage->GetSizeCurrent(), std::numeric_limits<int>::max() / 4 * 4));
    CDplScopedLock lock(mutex_);
    if (processor_)
    {
        processor_->MeasureAudioLevel(storage->GetData(), bytes);
    }
    return DRAVResult(kDRAVResultOk);
}

void DRAVAudioLevelmeter::SetVUDecreaseValue(double dbPerSecond)
{
    CDplScopedLock lock(mutex_);
    if (processor_)
    {
        processor_->SetDecreaseDbPerSecond(dbPerSecond);
    }
}

double DRAVAudioLevelmeter::GetVUDecreaseValue()
{
    CDplScopedLock lock(mutex_);
    double value = 0.0;
    if (!processor_ || !processor_->GetDecreaseDbPerSecond(&value))
    {
        return 0.0;
    }
    return value;
}

double DRAVAudioLevelmeter::GetVULevelChannel(int channel)
{
    if (channel < 0 || channel >= kMeterChannels)
    {
        return 0.0;
    }
    CDplScopedLock lock(mutex_);
    if (!processor_)
    {
        return 0.0;
    }
    const double level = processor_->GetAudioLevel(channel);
    if (level > 1.0)
    {
        // An overload shows once; then the meter starts again from silence.
        processor_->Reset();
    }
    return level;
}
