#include "engine/media/DRAVAudioBuffer.h"

#include <algorithm>
#include <limits>
#include <vector>

#include "engine/media/DRAVBufferRAM.h"
#include "engine/media/DRAVFrameObjectPool.h"
#include "engine/media/DRAVMediaBufferLock.h"
#include "sound/DplAudioConverters.h"

// Turns samples of one type into another, `samples` single samples at a
// time, through the sound library's converter family.
class DRAVAudioSampleConverter
{
public:
    explicit DRAVAudioSampleConverter(std::unique_ptr<CSampleFunnel> funnel) : funnel_(std::move(funnel)) {}

    // False when the samples can't be converted (too many for one call, or a
    // count the converter refuses).
    bool Convert(const uint8_t* from, uint8_t* to, int64_t samples)
    {
        if (samples < 0 || samples > std::numeric_limits<int>::max())
        {
            return false;
        }
        try
        {
            funnel_->FunnelBuffer(to, from, static_cast<int>(samples));
            return true;
        }
        catch (int)
        {
            return false;  // the quantizer refuses a count that isn't whole frames
        }
    }

private:
    std::unique_ptr<CSampleFunnel> funnel_;
};

DRAVAudioBufferHelper::DRAVAudioBufferHelper(const std::string& name) : name_(name) {}

DRAVAudioBufferHelper::~DRAVAudioBufferHelper() = default;

DRAVResult DRAVAudioBufferHelper::InitWithParent(const std::weak_ptr<DRAVMediaBuffer>& parent)
{
    parent_ = parent;
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVAudioBufferHelper::CreateConverter(DRAVAudioSampleType from, DRAVAudioSampleType to,
                                                  uint32_t channels)
{
    if (from == to)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    converter_.reset();
    converterTarget_ = kDRAVAudioSampleTypeUnknown;
    std::unique_ptr<CSampleFunnel> funnel =
        DplAudio_CreateSampleTypeConverter(CSampleType(MapSampleType(from)), CSampleType(MapSampleType(to)),
                                           static_cast<int>(channels), nullptr);
    if (!funnel)
    {
        return DRAVResult(kDRAVResultErrNullPointer, "no sample converter from type %d to %d",
                          static_cast<int>(from), static_cast<int>(to));
    }
    converter_ = std::make_unique<DRAVAudioSampleConverter>(std::move(funnel));
    converterTarget_ = to;
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVAudioBufferHelper::CopyBuffer(std::shared_ptr<DRAVAudioBuffer>* out,
                                             DRAVAudioSampleType sampleType)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    auto parent = std::dynamic_pointer_cast<DRAVAudioBuffer>(parent_.lock());
    if (!parent)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    const auto format = parent->GetAudioFormat();
    if (!format)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    const DRAVAudioSampleType sourceType = format->GetSampleType();
    const int64_t sourceBits = DRAVAudioSampleTypeBits(sourceType);
    const int64_t targetBits = DRAVAudioSampleTypeBits(sampleType);
    if (sourceBits == 0 || targetBits == 0)
    {
        return DRAVResult(kDRAVResultErrInvalidFormat, "cannot copy samples of type %d to type %d",
                          static_cast<int>(sourceType), static_cast<int>(sampleType));
    }
    if (sourceType != sampleType && (!converter_ || converterTarget_ != sampleType))
    {
        DRAVResult made = CreateConverter(sourceType, sampleType, format->GetNumChannels());
        if (!made.Succeeded())
        {
            return made;
        }
    }

    const int64_t allocated = parent->GetAllocatedBufferSize() * targetBits / sourceBits;
    DRAVAudioFormat targetFormat(*format);
    targetFormat.SetSampleType(sampleType);
    auto copy = DRAVAudioBuffer::GetAudioBuffer(name_, allocated, targetFormat, nullptr, 0);
    if (!copy)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }

    // The source's write lock: two copies of one frame run one after the other.
    std::shared_ptr<DRAVBufferRAM> source;
    DRAVResult result;
    DRAVMediaBufferWriteLock<DRAVBufferRAM> sourceLock(parent, &source, &result);
    if (!result.Succeeded())
    {
        return result;
    }
    std::shared_ptr<DRAVBufferRAM> target;
    DRAVMediaBufferWriteLock<DRAVBufferRAM> targetLock(copy, &target, &result);
    if (!result.Succeeded())
    {
        return result;
    }
    const int64_t used = source->GetSizeCurrent();
    const int64_t samples = used * 8 / sourceBits;
    const int64_t targetUsed = used * targetBits / sourceBits;
    if (sourceType != sampleType)
    {
        if (!converter_->Convert(source->GetData(), target->GetData(), samples))
        {
            return DRAVResult(kDRAVResultErrConversionFailed);
        }
        result = target->SetSizeCurrent(targetUsed);
    }
    else
    {
        result = target->FillBuffer(source->GetData(), used);
    }
    if (!result.Succeeded())
    {
        return result;
    }
    copy->SetTimestamp(parent->GetTimestamp());
    copy->SetDuration(parent->GetDuration());
    *out = std::move(copy);
    return DRAVResult(kDRAVResultOk);
}

DRAVAudioBuffer::DRAVAudioBuffer(const std::string& owner, const DRAVAudioFormat& format)
    : DRAVMediaBuffer(owner,
                      std::allocate_shared<DRAVAudioFormat>(DRAVFrameAllocator<DRAVAudioFormat>(), format))
{
}

DRAVAudioBuffer::~DRAVAudioBuffer() = default;

std::shared_ptr<DRAVAudioBuffer> DRAVAudioBuffer::GetAudioBuffer(const std::string& owner, int64_t size,
                                                                 const DRAVAudioFormat& format,
                                                                 const void* data, int64_t dataSize)
{
    if (size < 0)
    {
        return nullptr;
    }
    // Whole frames only: a partial frame at the end is completed.
    const int64_t bytesPerFrame = format.GetBytesPerFrame();
    if (bytesPerFrame > 0 && size % bytesPerFrame != 0)
    {
        size += bytesPerFrame - size % bytesPerFrame;
    }
    // Frame objects come from recycled blocks: making a frame on the audio
    // thread must not reach the heap once the road runs.
    auto frame = std::allocate_shared<DRAVAudioBuffer>(DRAVFrameAllocator<DRAVAudioBuffer>(), owner, format);
    if (!frame->InitMediaBuffer_RAM(size, data, dataSize).Succeeded())
    {
        return nullptr;
    }
    return frame;
}

DRAVResult DRAVAudioBuffer::GetMediaFormatCopy(std::shared_ptr<DRAVMediaFormat>* out) const
{
    const auto format = GetAudioFormat();
    if (out == nullptr || format == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    *out = std::make_shared<DRAVAudioFormat>(*format);
    return DRAVResult(kDRAVResultOk);
}

std::shared_ptr<DRAVAudioFormat> DRAVAudioBuffer::GetAudioFormat() const
{
    return std::dynamic_pointer_cast<DRAVAudioFormat>(format_);
}

int64_t DRAVAudioBuffer::GetNumSamples() const
{
    const auto format = GetAudioFormat();
    if (!format || format->GetBytesPerFrame() <= 0)
    {
        return 0;
    }
    return GetUsedBufferSize() * format->GetNumChannels() / format->GetBytesPerFrame();
}

DRAVResult DRAVAudioBuffer::CopyToInt16(std::shared_ptr<DRAVAudioBuffer>* out)
{
    return CopyBuffer(out, kDRAVAudioSampleTypeInt16);
}

DRAVResult DRAVAudioBuffer::CopyToFloat(std::shared_ptr<DRAVAudioBuffer>* out)
{
    return CopyBuffer(out, kDRAVAudioSampleTypeFloat);
}

DRAVResult DRAVAudioBuffer::CopyBuffer(std::shared_ptr<DRAVAudioBuffer>* out, DRAVAudioSampleType sampleType)
{
    std::lock_guard<std::recursive_mutex> lock(helperMutex_);
    if (!helper_)
    {
        helper_ = std::make_shared<DRAVAudioBufferHelper>(getFriendlyName());
        helper_->InitWithParent(weak_from_this());
    }
    return helper_->CopyBuffer(out, sampleType);
}

void DRAVAudioBuffer::ReserveFrames(const std::string& owner, int64_t size, const DRAVAudioFormat& format,
                                    int count)
{
    std::vector<std::shared_ptr<DRAVAudioBuffer>> frames;
    frames.reserve(static_cast<size_t>(std::max(count, 0)));
    for (int i = 0; i < count; ++i)
    {
        if (std::shared_ptr<DRAVAudioBuffer> frame = GetAudioBuffer(owner, size, format, nullptr, 0))
        {
            frames.push_back(std::move(frame));
        }
    }
}
