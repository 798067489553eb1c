#include "support/UnitTestSupport.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

#include "engine/filters/DRAVEngineFilters.h"
#include "engine/media/DRAVBufferRAM.h"
#include "engine/media/DRAVMediaBufferLock.h"

namespace unittest
{
EngineEnvironment::EngineEnvironment()
{
    formerPool_ = DRAVMemoryPoolRAM::InstallShared(
        std::make_shared<DRAVMemoryPoolRAM>(kMemoryPoolRAMName, kMaxRAMPoolItems, kMaxRAMPoolSizeMB));
    formerRing_ = DRAVUnitPin::InstallRingQueueFactory([](const std::string& name)
                                                       { return std::make_shared<TestRingQueue>(name); });
    formerFactory_ = DRAVUnitFactory::Install(DRAVUnitFactory{});
}

EngineEnvironment::~EngineEnvironment()
{
    DRAVUnitFactory::Install(formerFactory_);
    DRAVUnitPin::InstallRingQueueFactory(formerRing_);
    DRAVMemoryPoolRAM::InstallShared(formerPool_);
}

DRAVUnitFactory EngineFilterFactory()
{
    DRAVUnitFactory factory;
    factory.createFilter =
        [](int32_t type, std::shared_ptr<DRAVUnit> owner, bool init, std::shared_ptr<DRAVUnit>* out)
    {
        std::shared_ptr<DRAVFilter> filter = DRAVCreateEngineFilter(DRAVFilterConfig{type, false});
        if (!filter)
        {
            return DRAVResult(kDRAVResultErrUnknownUnit);
        }
        owner->AddChild(filter);
        filter->SetOwner(owner);
        DRAVResult result = init ? filter->Init() : DRAVResult(kDRAVResultOk);
        if (result.Succeeded())
        {
            *out = filter;
        }
        return result;
    };
    return factory;
}

std::shared_ptr<DRAVAudioBuffer> MakeFrame(int64_t timestampUsec, int64_t frames, float first)
{
    std::vector<float> samples(static_cast<size_t>(frames) * 2);
    for (int64_t i = 0; i < frames; ++i)
    {
        samples[i * 2] = first + static_cast<float>(i);
        samples[i * 2 + 1] = -(first + static_cast<float>(i));
    }
    const int64_t size = static_cast<int64_t>(samples.size() * sizeof(float));
    auto frame =
        DRAVAudioBuffer::GetAudioBuffer("test", size, kDefaultAudioFormatFloat, samples.data(), size);
    if (frame)
    {
        frame->SetTimestamp(DRAVTimestamp(timestampUsec));
        frame->SetDuration(DRAVDuration(frames * 1000000 / 48000));
    }
    return frame;
}

std::vector<float> ChannelSamples(const std::shared_ptr<DRAVAudioBuffer>& frame, int channel)
{
    std::vector<float> out;
    std::shared_ptr<DRAVBufferRAM> storage;
    DRAVMediaBufferReadLock<DRAVBufferRAM> lock(frame, &storage);
    if (!lock.IsLocked())
    {
        return out;
    }
    const auto* samples = reinterpret_cast<const float*>(storage->GetData());
    const int64_t count = frame->GetUsedBufferSize() / static_cast<int64_t>(sizeof(float));
    for (int64_t i = channel; i < count; i += 2)
    {
        out.push_back(samples[i]);
    }
    return out;
}

// TestRingQueue

DRAVResult TestRingQueue::Deinit()
{
    std::lock_guard<std::mutex> lock(mutex_);
    bytes_.clear();
    readTimestamp_ = DRAVTimestamp(-1);
    return DRAVResult();
}

DRAVResult TestRingQueue::Flush()
{
    return Deinit();
}

DRAVResult TestRingQueue::SetMaxTotalSizeMB(int bytes)
{
    std::lock_guard<std::mutex> lock(mutex_);
    capacity_ = bytes;
    bytes_.clear();
    return DRAVResult();
}

int TestRingQueue::GetMaxTotalSizeMB()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<int>(bytes_.size());
}

int64_t TestRingQueue::GetBytesHeld()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<int64_t>(bytes_.size());
}

int TestRingQueue::GetCapacity()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return capacity_;
}

DRAVResult TestRingQueue::AddBuffer(std::shared_ptr<DRAVMediaBuffer> buffer)
{
    if (!buffer || buffer->GetTimestamp().Get() < 0)
    {
        return DRAVResult(kDRAVResultErrInvalidParameter);
    }
    std::shared_ptr<DRAVBufferRAM> storage;
    DRAVResult result;
    DRAVMediaBufferReadLock<DRAVBufferRAM> read(buffer, &storage, &result);
    if (!result.Succeeded())
    {
        return result;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    if (bytes_.empty())
    {
        readTimestamp_ = buffer->GetTimestamp();
    }
    const uint8_t* data = storage->GetData();
    bytes_.insert(bytes_.end(), data, data + buffer->GetUsedBufferSize());
    if (capacity_ > 0 && static_cast<int>(bytes_.size()) > capacity_)
    {
        // Overwrite: the oldest bytes go, the read position follows.
        const size_t excess = bytes_.size() - static_cast<size_t>(capacity_);
        bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(excess));
        readTimestamp_ += DRAVDuration(static_cast<int64_t>(excess) / 8 * 1000000 / 48000);
    }
    return DRAVResult();
}

DRAVResult TestRingQueue::PullAudioBuffer(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                                          const DRAVDuration& duration)
{
    return PullAudioBuffer(time, out, kDefaultAudioFormatFloat.GetFramesFromDuration(duration));
}

DRAVResult TestRingQueue::PullAudioBuffer(const DRAVTimestamp&, std::shared_ptr<DRAVAudioBuffer>* out,
                                          int64_t frames)
{
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    std::lock_guard<std::mutex> lock(mutex_);
    if (bytes_.empty())
    {
        return DRAVResult(kDRAVResultErrNoData);
    }
    const int64_t size = frames * 8;
    if (size > static_cast<int64_t>(bytes_.size()))
    {
        return DRAVResult(kDRAVResultErrInsufficientMemory);
    }
    auto frame = DRAVAudioBuffer::GetAudioBuffer(name_, size, kDefaultAudioFormatFloat, bytes_.data(), size);
    if (!frame)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    bytes_.erase(bytes_.begin(), bytes_.begin() + size);
    frame->SetTimestamp(readTimestamp_);
    frame->SetDuration(DRAVDuration(frames * 1000000 / 48000));
    readTimestamp_ += frame->GetDuration();
    *out = frame;
    return DRAVResult();
}

DRAVResult TestRingQueue::DropBuffersBefore(const DRAVTimestamp& time)
{
    std::lock_guard<std::mutex> lock(mutex_);
    if (bytes_.empty() || readTimestamp_ >= time)
    {
        return DRAVResult(kDRAVResultOkNoDataChanged);
    }
    const int64_t frames = (time - readTimestamp_).Get() * 48000 / 1000000;
    const size_t drop = std::min(bytes_.size(), static_cast<size_t>(frames * 8));
    bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(drop));
    readTimestamp_ = time;
    return DRAVResult();
}

// RecordingReceiver

DRAVResult RecordingReceiver::MediaBufferReceived(std::shared_ptr<DRAVObject> sender,
                                                  std::shared_ptr<DRAVMediaBuffer> frame)
{
    std::lock_guard<std::mutex> lock(mutex_);
    timestamps_.push_back(frame ? frame->GetTimestamp().Get() : -1);
    lastSender_ = sender;
    lastThread_ = std::this_thread::get_id();
    changed_.notify_all();
    return DRAVResult(result_.load());
}

std::vector<int64_t> RecordingReceiver::Timestamps()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return timestamps_;
}

std::shared_ptr<DRAVObject> RecordingReceiver::LastSender()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return lastSender_.lock();
}

std::thread::id RecordingReceiver::LastThread()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return lastThread_;
}

bool RecordingReceiver::WaitFor(size_t count, int timeoutMs)
{
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                             [&] { return timestamps_.size() >= count; });
}

// Units

DRAVResult PassFilter::Init()
{
    DRAVResult result = InitFilter(input_, kDRAVPinTypePassthrough);
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

DRAVResult PassFilter::InputMediaBufferReceived(std::shared_ptr<DRAVUnitInputPin>, int,
                                                std::shared_ptr<DRAVMediaBuffer> frame)
{
    ++received_;
    return ProcessFrame(0, std::move(frame));
}

DRAVResult RecordingSink::Init()
{
    DRAVResult result = InitSink(input_);
    if (result.Succeeded())
    {
        SetUnitInitialized(true);
    }
    return result;
}

DRAVResult RecordingSink::InputMediaBufferReceived(std::shared_ptr<DRAVUnitInputPin>, int pinNumber,
                                                   std::shared_ptr<DRAVMediaBuffer>)
{
    std::lock_guard<std::mutex> lock(mutex_);
    pins_.push_back(pinNumber);
    changed_.notify_all();
    return DRAVResult();
}

std::vector<int> RecordingSink::PinsSeen()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return pins_;
}

bool RecordingSink::WaitFor(size_t count, int timeoutMs)
{
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                             [&] { return pins_.size() >= count; });
}

DRAVResult PlainSource::InitSource(DRAVPinType type)
{
    DRAVResult result = DRAVSource::InitSource(type);
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
}  // namespace unittest
