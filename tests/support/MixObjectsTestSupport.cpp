#include "support/MixObjectsTestSupport.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

#include "engine/media/DRAVAudioBuffer.h"
#include "engine/media/DRAVBufferRAM.h"
#include "engine/media/DRAVMediaBufferLock.h"
#include "support/SimAudioAnalysis.h"

namespace tidemix::test
{

DRMX_Settings::DRMXInputSelector InputFor(const std::string& uid, int32_t nodeId)
{
    DRMX_Settings::DRMXInputSelector selector;
    selector.SetType(DRMX_Settings::kInputTypeHardware);
    selector.SetHardwareId(uid);
    selector.SetMixerNodeID(nodeId);
    return selector;
}

DRMX_Settings::DRMXOutputSelector OutputFor(const std::string& uid)
{
    DRMX_Settings::DRMXOutputSelector selector;
    selector.SetType(DRMX_Settings::kOutputTypeHardware);
    selector.SetHardwareId(uid);
    return selector;
}
using platform::sim::SimAudioWorld;
using platform::sim::SimDeviceSpec;

PullProbe::PullProbe(std::shared_ptr<DRAVSource> inner, std::shared_ptr<DRAVRingBuffer> ring)
    : DRAVSource("PullProbe", nullptr, DRAVSourceConfig{}, 0),
      inner_(std::move(inner)),
      ring_(std::move(ring)),
      pulls_(std::make_unique<Pull[]>(kMaxPulls))
{
}

DRAVResult PullProbe::PullAudioFrame(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                                     const DRAVDuration& duration, int pin)
{
    const DRAVResult result = inner_->PullAudioFrame(time, out, duration, pin);
    Pull pull;
    pull.hostTime = DRAVGetHostTime().Get();
    if (ring_)
    {
        pull.ringEvents = ring_->GetOverrunCount() + ring_->GetShortPullCount();
    }
    if (out != nullptr && *out)
    {
        pull.stamp = (*out)->GetTimestamp().Get();
        std::shared_ptr<DRAVBufferRAM> storage;
        DRAVMediaBufferReadLock<DRAVBufferRAM> lock(*out, &storage);
        if (lock.IsLocked() && storage->GetData() != nullptr)
        {
            // Planar: the first half is the first channel.
            const auto* samples = reinterpret_cast<const float*>(storage->GetData());
            const size_t frames = static_cast<size_t>(storage->GetSizeCurrent()) / 2 / sizeof(float);
            double sum = 0.0;
            for (size_t i = 0; i < frames; ++i)
            {
                sum += double{samples[i]} * samples[i];
            }
            pull.meanSquare = frames > 0 ? sum / static_cast<double>(frames) : 0.0;
        }
    }
    const size_t index = count_.load();
    if (index < kMaxPulls)
    {
        pulls_[index] = pull;
        count_.store(index + 1);
    }
    return result;
}

std::vector<PullProbe::Pull> PullProbe::Pulls() const
{
    return std::vector<Pull>(pulls_.get(), pulls_.get() + count_.load());
}

uint32_t AddSimMicrophone(SimAudioWorld& world, const std::string& uid,
                          const platform::DeviceStreamFormat& format, uint32_t packetFrames,
                          const platform::sim::SimSignal& signal)
{
    SimDeviceSpec spec = SimDeviceSpec::Microphone(uid, uid, format);
    spec.packetFrames = packetFrames;
    spec.signal = signal;
    return world.AddDevice(std::move(spec));
}

uint32_t AddSimSpeaker(SimAudioWorld& world, const std::string& uid)
{
    return world.AddDevice(
        SimDeviceSpec::Speaker(uid, uid, {48000, 2, platform::SampleEncoding::Float32, true}));
}

std::vector<float> RecordFirstChannel(SimAudioWorld& world, uint32_t output, double seconds,
                                      double settleSeconds)
{
    const double total = seconds + settleSeconds;
    if (!world.StartRecording(output, total + 1.0))
    {
        return {};
    }
    const auto wanted = static_cast<size_t>(total * 48000.0);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (world.Recording(output)->Frames() < wanted && std::chrono::steady_clock::now() < deadline)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    world.StopRecording(output);
    const auto sound = world.Recording(output)->Snapshot();
    if (sound.Frames() < wanted)
    {
        return {};
    }
    std::vector<float> first = Deinterleave(sound.samples, sound.channels, 0);
    first.erase(first.begin(), first.begin() + static_cast<long>(settleSeconds * 48000.0));
    return first;
}

double Percentile(std::vector<double> values, double fraction)
{
    if (values.empty())
    {
        return 0.0;
    }
    const auto index =
        std::min(values.size() - 1, static_cast<size_t>(fraction * static_cast<double>(values.size())));
    std::nth_element(values.begin(), values.begin() + static_cast<long>(index), values.end());
    return values[index];
}

}  // namespace tidemix::test
