#include "engine/sinks/DRAVSinkAudioRendererAudioUnit.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "engine/devices/AudioFormatConverter.h"
#include "engine/devices/DeviceStreamBridge.h"
#include "engine/media/DRAVAudioBuffer.h"
#include "engine/media/DRAVBufferRAM.h"
#include "engine/media/DRAVMediaBufferLock.h"
#include "platform/Platform.h"
#include "portable-core/BreakIntoDebugger.h"
#include "portable-core/KVCMapBuilder.h"

using tidemix::engine::AudioFormatConverter;
using tidemix::engine::DeviceStreamBridge;

static_assert(DRAVSinkAudioRendererAudioUnit::kBipBufferCount <= DeviceStreamBridge::kMaxBufferCount);
using tidemix::platform::DeviceStreamFormat;
using tidemix::platform::PlaybackRequest;
using tidemix::platform::PlaybackStream;
using tidemix::platform::SampleEncoding;

namespace
{
bool StreamFormatFromAudioFormat(const DRAVAudioFormat& format, DeviceStreamFormat* out)
{
    if (format.GetSampleType() != kDRAVAudioSampleTypeFloat &&
        format.GetSampleType() != kDRAVAudioSampleTypeInt16)
    {
        return false;
    }
    out->sampleRate = format.GetSampleRate();
    out->channels = format.GetNumChannels();
    out->encoding =
        format.GetSampleType() == kDRAVAudioSampleTypeFloat ? SampleEncoding::Float32 : SampleEncoding::Int16;
    out->interleaved = !format.GetFlag();
    return true;
}

bool SameBlockFormat(const DRAVAudioFormat& a, const DRAVAudioFormat& b)
{
    return a.IsSameFormat(b) && a.GetFlag() == b.GetFlag();
}

}  // namespace

struct DRAVSinkAudioRendererAudioUnit::Impl
{
    // Device thread: one request of the device.
    void AudioOutputProc(const PlaybackRequest& request);
    void Silence(const PlaybackRequest& request) const;
    // Data lock held.
    void Close();

    std::atomic<double> volume{1.0};
    std::atomic<bool> mute{false};

    // The blocks on their way to the device. Its control lock guards the
    // stream, its path and id; its data lock the formats below.
    DeviceStreamBridge bridge{DeviceStreamBridge::ReadPolicy::kWholeOrNothing, kDefaultBufferSizeFrameCount};
    std::string devicePath;
    std::unique_ptr<PlaybackStream> stream;
    uint32_t deviceId = 0;

    DeviceStreamFormat deviceFormat;
    DRAVAudioFormat format{48000, 2, kDRAVAudioSampleTypeFloat, 0, true};
    std::atomic<bool> initialized{false};
    std::atomic<bool> stopping{false};

    std::atomic<int64_t> droppedBlocks{0};
    std::atomic<int64_t> underruns{0};
    std::atomic<int64_t> refusedBlocks{0};
};

DRAVSinkAudioRendererAudioUnit::DRAVSinkAudioRendererAudioUnit(const DRAVSinkConfig& config)
    : DRAVSink("DRAVSinkAudioRendererAudioUnit", DRAVSinkAudioRendererAudioUnit::GetMyObjectProperties(),
               DRAVSinkConfig{kTypeAudioRenderer, config.reserved, config.blocking, config.useDefaultRouting},
               1),
      impl_(std::make_unique<Impl>())
{
}

DRAVSinkAudioRendererAudioUnit::~DRAVSinkAudioRendererAudioUnit()
{
    // The device thread calls into the record: it must be quiet first.
    DeinitAudioUnits();
    if (IsUnitInitialized())
    {
        DRAVSink::Deinit();
    }
}

KVCMap* DRAVSinkAudioRendererAudioUnit::GetMyObjectProperties()
{
    static KVCMap* const sClassProperties =
        KVCMapBuilder<DRAVSinkAudioRendererAudioUnit>(DRAVSink::GetMyObjectProperties())
            .Bool(kPropertyAudioRendererMute, &DRAVSinkAudioRendererAudioUnit::SetAudioMute,
                  &DRAVSinkAudioRendererAudioUnit::GetAudioMute)
            .Double(kPropertyAudioRendererVolume, &DRAVSinkAudioRendererAudioUnit::SetAudioVolume,
                    &DRAVSinkAudioRendererAudioUnit::GetAudioVolume)
            .String(kPropertyCaptureDevicePath, &DRAVSinkAudioRendererAudioUnit::SetDevicePath,
                    &DRAVSinkAudioRendererAudioUnit::GetDevicePath)
            .Int(kPropertyAudioBufferSizeFrameCount, &DRAVSinkAudioRendererAudioUnit::SetBufferSizeFrameCount,
                 &DRAVSinkAudioRendererAudioUnit::GetBufferSizeFrameCount)
            .Build();
    return sClassProperties;
}

DRAVResult DRAVSinkAudioRendererAudioUnit::Init()
{
    DRAVResult result = InitSink(kDRAVPinTypePassthrough);
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

DRAVResult DRAVSinkAudioRendererAudioUnit::Deinit()
{
    DeinitAudioUnits();
    SetUnitInitialized(false);
    return DRAVSink::Deinit();
}

DRAVResult DRAVSinkAudioRendererAudioUnit::SetUnitState(DRAVUnitState state)
{
    DRAVResult result = DRAVSink::SetUnitState(state);
    if (!result.Succeeded())
    {
        return result;
    }
    if (state == kDRAVUnitStateRunning)
    {
        return DRAVResult(kDRAVResultOk);
    }
    if (state == kDRAVUnitStatePaused)
    {
        DeinitAudioUnits();
        return DRAVResult(kDRAVResultOk);
    }
    BreakIntoDebugger();
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVSinkAudioRendererAudioUnit::InputMediaBufferReceived(std::shared_ptr<DRAVUnitInputPin>, int,
                                                                    std::shared_ptr<DRAVMediaBuffer> frame)
{
    if (!IsUnitInitialized())
    {
        return DRAVResult(kDRAVResultErrNotInitialized);
    }
    if (GetUnitState() != kDRAVUnitStateRunning)
    {
        return DRAVResult(kDRAVResultErrInvalidOperation);
    }
    DeviceStreamBridge& bridge = impl_->bridge;
    {
        CDplScopedLock guard(bridge.DataLock());
        if (impl_->initialized.load() &&
            bridge.QueuedFrames() / impl_->bridge.BlockFrameCount() >= kMaxQueuedBlocks)
        {
            impl_->droppedBlocks.fetch_add(1, std::memory_order_relaxed);
            return DRAVResult(kDRAVResultOk);
        }
    }
    auto block = std::dynamic_pointer_cast<DRAVAudioBuffer>(frame);
    if (!block)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    std::shared_ptr<DRAVAudioFormat> blockFormat = block->GetAudioFormat();
    if (!blockFormat)
    {
        return DRAVResult(kDRAVResultErrInvalidFormat);
    }
    if (!impl_->initialized.load())
    {
        DRAVResult result = InitAudioUnits(*blockFormat);
        if (!result.Succeeded())
        {
            return result;
        }
    }

    std::shared_ptr<DRAVBufferRAM> storage;
    DRAVResult locked;
    DRAVMediaBufferReadLock<DRAVBufferRAM> read(block, &storage, &locked);
    if (!locked.Succeeded())
    {
        return locked;
    }
    const auto* data = storage->GetData();
    const auto size = static_cast<size_t>(std::max<int64_t>(block->GetUsedBufferSize(), 0));

    CDplScopedLock guard(bridge.DataLock());
    if (!impl_->initialized.load())
    {
        // Closed meanwhile by a stop.
        return DRAVResult(kDRAVResultErrInvalidOperation);
    }
    if (!SameBlockFormat(*blockFormat, impl_->format))
    {
        impl_->refusedBlocks.fetch_add(1, std::memory_order_relaxed);
        return DRAVResult(kDRAVResultErrInvalidFormat, "blocks changed format to %s",
                          blockFormat->ToString().c_str());
    }
    // Whole frames of every buffer, and all buffers or none, so that the
    // channels never fall out of step.
    const uint64_t bufferCount = bridge.BufferCount();
    const size_t frameBytes = bridge.FrameBytes();
    const size_t bytes = size / bufferCount / frameBytes * frameBytes;
    if (bytes == 0)
    {
        return DRAVResult(kDRAVResultOk);
    }
    // Planar blocks hold each channel's part one after the other.
    const size_t stride = size / bufferCount;
    std::array<const void*, DeviceStreamBridge::kMaxBufferCount> sources{};
    for (uint64_t i = 0; i < bufferCount; ++i)
    {
        sources[i] = data + i * stride;
    }
    if (!bridge.Write(sources.data(), bufferCount, bytes))
    {
        impl_->droppedBlocks.fetch_add(1, std::memory_order_relaxed);
    }
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVSinkAudioRendererAudioUnit::InitAudioUnits(const DRAVAudioFormat& format)
{
    DeviceStreamBridge& bridge = impl_->bridge;
    CDplScopedLock control(bridge.ControlLock());
    if (impl_->initialized.load())
    {
        return DRAVResult(kDRAVResultOk);
    }
    // A stop between the caller's check and here wins.
    if (GetUnitState() != kDRAVUnitStateRunning)
    {
        return DRAVResult(kDRAVResultErrInvalidOperation);
    }
    DeviceStreamFormat inputFormat;
    if (!StreamFormatFromAudioFormat(format, &inputFormat) || inputFormat.channels == 0 ||
        inputFormat.channels > kBipBufferCount)
    {
        return DRAVResult(kDRAVResultErrInvalidFormat, "blocks of %s can't be played",
                          format.ToString().c_str());
    }
    impl_->stopping.store(false);
    const auto deviceId = static_cast<uint32_t>(std::atol(impl_->devicePath.c_str()));

    Impl* impl = impl_.get();
    std::unique_ptr<PlaybackStream> stream = tidemix::platform::Platform::Current()->Audio().OpenPlayback(
        deviceId, [impl](const PlaybackRequest& request) { impl->AudioOutputProc(request); });
    if (!stream)
    {
        return DRAVResult(kDRAVResultErrInvalidState, "no output device %u", deviceId);
    }
    const DeviceStreamFormat deviceFormat = stream->Format();
    DRAVResult created;
    std::unique_ptr<AudioFormatConverter> converter =
        bridge.CreateConverter(inputFormat, deviceFormat, impl_->bridge.BlockFrameCount(), &created);
    if (!converter)
    {
        return DRAVResult(kDRAVResultErrInvalidState, "no converter to device %u: %s", deviceId,
                          created.GetMessage().c_str());
    }
    {
        CDplScopedLock guard(bridge.DataLock());
        impl_->format = format;
        impl_->deviceFormat = deviceFormat;
        if (!bridge.Open(inputFormat, size_t{inputFormat.sampleRate} * kBipBufferSeconds,
                         std::move(converter)))
        {
            return DRAVResult(kDRAVResultErrInvalidState, "no memory for the bip buffers");
        }
        bridge.ResetCounters();
        impl_->initialized.store(true);
    }
    impl_->stream = std::move(stream);
    impl_->deviceId = deviceId;
    ApplyVolume();
    DRAVResult started = impl_->stream->Start();
    if (!started.Succeeded())
    {
        std::unique_ptr<PlaybackStream> failed = std::move(impl_->stream);
        CDplScopedLock guard(bridge.DataLock());
        impl_->Close();
        return DRAVResult(kDRAVResultErrInvalidState, "device %u doesn't start: %s", deviceId,
                          started.GetMessage().c_str());
    }
    return DRAVResult(kDRAVResultOk);
}

void DRAVSinkAudioRendererAudioUnit::DeinitAudioUnits()
{
    DeviceStreamBridge& bridge = impl_->bridge;
    CDplScopedLock control(bridge.ControlLock());
    if (!impl_->initialized.load())
    {
        return;
    }
    // The device thread leaves at once while the stream stops.
    impl_->stopping.store(true);
    impl_->stream->Stop();
    std::unique_ptr<PlaybackStream> stream = std::move(impl_->stream);
    impl_->deviceId = 0;
    CDplScopedLock guard(bridge.DataLock());
    impl_->Close();
}

void DRAVSinkAudioRendererAudioUnit::Impl::Close()
{
    initialized.store(false);
    bridge.Close();
}

void DRAVSinkAudioRendererAudioUnit::Impl::Silence(const PlaybackRequest& request) const
{
    if (request.buffers == nullptr || request.bufferCount != deviceFormat.BufferCount())
    {
        return;
    }
    const size_t bytes = size_t{request.frames} * deviceFormat.BytesPerSample() *
                         (deviceFormat.interleaved ? deviceFormat.channels : 1);
    for (uint32_t i = 0; i < request.bufferCount; ++i)
    {
        if (request.buffers[i] != nullptr)
        {
            std::memset(request.buffers[i], 0, bytes);
        }
    }
}

void DRAVSinkAudioRendererAudioUnit::Impl::AudioOutputProc(const PlaybackRequest& request)
{
    if (stopping.load(std::memory_order_acquire))
    {
        Silence(request);
        return;
    }
    CDplScopedLock guard(bridge.DataLock());
    if (!initialized.load() || !bridge.IsOpen())
    {
        Silence(request);
        return;
    }
    if (request.buffers == nullptr || request.bufferCount != deviceFormat.BufferCount())
    {
        return;
    }
    // Whole silence rather than a partial block; what waits stays for the
    // next request.
    if (bridge.QueuedFrames() < static_cast<int64_t>(bridge.InputFramesForOutput(request.frames)))
    {
        underruns.fetch_add(1, std::memory_order_relaxed);
        Silence(request);
        return;
    }
    bridge.Render(request.buffers, request.frames);
}

void DRAVSinkAudioRendererAudioUnit::ApplyVolume()
{
    CDplScopedLock control(impl_->bridge.ControlLock());
    if (impl_->stream)
    {
        impl_->stream->SetVolume(impl_->mute.load() ? 0.0f : static_cast<float>(impl_->volume.load()));
    }
}

void DRAVSinkAudioRendererAudioUnit::SetAudioVolume(double volume)
{
    impl_->volume.store(std::isnan(volume) ? 0.0 : std::clamp(volume, 0.0, 1.0));
    ApplyVolume();
}

double DRAVSinkAudioRendererAudioUnit::GetAudioVolume()
{
    return impl_->volume.load();
}

void DRAVSinkAudioRendererAudioUnit::SetAudioMute(bool mute)
{
    impl_->mute.store(mute);
    ApplyVolume();
}

bool DRAVSinkAudioRendererAudioUnit::GetAudioMute()
{
    return impl_->mute.load();
}

void DRAVSinkAudioRendererAudioUnit::SetDevicePath(const std::string& path)
{
    DeviceStreamBridge& bridge = impl_->bridge;
    CDplScopedLock control(bridge.ControlLock());
    impl_->devicePath = path;
    const auto deviceId = static_cast<uint32_t>(std::atol(path.c_str()));
    if (!impl_->stream || deviceId == 0 || deviceId == impl_->deviceId)
    {
        return;
    }
    // Stopped for the move, so that no request of the new device meets the
    // converter of the old one.
    impl_->stream->Stop();
    DRAVResult moved = impl_->stream->MoveTo(deviceId);
    if (moved.Succeeded())
    {
        const DeviceStreamFormat deviceFormat = impl_->stream->Format();
        std::unique_ptr<AudioFormatConverter> converter;
        if (deviceFormat != impl_->deviceFormat)
        {
            DeviceStreamFormat inputFormat;
            {
                CDplScopedLock guard(bridge.DataLock());
                inputFormat = bridge.Format();
            }
            converter =
                bridge.CreateConverter(inputFormat, deviceFormat, impl_->bridge.BlockFrameCount(), &moved);
            if (!converter)
            {
                // Back to where it played before.
                impl_->stream->MoveTo(impl_->deviceId);
            }
        }
        if (converter)
        {
            CDplScopedLock guard(bridge.DataLock());
            impl_->deviceFormat = deviceFormat;
            converter = bridge.SwapConverter(std::move(converter));
        }
        if (moved.Succeeded())
        {
            impl_->deviceId = deviceId;
        }
    }
    if (!moved.Succeeded())
    {
        moved.LogError("<%s> Move to device %u", GetFriendlyName().c_str(), deviceId);
    }
    impl_->stream->Start();
}

std::string DRAVSinkAudioRendererAudioUnit::GetDevicePath()
{
    CDplScopedLock control(impl_->bridge.ControlLock());
    return impl_->devicePath;
}

DRAVResult DRAVSinkAudioRendererAudioUnit::SetBufferSizeFrameCount(int64_t frames)
{
    // The converter works in slices of any size: only the limit of waiting
    // blocks follows the new size.
    DRAVResult result = impl_->bridge.SetBlockFrameCount(frames);
    result.LogError("<%s> SetBufferSizeFrameCount", GetFriendlyName().c_str());
    return result;
}

int64_t DRAVSinkAudioRendererAudioUnit::GetBufferSizeFrameCount()
{
    return impl_->bridge.BlockFrameCount();
}

bool DRAVSinkAudioRendererAudioUnit::AreAudioUnitsInitialized()
{
    return impl_->initialized.load();
}

double DRAVSinkAudioRendererAudioUnit::GetDeviceVolume()
{
    CDplScopedLock control(impl_->bridge.ControlLock());
    return impl_->stream ? static_cast<double>(impl_->stream->Volume()) : -1.0;
}

uint32_t DRAVSinkAudioRendererAudioUnit::GetDeviceId()
{
    CDplScopedLock control(impl_->bridge.ControlLock());
    return impl_->stream ? impl_->deviceId : 0;
}

int64_t DRAVSinkAudioRendererAudioUnit::GetQueuedFrameCount()
{
    CDplScopedLock guard(impl_->bridge.DataLock());
    return impl_->bridge.QueuedFrames();
}

int64_t DRAVSinkAudioRendererAudioUnit::GetFramesPlayed()
{
    return impl_->bridge.FramesRead();
}

int64_t DRAVSinkAudioRendererAudioUnit::GetDroppedBlockCount()
{
    return impl_->droppedBlocks.load();
}

int64_t DRAVSinkAudioRendererAudioUnit::GetUnderrunCount()
{
    return impl_->underruns.load();
}

int64_t DRAVSinkAudioRendererAudioUnit::GetRefusedBlockCount()
{
    return impl_->refusedBlocks.load();
}
