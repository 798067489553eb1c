#include "engine/sources/DRAVSourceAudioCaptureCoreAudio.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "engine/DRAVManager.h"
#include "engine/devices/AudioFormatConverter.h"
#include "engine/devices/DRAVDeviceCoreAudio.h"
#include "engine/devices/DeviceStreamBridge.h"
#include "engine/media/DRAVAudioBuffer.h"
#include "engine/media/DRAVBufferRAM.h"
#include "engine/media/DRAVMediaBufferLock.h"
#include "platform/Platform.h"
#include "portable-core/DRAVLog.h"
#include "portable-core/KVCMapBuilder.h"

using tidemix::engine::AudioFormatConverter;
using tidemix::engine::DeviceStreamBridge;

static_assert(DRAVSourceAudioCaptureCoreAudio::kBipBufferCount <= DeviceStreamBridge::kMaxBufferCount);
using tidemix::platform::CapturePacket;
using tidemix::platform::CaptureStream;
using tidemix::platform::DeviceStreamFormat;

struct DRAVSourceAudioCaptureCoreAudio::Impl
{
    explicit Impl(DRAVSourceAudioCaptureCoreAudio* source) : owner(source) {}

    // Device thread: one packet in, as many blocks out as it completes.
    void AudioInputProc(const CapturePacket& packet);

    DRAVSourceAudioCaptureCoreAudio* const owner;

    // The device's frames on their way to blocks. Its data lock also guards
    // the device's names below; its control lock serialises start, stop and
    // moves.
    DeviceStreamBridge bridge{DeviceStreamBridge::ReadPolicy::kWhatWaits, kDefaultBufferSizeFrameCount};

    std::string devicePath;
    std::string hardwareId;
    int64_t deviceIndex = 0;
    std::unique_ptr<CaptureStream> stream;
    const DRAVAudioFormat targetFormat{48000, 2, kDRAVAudioSampleTypeFloat, 0, true};
    std::atomic<bool> running{false};

    std::atomic<int64_t> blocks{0};
    std::atomic<int64_t> droppedPackets{0};
    std::atomic<int64_t> lostBlocks{0};
    // Kept so that no owner name is built for every block.
    const std::string bufferOwner{"DRAVSourceAudioCaptureCoreAudio"};
};

DRAVSourceAudioCaptureCoreAudio::DRAVSourceAudioCaptureCoreAudio(DRAVSourceConfig config, KVCMap* propertyMap)
    : DRAVSource(
          "DRAVSourceAudioCaptureCoreAudio",
          propertyMap != nullptr ? propertyMap : DRAVSourceAudioCaptureCoreAudio::GetMyObjectProperties(),
          config, 1),
      impl_(std::make_unique<Impl>(this))
{
    SetDevicePath(DRAVManager::GetDRAVManager()->GetEngineSettings().micSource.devicePath);
}

DRAVSourceAudioCaptureCoreAudio::~DRAVSourceAudioCaptureCoreAudio()
{
    // The device thread calls into this object: it must be quiet first.
    StopDevice();
    if (IsUnitInitialized())
    {
        DRAVSource::Deinit();
    }
}

KVCMap* DRAVSourceAudioCaptureCoreAudio::GetMyObjectProperties()
{
    static KVCMap* const sClassProperties =
        KVCMapBuilder<DRAVSourceAudioCaptureCoreAudio>(DRAVSource::GetMyObjectProperties())
            .String(kPropertyCaptureDevicePath, &DRAVSourceAudioCaptureCoreAudio::SetDevicePath,
                    &DRAVSourceAudioCaptureCoreAudio::GetDevicePath)
            .Int(kPropertyCaptureDeviceIndex, &DRAVSourceAudioCaptureCoreAudio::SetDeviceIndex,
                 &DRAVSourceAudioCaptureCoreAudio::GetDeviceIndex)
            .String(kPropertyCaptureDeviceHardwareId, &DRAVSourceAudioCaptureCoreAudio::SetDeviceHardwareId,
                    &DRAVSourceAudioCaptureCoreAudio::GetDeviceHardwareId)
            .Int(kPropertyAudioBufferSizeFrameCount,
                 &DRAVSourceAudioCaptureCoreAudio::SetBufferSizeFrameCount,
                 &DRAVSourceAudioCaptureCoreAudio::GetBufferSizeFrameCount)
            .Build();
    return sClassProperties;
}

DRAVResult DRAVSourceAudioCaptureCoreAudio::InitSource(DRAVPinType outputPinType)
{
    DRAVResult result = DRAVSource::InitSource(outputPinType);
    if (!result.Succeeded())
    {
        Deinit();
        return result;
    }
    result = StartAudioLevelmeter();
    if (!result.Succeeded())
    {
        result.LogError("<%s> No level meter.", GetFriendlyName().c_str());
        DRAVSource::Deinit();
        return result;
    }
    SetUnitInitialized(true);
    return result;
}

DRAVResult DRAVSourceAudioCaptureCoreAudio::Deinit()
{
    if (IsUnitInitialized())
    {
        SetUnitState(kDRAVUnitStatePaused);
        SetUnitInitialized(false);
    }
    // A source started without InitSource still has its device open.
    StopDevice();
    return DRAVSource::Deinit();
}

DRAVResult DRAVSourceAudioCaptureCoreAudio::SetUnitState(DRAVUnitState state)
{
    DRAVResult result = DRAVSource::SetUnitState(state);
    if (!result.Succeeded())
    {
        return result;
    }
    if (state == kDRAVUnitStateRunning)
    {
        result = StartDevice();
        result.LogError("<%s> Start of capture device \"%s\"", GetFriendlyName().c_str(),
                        GetDevicePath().c_str());
        return result;
    }
    if (state == kDRAVUnitStatePaused)
    {
        return StopDevice();
    }
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVSourceAudioCaptureCoreAudio::StartDevice()
{
    DeviceStreamBridge& bridge = impl_->bridge;
    CDplScopedLock control(bridge.ControlLock());
    if (impl_->running.load())
    {
        return DRAVResult(kDRAVResultErrInvalidState, "already running");
    }
    std::string path;
    std::string hardwareId;
    {
        CDplScopedLock guard(bridge.DataLock());
        path = impl_->devicePath;
        hardwareId = impl_->hardwareId;
    }
    if (path.empty() && !hardwareId.empty())
    {
        for (const DRAVDeviceDescriptor& descriptor :
             DRAVDeviceCoreAudio::EnumDeviceDescriptors(kDRAVDeviceTypeAudioCapture))
        {
            if (descriptor.hardwareId == hardwareId)
            {
                path = descriptor.devicePath;
                break;
            }
        }
        if (path.empty())
        {
            // The device isn't there: nothing to capture, and no error.
            DRAVLogPrintf(kDbgPrintLevelWarning, "<%s> No capture device has hardware id \"%s\".",
                          GetFriendlyName().c_str(), hardwareId.c_str());
            return DRAVResult(kDRAVResultOk);
        }
    }
    const auto deviceId = static_cast<uint32_t>(std::atol(path.c_str()));

    // A device thread that wakes late renders several blocks at once; the
    // frames for such a burst are made here, not on that thread.
    DRAVAudioBuffer::ReserveFrames(
        impl_->bufferOwner, int64_t{impl_->bridge.BlockFrameCount()} * impl_->targetFormat.GetBytesPerFrame(),
        impl_->targetFormat, kReservedFrames);

    // Opened without the lock: opening may wait for the device's thread.
    Impl* impl = impl_.get();
    std::unique_ptr<CaptureStream> stream = tidemix::platform::Platform::Current()->Audio().OpenCapture(
        deviceId, [impl](const CapturePacket& packet) { impl->AudioInputProc(packet); });
    if (!stream)
    {
        return DRAVResult(kDRAVResultErrInvalidState, "no capture device %u", deviceId);
    }
    {
        CDplScopedLock guard(bridge.DataLock());
        const DeviceStreamFormat format = stream->Format();
        if (format.channels == 0 || format.BufferCount() > kBipBufferCount ||
            format.channels > kBipBufferCount)
        {
            return DRAVResult(kDRAVResultErrInvalidState, "device %u has %u channels", deviceId,
                              format.channels);
        }
        DRAVResult created;
        std::unique_ptr<AudioFormatConverter> converter = bridge.CreateConverter(
            format, AudioFormatConverter::MixFormat(), impl_->bridge.BlockFrameCount(), &created);
        if (!converter)
        {
            return DRAVResult(kDRAVResultErrInvalidState, "no converter for device %u: %s", deviceId,
                              created.GetMessage().c_str());
        }
        // Five seconds of the device's audio, at the faster of the two rates.
        const size_t rate = std::max(format.sampleRate, impl_->targetFormat.GetSampleRate());
        if (!bridge.Open(format, rate * kBipBufferSeconds, std::move(converter)))
        {
            return DRAVResult(kDRAVResultErrInvalidState, "no memory for the bip buffers");
        }
        bridge.ResetCounters();
        // Packets wait for the lock until the start is complete.
        impl_->running.store(true);
        DRAVResult started = stream->Start();
        if (!started.Succeeded())
        {
            impl_->running.store(false);
            bridge.Close();
            bridge.ResetCounters();
            return DRAVResult(kDRAVResultErrInvalidState, "device %u doesn't start: %s", deviceId,
                              started.GetMessage().c_str());
        }
        impl_->stream = std::move(stream);
    }
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVSourceAudioCaptureCoreAudio::StopDevice()
{
    DeviceStreamBridge& bridge = impl_->bridge;
    CDplScopedLock control(bridge.ControlLock());
    if (!impl_->running.load())
    {
        return DRAVResult(kDRAVResultErrInvalidState, "not running");
    }
    // Stopped before the lock is taken: a packet in flight finishes first.
    impl_->stream->Stop();
    std::unique_ptr<CaptureStream> stream;
    {
        CDplScopedLock guard(bridge.DataLock());
        impl_->running.store(false);
        stream = std::move(impl_->stream);
        bridge.Close();
        bridge.ResetCounters();
    }
    return DRAVResult(kDRAVResultOk);
}

void DRAVSourceAudioCaptureCoreAudio::Impl::AudioInputProc(const CapturePacket& packet)
{
    CDplScopedLock guard(bridge.DataLock());
    if (!running.load() || !bridge.IsOpen())
    {
        return;
    }
    if (packet.frames == 0)
    {
        return;
    }
    // A packet is taken whole or not at all, so that the channels stay in step.
    if (packet.buffers == nullptr ||
        !bridge.Write(packet.buffers, packet.bufferCount, size_t{packet.frames} * bridge.FrameBytes()))
    {
        droppedPackets.fetch_add(1, std::memory_order_relaxed);
        return;
    }

    const uint32_t blockFrames = bridge.BlockFrameCount();
    const int64_t blockBytes = int64_t{blockFrames} * targetFormat.GetBytesPerFrame();
    while (bridge.QueuedFrames() >= static_cast<int64_t>(bridge.InputFramesForOutput(blockFrames)))
    {
        std::shared_ptr<DRAVAudioBuffer> block =
            DRAVAudioBuffer::GetAudioBuffer(bufferOwner, blockBytes, targetFormat, nullptr, 0);
        if (!block)
        {
            // No frame to render into: the audio waits for the next packet.
            lostBlocks.fetch_add(1, std::memory_order_relaxed);
            return;
        }
        {
            std::shared_ptr<DRAVBufferRAM> storage;
            DRAVMediaBufferWriteLock<DRAVBufferRAM> write(block, &storage);
            if (!write.IsLocked() || storage->GetSizeMax() < blockBytes)
            {
                lostBlocks.fetch_add(1, std::memory_order_relaxed);
                return;
            }
            auto* left = reinterpret_cast<float*>(storage->GetData());
            void* const planes[2] = {left, left + blockFrames};
            bridge.Render(planes, blockFrames);
            storage->SetSizeCurrent(blockBytes);
        }
        block->SetTimestamp(DRAVGetHostTime());
        block->SetDuration(targetFormat.GetDurationFromFrames(blockFrames));
        blocks.fetch_add(1, std::memory_order_relaxed);
        owner->HandOutBlock(block);
    }
}

void DRAVSourceAudioCaptureCoreAudio::HandOutBlock(const std::shared_ptr<DRAVMediaBuffer>& block)
{
    if (std::shared_ptr<DRAVUnit> meter = GetAudioLevelmeter())
    {
        meter->SendFrame(block);
    }
    ProcessFrame(0, block);
}

void DRAVSourceAudioCaptureCoreAudio::SetDevicePath(const std::string& path)
{
    if (impl_->running.load())
    {
        SetUnitState(kDRAVUnitStatePaused);
        {
            CDplScopedLock guard(impl_->bridge.DataLock());
            impl_->devicePath = path;
        }
        SetUnitState(kDRAVUnitStateRunning);
        return;
    }
    CDplScopedLock guard(impl_->bridge.DataLock());
    impl_->devicePath = path;
}

std::string DRAVSourceAudioCaptureCoreAudio::GetDevicePath()
{
    CDplScopedLock guard(impl_->bridge.DataLock());
    return impl_->devicePath;
}

void DRAVSourceAudioCaptureCoreAudio::SetDeviceIndex(int64_t index)
{
    CDplScopedLock guard(impl_->bridge.DataLock());
    impl_->deviceIndex = index;
}

int64_t DRAVSourceAudioCaptureCoreAudio::GetDeviceIndex()
{
    CDplScopedLock guard(impl_->bridge.DataLock());
    return impl_->deviceIndex;
}

void DRAVSourceAudioCaptureCoreAudio::SetDeviceHardwareId(const std::string& hardwareId)
{
    CDplScopedLock guard(impl_->bridge.DataLock());
    impl_->hardwareId = hardwareId;
}

std::string DRAVSourceAudioCaptureCoreAudio::GetDeviceHardwareId()
{
    CDplScopedLock guard(impl_->bridge.DataLock());
    return impl_->hardwareId;
}

DRAVResult DRAVSourceAudioCaptureCoreAudio::SetBufferSizeFrameCount(int64_t frames)
{
    // Under the lock, so that a block is never made half in each size. The
    // converter renders larger blocks in several slices, so it stays.
    DRAVResult result = impl_->bridge.SetBlockFrameCount(frames);
    result.LogError("<%s> SetBufferSizeFrameCount", GetFriendlyName().c_str());
    return result;
}

int64_t DRAVSourceAudioCaptureCoreAudio::GetBufferSizeFrameCount()
{
    return impl_->bridge.BlockFrameCount();
}

bool DRAVSourceAudioCaptureCoreAudio::IsRunning()
{
    return impl_->running.load();
}

int64_t DRAVSourceAudioCaptureCoreAudio::GetFramesWritten()
{
    return impl_->bridge.FramesWritten();
}

int64_t DRAVSourceAudioCaptureCoreAudio::GetFramesRead()
{
    return impl_->bridge.FramesRead();
}

int64_t DRAVSourceAudioCaptureCoreAudio::GetBlockCount()
{
    return impl_->blocks.load();
}

int64_t DRAVSourceAudioCaptureCoreAudio::GetDroppedPacketCount()
{
    return impl_->droppedPackets.load();
}

int64_t DRAVSourceAudioCaptureCoreAudio::GetLostBlockCount()
{
    return impl_->lostBlocks.load();
}
