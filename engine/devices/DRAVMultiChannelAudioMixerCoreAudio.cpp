#include "engine/devices/DRAVMultiChannelAudioMixerCoreAudio.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "engine/devices/AudioBusMixer.h"
#include "engine/media/DRAVAudioBuffer.h"
#include "engine/media/DRAVAudioBufferList.h"
#include "engine/media/DRAVBufferRAM.h"
#include "engine/media/DRAVMediaBufferLock.h"
#include "platform/Platform.h"
#include "portable-core/BreakIntoDebugger.h"
#include "portable-core/CDplThreadMutex.h"
#include "portable-core/DplDispatchQueue.h"
#include "portable-core/KVCMapBuilder.h"

using tidemix::engine::AudioBusMixer;

namespace
{

constexpr const char* kObjectNamePrefix = "DRAVMultiChannelAudioMixerCoreAudio: ";
constexpr const char* kObjectNameSuffix = " (Core Audio)";
constexpr const char* kRenderQueuePrefix = "coreaudio.mixer.render-";
constexpr uint32_t kSampleRate = 48000;
constexpr uint32_t kChannelMaskStereo = 3;
constexpr uint32_t kTimeStampSampleTimeValid = 1;
constexpr uint32_t kStartFrameCount = 1000;

// 48000 Hz stereo float, planar: the format of every block of a mix.
const DRAVAudioFormat kMixFormat(kSampleRate, 2, kDRAVAudioSampleTypeFloat, kChannelMaskStereo, true);

bool IsValidBus(int bus)
{
    return bus >= 0 && bus < DRAVMultiChannelAudioMixerCoreAudio::kMaxBusCount;
}

DRAVResult InvalidBus(int bus)
{
    return DRAVResult(kDRAVResultErrInvalidParameter, "bus %d outside 0..%d", bus,
                      DRAVMultiChannelAudioMixerCoreAudio::kMaxBusCount - 1);
}

int64_t DurationOfFrames(int64_t frames)
{
    return frames * 1000000 / kSampleRate;
}

struct BufferListDeleter
{
    void operator()(AudioBufferList* list) const { DestroyAudioBufferList(&list); }
};
using BufferListPtr = std::unique_ptr<AudioBufferList, BufferListDeleter>;

// Sample time and host time (nanoseconds) of the next render.
struct RenderTimeStamp
{
    double sampleTime = 0.0;
    uint64_t hostTime = 0;
    uint32_t flags = 0;
};

}  // namespace

struct DRAVMultiChannelAudioMixerCoreAudio::Impl
{
    explicit Impl(const std::string& mixName)
        : name(mixName), renderQueue(std::make_unique<DplDispatchQueue>(kRenderQueuePrefix + mixName, 1))
    {
        inputVolumes.fill(1.0);
    }

    ~Impl() { Stop(); }

    // Builds the mixer for `busCount` buses and the render target. Under lock.
    DRAVResult Start(int busCount, const std::string& ownerName);
    // Sets the stop flag, wakes a sleeping loop, then takes the mixer down.
    void Stop();
    // Lets go of a mixer and a buffer list that were replaced, or keeps them
    // until the block in progress ends. Under lock; the caller frees what is
    // left in the arguments after dropping the lock.
    void Retire(std::unique_ptr<AudioBusMixer>& formerBusMixer, BufferListPtr& formerList);
    bool IsRunning() const { return !stop.load() && busMixer != nullptr; }
    bool IsCurrent(uint64_t loopGeneration) const
    {
        return !stop.load() && generation.load() == loopGeneration;
    }

    std::unique_ptr<AudioBusMixer> MakeMixer(int busCount, uint32_t frames);
    // The reader of one bus: mixes the source's block in place while it is
    // locked, or leaves the bus silent.
    void AudioInputProc(int bus, AudioBusMixer::BusBlock& block, uint32_t frames);
    DRAVDuration AudioThread();
    // The audio thread's loop of one start; ends when stopped, restarted or
    // when the record is gone.
    static void RunLoop(const std::weak_ptr<Impl>& weakImpl, uint64_t loopGeneration);
    void SleepUntil(DRAVTimestamp until, uint64_t loopGeneration);

    const std::string name;
    std::map<int32_t, std::shared_ptr<DRAVSource>> sources;
    std::vector<std::shared_ptr<DRAVSink>> sinks;
    std::unique_ptr<DplDispatchQueue> renderQueue;
    mutable CDplThreadMutex lock;
    const DRAVAudioFormat inputFormat = kMixFormat;
    const DRAVAudioFormat outputFormat = kMixFormat;
    AudioStreamBasicDescription streamDescription{};
    std::unique_ptr<AudioBusMixer> busMixer;
    RenderTimeStamp renderTimeStamp;
    uint32_t processingBufferFrameCount = kStartFrameCount;
    DRAVTimestamp renderClock{-1};
    BufferListPtr bufferList;
    std::array<double, kMaxBusCount> inputVolumes{};
    double outputVolume = 1.0;
    std::atomic<bool> stop{true};

    // Each start gets a number of its own, so that a loop of an earlier start
    // that hasn't noticed its stop yet never renders for a later one.
    std::atomic<uint64_t> generation{0};
    int busCount = 0;
    // The owner name of the blocks, kept so that no block has to ask for it.
    std::string frameOwnerName;
    // A sink or source may stop the unit or change the block size from
    // within a block, on the audio thread itself (the lock is recursive).
    // The mixer and the buffer list that the block is using then wait here
    // until the block ends.
    bool blockInProgress = false;
    std::unique_ptr<AudioBusMixer> retiredBusMixer;
    BufferListPtr retiredList;
    // Wakes a sleeping loop at once when the unit stops.
    std::mutex wakeMutex;
    std::condition_variable wake;
};

std::unique_ptr<AudioBusMixer> DRAVMultiChannelAudioMixerCoreAudio::Impl::MakeMixer(int buses,
                                                                                    uint32_t frames)
{
    auto mixer = std::make_unique<AudioBusMixer>(frames);
    if (!mixer->SetBusCount(static_cast<uint32_t>(buses)).Succeeded())
    {
        return nullptr;
    }
    for (int bus = 0; bus < buses; ++bus)
    {
        // Two words of capture: std::function keeps them without allocating.
        mixer->SetBusReader(static_cast<uint32_t>(bus),
                            [this, bus](AudioBusMixer::BusBlock& block, uint32_t count)
                            { AudioInputProc(bus, block, count); });
        mixer->SetBusGain(static_cast<uint32_t>(bus), static_cast<float>(inputVolumes[bus]));
    }
    mixer->SetOutputGain(static_cast<float>(outputVolume));
    return mixer;
}

DRAVResult DRAVMultiChannelAudioMixerCoreAudio::Impl::Start(int buses, const std::string& ownerName)
{
    CDplScopedLock guard(lock);
    if (buses < 0 || buses > kMaxBusCount)
    {
        return DRAVResult(kDRAVResultErrInvalidState, "%d buses; at most %d", buses, kMaxBusCount);
    }
    streamDescription = ASBDFromAudioFormat(outputFormat);
    std::unique_ptr<AudioBusMixer> mixer = MakeMixer(buses, processingBufferFrameCount);
    BufferListPtr target(AllocateAudioBufferList(streamDescription, processingBufferFrameCount, true));
    if (!mixer || !target)
    {
        return DRAVResult(kDRAVResultErrInvalidState, "no mixer for <%s>", name.c_str());
    }
    busCount = buses;
    busMixer = std::move(mixer);
    bufferList = std::move(target);
    frameOwnerName = ownerName;
    renderTimeStamp = RenderTimeStamp{0.0, 0, kTimeStampSampleTimeValid};
    renderClock = DRAVGetHostTime();
    generation.fetch_add(1);
    stop.store(false);
    return DRAVResult(kDRAVResultOk);
}

void DRAVMultiChannelAudioMixerCoreAudio::Impl::Stop()
{
    stop.store(true);
    {
        std::lock_guard<std::mutex> wakeGuard(wakeMutex);
    }
    wake.notify_all();

    std::unique_ptr<AudioBusMixer> formerBusMixer;
    BufferListPtr formerList;
    CDplScopedLock guard(lock);
    formerBusMixer = std::move(busMixer);
    formerList = std::move(bufferList);
    Retire(formerBusMixer, formerList);
}

void DRAVMultiChannelAudioMixerCoreAudio::Impl::Retire(std::unique_ptr<AudioBusMixer>& formerBusMixer,
                                                       BufferListPtr& formerList)
{
    // Only the first replacement within a block can be what the block uses.
    if (blockInProgress && !retiredBusMixer && !retiredList)
    {
        retiredBusMixer = std::move(formerBusMixer);
        retiredList = std::move(formerList);
    }
}

void DRAVMultiChannelAudioMixerCoreAudio::Impl::AudioInputProc(int bus, AudioBusMixer::BusBlock& mix,
                                                               uint32_t frames)
{
    if (!busMixer)
    {
        return;
    }
    const auto entry = sources.find(bus);
    if (entry == sources.end() || !entry->second)
    {
        return;
    }
    if (stop.load())
    {
        return;
    }
    const std::shared_ptr<DRAVSource> source = entry->second;
    std::shared_ptr<DRAVAudioBuffer> block;
    source->PullAudioFrame(DRAVGetHostTime(), &block, DRAVDuration(DurationOfFrames(frames)), 0);
    if (!block)
    {
        return;
    }
    std::shared_ptr<DRAVBufferRAM> storage;
    DRAVMediaBufferReadLock<DRAVBufferRAM> readLock(block, &storage);
    if (!readLock.IsLocked() || storage->GetData() == nullptr)
    {
        return;
    }

    const size_t channelBytes = size_t{frames} * sizeof(float);
    const size_t used = static_cast<size_t>(std::max<int64_t>(storage->GetSizeCurrent(), 0));
    const uint8_t* data = storage->GetData();
    if (used == 2 * channelBytes)
    {
        // Mixed straight from the block, under its read lock.
        mix.Mix(reinterpret_cast<const float*>(data), reinterpret_cast<const float*>(data + channelBytes));
        return;
    }
    // The ring cuts every block to the asked duration, so this is a fault of
    // the source. Take the block as two planar halves, and copy only what
    // lies within both the block and the target.
    BreakIntoDebugger();
    const size_t half = used / 2 / sizeof(float) * sizeof(float);
    const size_t copied = std::min(half, channelBytes);
    float* left = mix.ScratchLeft();
    float* right = mix.ScratchRight();
    std::memcpy(left, data, copied);
    std::memcpy(right, data + half, copied);
    std::memset(reinterpret_cast<uint8_t*>(left) + copied, 0, channelBytes - copied);
    std::memset(reinterpret_cast<uint8_t*>(right) + copied, 0, channelBytes - copied);
    mix.Mix(left, right);
}

DRAVDuration DRAVMultiChannelAudioMixerCoreAudio::Impl::AudioThread()
{
    CDplScopedLock guard(lock);
    // A stop that ran while this thread waited for the lock wins: nothing
    // more reaches a sink once the stop has returned.
    if (!IsRunning())
    {
        return DRAVDuration(0);
    }
    const uint32_t frames = processingBufferFrameCount;
    const DRAVDuration duration(DurationOfFrames(frames));
    if (!bufferList)
    {
        bufferList.reset(AllocateAudioBufferList(streamDescription, frames, true));
        if (!bufferList)
        {
            // No block this time; the clock goes on.
            return duration;
        }
    }
    auto* left = static_cast<float*>(bufferList->mBuffers[0].mData);
    auto* right = static_cast<float*>(bufferList->mBuffers[1].mData);
    const uint32_t leftBytes = bufferList->mBuffers[0].mDataByteSize;
    const uint32_t rightBytes = bufferList->mBuffers[1].mDataByteSize;
    blockInProgress = true;
    busMixer->Render(left, right, frames);

    // By index, with the sink held: a sink may add another from within.
    for (size_t index = 0; index < sinks.size(); ++index)
    {
        const std::shared_ptr<DRAVSink> sink = sinks[index];
        if (!sink)
        {
            continue;
        }
        std::shared_ptr<DRAVAudioBuffer> frame = DRAVAudioBuffer::GetAudioBuffer(
            frameOwnerName, int64_t{leftBytes} + rightBytes, outputFormat, nullptr, 0);
        if (!frame)
        {
            continue;
        }
        {
            std::shared_ptr<DRAVBufferRAM> storage;
            DRAVMediaBufferWriteLock<DRAVBufferRAM> writeLock(frame, &storage);
            if (!writeLock.IsLocked() || storage->GetData() == nullptr)
            {
                continue;
            }
            std::memcpy(storage->GetData(), left, leftBytes);
            std::memcpy(storage->GetData() + leftBytes, right, rightBytes);
        }
        frame->SetTimestamp(renderClock);
        frame->SetDuration(duration);
        // A sink that refuses the block loses it; the others still get theirs.
        sink->SendAudioFrame(std::move(frame));
        if (stop.load())
        {
            break;  // stopped from within the block: nothing more goes out
        }
    }
    blockInProgress = false;
    retiredBusMixer.reset();
    retiredList.reset();

    renderTimeStamp.sampleTime += frames;
    renderTimeStamp.hostTime += uint64_t{frames} * 1000000000ull / kSampleRate;
    return duration;
}

void DRAVMultiChannelAudioMixerCoreAudio::Impl::SleepUntil(DRAVTimestamp until, uint64_t loopGeneration)
{
    std::unique_lock<std::mutex> wakeGuard(wakeMutex);
    while (IsCurrent(loopGeneration))
    {
        const DRAVDuration left = until - DRAVGetHostTime();
        if (left.Get() <= 0)
        {
            return;
        }
        wake.wait_for(wakeGuard, std::chrono::microseconds(left.Get()));
    }
}

void DRAVMultiChannelAudioMixerCoreAudio::Impl::RunLoop(const std::weak_ptr<Impl>& weakImpl,
                                                        uint64_t loopGeneration)
{
    // No device layer drives this thread, so nobody else asks real-time
    // scheduling for it. A refusal is the backend's to log; the loop runs anyway.
    if (const auto platform = tidemix::platform::Platform::Current())
    {
        platform->RequestRealtimeForCurrentThread();
    }
    {
        const std::shared_ptr<Impl> impl = weakImpl.lock();
        if (!impl)
        {
            return;
        }
        CDplScopedLock guard(impl->lock);
        impl->renderTimeStamp = RenderTimeStamp{0.0, 0, kTimeStampSampleTimeValid};
        impl->renderClock = DRAVGetHostTime();
    }
    for (;;)
    {
        // Held for one block only: a destroyed unit drops its record, and the
        // loop ends at its next turn.
        const std::shared_ptr<Impl> impl = weakImpl.lock();
        if (!impl || !impl->IsCurrent(loopGeneration))
        {
            return;
        }
        DRAVTimestamp nextBlock;
        {
            CDplScopedLock guard(impl->lock);
            if (impl->generation.load() != loopGeneration)
            {
                return;
            }
            const DRAVDuration duration = impl->AudioThread();
            if (duration.Get() <= 0)
            {
                return;
            }
            impl->renderClock += duration;
            nextBlock = impl->renderClock;
        }
        // Late: the next block follows at once, so the thread catches up
        // block by block.
        impl->SleepUntil(nextBlock, loopGeneration);
    }
}

DRAVMultiChannelAudioMixerCoreAudio::DRAVMultiChannelAudioMixerCoreAudio(const std::string& name,
                                                                         const DRAVFilterConfig& config,
                                                                         int numInputs, int numOutputs,
                                                                         const DRAVTimestamp&)
    : DRAVFilter(kObjectNamePrefix + name, GetMyObjectProperties(), config, numInputs, numOutputs),
      impl_(std::make_shared<Impl>(name))
{
}

DRAVMultiChannelAudioMixerCoreAudio::~DRAVMultiChannelAudioMixerCoreAudio()
{
    // Detach the record first: the loop finds it gone (or stopped) and ends;
    // then wait for the loop, unless this is the loop's own thread.
    std::shared_ptr<Impl> impl = std::move(impl_);
    impl->Stop();
    if (!impl->renderQueue->isCurrentWorker())
    {
        impl->renderQueue.reset();
    }
}

KVCMap* DRAVMultiChannelAudioMixerCoreAudio::GetMyObjectProperties()
{
    static KVCMap* const sClassProperties =
        KVCMapBuilder<DRAVMultiChannelAudioMixerCoreAudio>(DRAVUnit::GetMyObjectProperties())
            .Int(kPropertyAudioBufferSizeFrameCount,
                 &DRAVMultiChannelAudioMixerCoreAudio::SetProcessingBufferSizeFrameCount,
                 &DRAVMultiChannelAudioMixerCoreAudio::GetProcessingBufferSizeFrameCount)
            .Build();
    return sClassProperties;
}

DRAVResult DRAVMultiChannelAudioMixerCoreAudio::Init()
{
    return InitFilter(kDRAVPinTypePassthrough, kDRAVPinTypePull);
}

DRAVResult DRAVMultiChannelAudioMixerCoreAudio::InitFilter(DRAVPinType input, DRAVPinType output)
{
    const std::string friendlyName = GetFriendlyName();
    const std::string suffix = kObjectNameSuffix;
    if (friendlyName.size() < suffix.size() ||
        friendlyName.compare(friendlyName.size() - suffix.size(), suffix.size(), suffix) != 0)
    {
        SetFriendlyName(friendlyName + suffix);
    }
    DRAVResult result = DRAVFilter::InitFilter(input, output);
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

DRAVResult DRAVMultiChannelAudioMixerCoreAudio::Deinit()
{
    impl_->Stop();
    return DRAVFilter::Deinit();
}

DRAVResult DRAVMultiChannelAudioMixerCoreAudio::SetUnitState(DRAVUnitState state)
{
    DRAVResult result = DRAVFilter::SetUnitState(state);
    if (!result.Succeeded() || result.GetCode() == kDRAVResultOkNoDataChanged)
    {
        return result;
    }
    if (state != kDRAVUnitStateRunning)
    {
        impl_->Stop();
        return DRAVResult(kDRAVResultOk);
    }
    DRAVResult started = impl_->Start(GetNumInputPins(), GetFriendlyName());
    if (!started.Succeeded())
    {
        // Not running without a mixer: the unit goes back to paused.
        DRAVFilter::SetUnitState(kDRAVUnitStatePaused);
        return started;
    }
    StartRenderLoop();
    return DRAVResult(kDRAVResultOk);
}

void DRAVMultiChannelAudioMixerCoreAudio::StartRenderLoop()
{
    const uint64_t loopGeneration = impl_->generation.load();
    std::weak_ptr<Impl> weakImpl = impl_;
    impl_->renderQueue->dispatch([weakImpl, loopGeneration]() { Impl::RunLoop(weakImpl, loopGeneration); });
}

DRAVDuration DRAVMultiChannelAudioMixerCoreAudio::AudioThread()
{
    // A sink may drop the unit's last owner during the block.
    const std::shared_ptr<Impl> impl = impl_;
    return impl->AudioThread();
}

DRAVResult DRAVMultiChannelAudioMixerCoreAudio::InputMediaBufferReceived(std::shared_ptr<DRAVUnitInputPin>,
                                                                         int,
                                                                         std::shared_ptr<DRAVMediaBuffer>)
{
    return DRAVResult(kDRAVResultErrNotImplemented);
}

DRAVResult DRAVMultiChannelAudioMixerCoreAudio::AddSource(std::shared_ptr<DRAVSource> source, int bus)
{
    if (!IsValidBus(bus))
    {
        return InvalidBus(bus);
    }
    // The former source is let go outside the lock: its last owner may be
    // this call, and its teardown must not hold up the audio thread.
    std::shared_ptr<DRAVSource> former;
    {
        CDplScopedLock guard(impl_->lock);
        std::shared_ptr<DRAVSource>& entry = impl_->sources[bus];
        former = std::exchange(entry, std::move(source));
    }
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVMultiChannelAudioMixerCoreAudio::RemoveSourceAtIndex(int bus)
{
    if (!IsValidBus(bus))
    {
        return InvalidBus(bus);
    }
    decltype(impl_->sources)::node_type former;
    {
        CDplScopedLock guard(impl_->lock);
        former = impl_->sources.extract(bus);
    }
    return DRAVResult(former.empty() ? kDRAVResultOkNoDataChanged : kDRAVResultOk);
}

DRAVResult DRAVMultiChannelAudioMixerCoreAudio::AddSink(std::shared_ptr<DRAVSink> sink)
{
    CDplScopedLock guard(impl_->lock);
    impl_->sinks.push_back(std::move(sink));
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVMultiChannelAudioMixerCoreAudio::SetProcessingBufferSizeFrameCount(int64_t frames)
{
    DRAVResult refused = DRAVCheckBlockFrameCount(frames);
    if (!refused.Succeeded())
    {
        return refused;
    }
    std::unique_ptr<AudioBusMixer> formerBusMixer;
    BufferListPtr formerList;
    CDplScopedLock guard(impl_->lock);
    if (frames == impl_->processingBufferFrameCount)
    {
        return DRAVResult(kDRAVResultOkNoDataChanged);
    }
    const auto count = static_cast<uint32_t>(frames);
    if (impl_->busMixer)
    {
        // The mixer's largest slice follows the block, so that each bus is
        // pulled once per block. Both are made here, off the audio thread.
        std::unique_ptr<AudioBusMixer> mixer = impl_->MakeMixer(impl_->busCount, count);
        if (!mixer)
        {
            return DRAVResult(kDRAVResultErrInvalidState, "no mixer for %u frames", count);
        }
        formerBusMixer = std::exchange(impl_->busMixer, std::move(mixer));
        formerList = std::move(impl_->bufferList);
        impl_->Retire(formerBusMixer, formerList);
        impl_->bufferList.reset(AllocateAudioBufferList(impl_->streamDescription, count, true));
    }
    impl_->processingBufferFrameCount = count;
    return DRAVResult(kDRAVResultOk);
}

int64_t DRAVMultiChannelAudioMixerCoreAudio::GetProcessingBufferSizeFrameCount() const
{
    CDplScopedLock guard(impl_->lock);
    return impl_->processingBufferFrameCount;
}

DRAVResult DRAVMultiChannelAudioMixerCoreAudio::SetInputVolume(int bus, double volume)
{
    if (!IsValidBus(bus))
    {
        return InvalidBus(bus);
    }
    CDplScopedLock guard(impl_->lock);
    impl_->inputVolumes[bus] = volume;
    if (impl_->IsRunning())
    {
        const auto applied = static_cast<float>(std::clamp(volume, 0.0, 1.0));
        if (!impl_->busMixer->SetBusGain(static_cast<uint32_t>(bus), applied).Succeeded())
        {
            return DRAVResult(kDRAVResultErrInvalidState, "bus %d refused volume %f", bus, volume);
        }
    }
    return DRAVResult(kDRAVResultOk);
}

double DRAVMultiChannelAudioMixerCoreAudio::GetInputVolume(int bus) const
{
    if (!IsValidBus(bus))
    {
        return 0.0;
    }
    CDplScopedLock guard(impl_->lock);
    return impl_->IsRunning() ? impl_->busMixer->BusGain(static_cast<uint32_t>(bus)) : 0.0;
}

DRAVResult DRAVMultiChannelAudioMixerCoreAudio::SetOutputVolume(double volume)
{
    CDplScopedLock guard(impl_->lock);
    impl_->outputVolume = volume;
    if (impl_->IsRunning())
    {
        impl_->busMixer->SetOutputGain(static_cast<float>(std::clamp(volume, 0.0, 1.0)));
    }
    return DRAVResult(kDRAVResultOk);
}

double DRAVMultiChannelAudioMixerCoreAudio::GetOutputVolume() const
{
    CDplScopedLock guard(impl_->lock);
    return impl_->IsRunning() ? impl_->busMixer->OutputGain() : 0.0;
}

double DRAVMultiChannelAudioMixerCoreAudio::GetInputLevel(int bus, int channel) const
{
    if (!IsValidBus(bus) || channel < 0)
    {
        return 0.0;
    }
    CDplScopedLock guard(impl_->lock);
    return impl_->IsRunning()
               ? impl_->busMixer->BusLevelDecibels(static_cast<uint32_t>(bus), static_cast<uint32_t>(channel))
               : 0.0;
}

double DRAVMultiChannelAudioMixerCoreAudio::GetOutputLevel(int channel) const
{
    if (channel < 0)
    {
        return 0.0;
    }
    CDplScopedLock guard(impl_->lock);
    return impl_->IsRunning() ? impl_->busMixer->OutputLevelDecibels(static_cast<uint32_t>(channel)) : 0.0;
}
