#include "support/DeviceUnitTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "engine/media/DRAVAudioBuffer.h"
#include "engine/media/DRAVBufferRAM.h"
#include "engine/media/DRAVMediaBufferLock.h"
#include "support/DeviceUnitFixture.h"

namespace deviceunits_test
{
using tidemix::platform::CaptureCallback;
using tidemix::platform::CapturePacket;
using tidemix::platform::CaptureStream;
using tidemix::platform::PlaybackCallback;
using tidemix::platform::PlaybackRequest;
using tidemix::platform::PlaybackStream;

DeviceStreamFormat Format(uint32_t rate, uint32_t channels, bool interleaved, SampleEncoding encoding)
{
    DeviceStreamFormat format;
    format.sampleRate = rate;
    format.channels = channels;
    format.interleaved = interleaved;
    format.encoding = encoding;
    return format;
}

namespace
{
void StoreSample(const DeviceStreamFormat& format, void* buffer, size_t index, float value)
{
    if (format.encoding == SampleEncoding::Float32)
    {
        static_cast<float*>(buffer)[index] = value;
    }
    else
    {
        // Raw: the value is the integer sample itself.
        static_cast<int16_t*>(buffer)[index] =
            static_cast<int16_t>(std::clamp(std::lround(value), -32768L, 32767L));
    }
}

float LoadSample(const DeviceStreamFormat& format, const void* buffer, size_t index)
{
    if (format.encoding == SampleEncoding::Float32)
    {
        return static_cast<const float*>(buffer)[index];
    }
    return static_cast<float>(static_cast<const int16_t*>(buffer)[index]) / 32768.0f;
}

// What a hand-driven stream does alike in both directions.
template <class Interface>
class HandStreamBase : public Interface
{
public:
    HandStreamBase(std::shared_ptr<HandStream> stream, tidemix::platform::sim::SimAudioWorld& world)
        : stream_(std::move(stream)), world_(world)
    {
    }
    ~HandStreamBase() override
    {
        stream_->started.store(false);
        stream_->closed.store(true);
    }
    DeviceStreamFormat Format() const override { return stream_->format; }
    DRAVResult Start() override
    {
        if (!world_.Device(stream_->deviceId))
        {
            return DRAVResult(kDRAVResultErrNotFound, "device %u is gone", stream_->deviceId);
        }
        stream_->started.store(true);
        return kDRAVResultOk;
    }
    void Stop() override { stream_->started.store(false); }

protected:
    std::shared_ptr<HandStream> stream_;
    tidemix::platform::sim::SimAudioWorld& world_;
};

using HandCaptureStream = HandStreamBase<CaptureStream>;

class HandPlaybackStream : public HandStreamBase<PlaybackStream>
{
public:
    using HandStreamBase::HandStreamBase;
    void SetVolume(float volume) override { stream_->volume.store(volume); }
    float Volume() const override { return stream_->volume.load(); }
    DRAVResult MoveTo(uint32_t deviceId) override
    {
        auto device = world_.Device(deviceId);
        if (!device || device->outputStreams == 0)
        {
            return DRAVResult(kDRAVResultErrNotFound, "no output device %u", deviceId);
        }
        stream_->deviceId = deviceId;
        stream_->format = device->outputFormat;
        ++stream_->moves;
        return kDRAVResultOk;
    }
};
}  // namespace

void HandStream::Deliver(uint32_t frames, float first)
{
    if (!started.load() || !capture)
    {
        return;
    }
    const uint32_t buffers = format.BufferCount();
    const uint32_t perBuffer = format.interleaved ? format.channels : 1;
    std::vector<std::vector<uint8_t>> storage(
        buffers, std::vector<uint8_t>(size_t{frames} * perBuffer * format.BytesPerSample()));
    std::vector<const void*> pointers;
    for (auto& buffer : storage)
    {
        pointers.push_back(buffer.data());
    }
    for (uint32_t c = 0; c < format.channels; ++c)
    {
        for (uint32_t i = 0; i < frames; ++i)
        {
            const float value = first + static_cast<float>(i) + 1000.0f * static_cast<float>(c);
            if (format.interleaved)
            {
                StoreSample(format, storage[0].data(), size_t{i} * format.channels + c, value);
            }
            else
            {
                StoreSample(format, storage[c].data(), i, value);
            }
        }
    }
    CapturePacket packet;
    packet.buffers = pointers.data();
    packet.bufferCount = buffers;
    packet.frames = frames;
    capture(packet);
}

std::vector<std::vector<float>> HandStream::Request(uint32_t frames)
{
    std::vector<std::vector<float>> channels;
    if (!started.load() || !playback)
    {
        return channels;
    }
    const uint32_t buffers = format.BufferCount();
    const uint32_t perBuffer = format.interleaved ? format.channels : 1;
    // Filled with a pattern, so that a callback that writes nothing shows.
    std::vector<std::vector<uint8_t>> storage(
        buffers, std::vector<uint8_t>(size_t{frames} * perBuffer * format.BytesPerSample(), 0x7f));
    std::vector<void*> pointers;
    for (auto& buffer : storage)
    {
        pointers.push_back(buffer.data());
    }
    PlaybackRequest request;
    request.buffers = pointers.data();
    request.bufferCount = buffers;
    request.frames = frames;
    playback(request);
    channels.assign(format.channels, std::vector<float>(frames));
    for (uint32_t c = 0; c < format.channels; ++c)
    {
        for (uint32_t i = 0; i < frames; ++i)
        {
            channels[c][i] = format.interleaved
                                 ? LoadSample(format, storage[0].data(), size_t{i} * format.channels + c)
                                 : LoadSample(format, storage[c].data(), i);
        }
    }
    return channels;
}

std::unique_ptr<CaptureStream> HandDrivenAudio::OpenCapture(uint32_t deviceId, CaptureCallback callback)
{
    auto device = world_.Device(deviceId);
    if (!device || device->inputStreams == 0)
    {
        return nullptr;
    }
    auto stream = std::make_shared<HandStream>();
    stream->deviceId = deviceId;
    stream->format = device->inputFormat;
    stream->capture = std::move(callback);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (auto found = overrides_.find(deviceId); found != overrides_.end())
        {
            stream->format = found->second;
        }
        streams_.push_back(stream);
    }
    return std::make_unique<HandCaptureStream>(stream, world_);
}

std::unique_ptr<PlaybackStream> HandDrivenAudio::OpenPlayback(uint32_t deviceId, PlaybackCallback callback)
{
    if (deviceId == 0)
    {
        deviceId = world_.DefaultOutput().value_or(0);
    }
    auto device = world_.Device(deviceId);
    if (!device || device->outputStreams == 0)
    {
        return nullptr;
    }
    auto stream = std::make_shared<HandStream>();
    stream->deviceId = deviceId;
    stream->format = device->outputFormat;
    stream->playback = std::move(callback);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (auto found = overrides_.find(deviceId); found != overrides_.end())
        {
            stream->format = found->second;
        }
        streams_.push_back(stream);
    }
    return std::make_unique<HandPlaybackStream>(stream, world_);
}

void HandDrivenAudio::OverrideFormat(uint32_t deviceId, const DeviceStreamFormat& format)
{
    std::lock_guard<std::mutex> lock(mutex_);
    overrides_[deviceId] = format;
}

std::shared_ptr<HandStream> HandDrivenAudio::Last()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return streams_.empty() ? nullptr : streams_.back();
}

int HandDrivenAudio::Opened()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<int>(streams_.size());
}

DRAVResult RecordingMeter::Init()
{
    DRAVResult result = InitFilter(kDRAVPinTypePassthrough, kDRAVPinTypePassthrough);
    if (result.Succeeded())
    {
        SetUnitInitialized(true);
    }
    return result;
}

DRAVResult RecordingMeter::InputMediaBufferReceived(std::shared_ptr<DRAVUnitInputPin>, int,
                                                    std::shared_ptr<DRAVMediaBuffer> frame)
{
    std::lock_guard<std::mutex> lock(mutex_);
    frames_.push_back(std::move(frame));
    return DRAVResult(kDRAVResultOk);
}

std::vector<std::shared_ptr<DRAVMediaBuffer>> RecordingMeter::Frames()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return frames_;
}

size_t RecordingMeter::Count()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return frames_.size();
}

DRAVUnitFactory MeterFactory::Make() const
{
    DRAVUnitFactory factory;
    auto holder = last;
    factory.createFilter = [holder](int32_t type, std::shared_ptr<DRAVUnit> owner, bool init,
                                    std::shared_ptr<DRAVUnit>* out) -> DRAVResult
    {
        if (type != 10)
        {
            return DRAVResult(kDRAVResultErrUnknownUnit);
        }
        auto meter = std::make_shared<RecordingMeter>();
        meter->SetOwner(owner);
        if (init)
        {
            meter->Init();
        }
        *holder = meter;
        *out = meter;
        return DRAVResult(kDRAVResultOk);
    };
    return factory;
}

std::vector<float> PlanarChannel(const std::shared_ptr<DRAVMediaBuffer>& frame, int channel)
{
    std::vector<float> out;
    std::shared_ptr<DRAVBufferRAM> storage;
    DRAVMediaBufferReadLock<DRAVBufferRAM> lock(frame, &storage);
    if (!lock.IsLocked())
    {
        return out;
    }
    const auto* samples = reinterpret_cast<const float*>(storage->GetData());
    const int64_t perChannel = frame->GetUsedBufferSize() / static_cast<int64_t>(sizeof(float)) / 2;
    out.assign(samples + channel * perChannel, samples + (channel + 1) * perChannel);
    return out;
}

std::shared_ptr<DRAVAudioBuffer> MakePlanarBlock(uint32_t frames, double frequency, int64_t start,
                                                 float level)
{
    std::vector<float> samples(size_t{frames} * 2);
    for (uint32_t i = 0; i < frames; ++i)
    {
        const double t = static_cast<double>(start + i);
        const float value =
            frequency > 0.0
                ? level * static_cast<float>(std::sin(2.0 * std::numbers::pi * frequency * t / 48000.0))
                : static_cast<float>(start + i);
        samples[i] = value;
        samples[frames + i] = frequency > 0.0 ? value : -value;
    }
    const DRAVAudioFormat planar{48000, 2, kDRAVAudioSampleTypeFloat, 0, true};
    const auto size = static_cast<int64_t>(samples.size() * sizeof(float));
    auto block = DRAVAudioBuffer::GetAudioBuffer("test", size, planar, samples.data(), size);
    if (block)
    {
        block->SetTimestamp(DRAVTimestamp(start * 1000000 / 48000));
        block->SetDuration(planar.GetDurationFromFrames(frames));
    }
    return block;
}
}  // namespace deviceunits_test

namespace deviceunits_test
{
std::shared_ptr<DRAVSourceAudioCaptureCoreAudio> MakeCaptureSource(uint32_t deviceId, int64_t blockFrames)
{
    auto source = std::make_shared<DRAVSourceAudioCaptureCoreAudio>();
    EXPECT_TRUE(source->InitSource(kDRAVPinTypePullRingBuffer).Succeeded());
    EXPECT_TRUE(source->SetBufferSizeFrameCount(blockFrames).Succeeded());
    source->SetDevicePath(deviceId == 0 ? std::string() : std::to_string(deviceId));
    return source;
}

std::shared_ptr<DRAVSinkAudioRendererAudioUnit> MakeRendererSink(const std::string& path, bool run)
{
    auto sink = std::make_shared<DRAVSinkAudioRendererAudioUnit>();
    EXPECT_TRUE(sink->Init().Succeeded());
    EXPECT_EQ(sink->SetBufferSizeFrameCount(960), kDRAVResultOk);
    sink->SetDevicePath(path);
    if (run)
    {
        EXPECT_TRUE(sink->SetUnitState(kDRAVUnitStateRunning).Succeeded());
    }
    return sink;
}
}  // namespace deviceunits_test
