#include "support/MixRoadTestSupport.h"

#include <string>

#include "engine/media/DRAVAudioFormat.h"
#include "engine/units/DRAVPinType.h"
#include "engine/units/DRAVUnitOutputPin.h"
#include "engine/units/DRAVUnitState.h"

namespace tidemix::test
{

TestMixRoad::TestMixRoad(int busCount)
    : mixer_(std::make_shared<DRAVMultiChannelAudioMixerCoreAudio>("Test Mix", DRAVFilterConfig{8, false},
                                                                   busCount, 1, DRAVTimestamp(-1)))
{
    mixer_->InitFilter(kDRAVPinTypePassthrough, kDRAVPinTypePull);
}

TestMixRoad::~TestMixRoad()
{
    Stop();
    mixer_->Deinit();
}

std::shared_ptr<DRAVSourceAudioCaptureCoreAudio> TestMixRoad::StartCapture(uint32_t deviceId,
                                                                           DRAVResult* result)
{
    auto source = std::make_shared<DRAVSourceAudioCaptureCoreAudio>(DRAVSourceConfig{});
    source->SetBufferSizeFrameCount(kBlockFrames);
    DRAVResult outcome = source->InitSource(kDRAVPinTypePullRingBuffer);
    if (outcome.Succeeded())
    {
        // Four blocks of the mix's format. An input of a mix gives its ring two;
        // with a device whose packets don't divide the block (512 frames at
        // 44100 Hz finish a block after 11.6 or 23.2 ms) two blocks can land
        // between two pulls and none before the next, so a ring of two both
        // overruns and runs dry, whatever the load. Four leave room either way.
        if (auto ring = RingOf(source))
        {
            const DRAVAudioFormat& format = kDefaultAudioFormatFloat;
            ring->SetMaxTotalSizeMB(static_cast<int>(kRingBlocks * kBlockFrames * format.GetNumChannels() *
                                                     DRAVAudioSampleTypeBits(format.GetSampleType()) / 8));
        }
        source->SetDevicePath(std::to_string(deviceId));
        outcome = source->SetUnitState(kDRAVUnitStateRunning);
    }
    if (result != nullptr)
    {
        *result = outcome;
    }
    return source;
}

void TestMixRoad::StopCapture(const std::shared_ptr<DRAVSourceAudioCaptureCoreAudio>& source)
{
    if (source)
    {
        source->SetUnitState(kDRAVUnitStatePaused);
        source->Deinit();
    }
}

std::shared_ptr<DRAVRingBuffer> TestMixRoad::RingOf(
    const std::shared_ptr<DRAVSourceAudioCaptureCoreAudio>& source)
{
    auto pin = source ? source->GetOutputPin(0) : nullptr;
    return pin ? std::dynamic_pointer_cast<DRAVRingBuffer>(pin->GetQueue()) : nullptr;
}

DRAVResult TestMixRoad::SetSource(int bus, std::shared_ptr<DRAVSourceAudioCaptureCoreAudio> source)
{
    DRAVResult result = mixer_->AddSource(source, bus);
    if (result.Succeeded())
    {
        std::shared_ptr<DRAVSourceAudioCaptureCoreAudio>& slot = sources_[bus];
        if (slot != source)
        {
            StopCapture(slot);
        }
        slot = std::move(source);
    }
    return result;
}

DRAVResult TestMixRoad::SetOutput(uint32_t deviceId)
{
    sink_ = std::make_shared<DRAVSinkAudioRendererAudioUnit>();
    DRAVResult result = sink_->SetBufferSizeFrameCount(kBlockFrames);
    if (result.Succeeded())
    {
        result = sink_->Init();
    }
    if (result.Succeeded())
    {
        sink_->SetDevicePath(std::to_string(deviceId));
        result = sink_->SetUnitState(kDRAVUnitStateRunning);
    }
    if (result.Succeeded())
    {
        result = mixer_->AddSink(sink_);
    }
    return result;
}

DRAVResult TestMixRoad::Start()
{
    DRAVResult result = mixer_->SetProcessingBufferSizeFrameCount(kBlockFrames);
    if (result.Succeeded())
    {
        result = mixer_->SetUnitState(kDRAVUnitStateRunning);
    }
    running_ = result.Succeeded();
    return result;
}

void TestMixRoad::Stop()
{
    if (running_)
    {
        mixer_->SetUnitState(kDRAVUnitStatePaused);
        running_ = false;
    }
    if (sink_)
    {
        sink_->SetUnitState(kDRAVUnitStatePaused);
        sink_->Deinit();
    }
    for (auto& [bus, source] : sources_)
    {
        StopCapture(source);
    }
    sources_.clear();
}

std::shared_ptr<DRAVSourceAudioCaptureCoreAudio> TestMixRoad::Source(int bus)
{
    auto found = sources_.find(bus);
    return found == sources_.end() ? nullptr : found->second;
}

}  // namespace tidemix::test
