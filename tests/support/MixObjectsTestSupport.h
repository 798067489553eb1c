#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "engine/units/DRAVRingBuffer.h"
#include "engine/units/DRAVSource.h"
#include "platform/sim/SimAudioWorld.h"
#include "settings/DRMXInputSelector.h"
#include "settings/DRMXOutputSelector.h"

namespace tidemix::test
{

// Stands on a mixer bus in place of an input's source: hands on what that
// source gives, and notes for every pull the host time, the stamp of the piece
// and the mean square of its first channel. The notes have fixed storage, so
// the audio thread allocates nothing here either.
class PullProbe : public DRAVSource
{
public:
    struct Pull
    {
        int64_t hostTime = 0;
        int64_t stamp = -1;  // -1: the pull got nothing
        double meanSquare = 0.0;
        // Overruns and short pulls of the watched ring so far (0 without one).
        int64_t ringEvents = 0;
    };
    static constexpr size_t kMaxPulls = 8192;

    // With `ring`, each pull also notes the ring's overruns and short pulls.
    explicit PullProbe(std::shared_ptr<DRAVSource> inner, std::shared_ptr<DRAVRingBuffer> ring = nullptr);
    using DRAVSource::PullAudioFrame;
    DRAVResult InitSource(DRAVPinType) override { return DRAVResult(kDRAVResultOk); }
    DRAVResult PullAudioFrame(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                              const DRAVDuration& duration, int pin) override;
    // The pulls noted so far.
    std::vector<Pull> Pulls() const;
    size_t Count() const { return count_.load(); }

private:
    const std::shared_ptr<DRAVSource> inner_;
    const std::shared_ptr<DRAVRingBuffer> ring_;
    std::unique_ptr<Pull[]> pulls_;
    std::atomic<size_t> count_{0};
};

// Selectors of a hardware device by its uid, as the application makes them.
DRMX_Settings::DRMXInputSelector InputFor(const std::string& uid, int32_t nodeId = -1);
DRMX_Settings::DRMXOutputSelector OutputFor(const std::string& uid);

uint32_t AddSimMicrophone(platform::sim::SimAudioWorld& world, const std::string& uid,
                          const platform::DeviceStreamFormat& format, uint32_t packetFrames,
                          const platform::sim::SimSignal& signal);
uint32_t AddSimSpeaker(platform::sim::SimAudioWorld& world, const std::string& uid);
// `seconds` of the first channel that the output plays from now on, after
// `settleSeconds`; empty when the output didn't play that much.
std::vector<float> RecordFirstChannel(platform::sim::SimAudioWorld& world, uint32_t output, double seconds,
                                      double settleSeconds);
// The value below which `fraction` of the values lie.
double Percentile(std::vector<double> values, double fraction);

}  // namespace tidemix::test
