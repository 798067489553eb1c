#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// What the PipeWire integration tests do beside the library: a second client
// of the daemon that makes nodes, plays tones and records monitors, with its
// own streams, so that the library's streams are checked against something
// that doesn't share their code.
namespace tidemix::test
{

// Frequency (from rising zero crossings) and RMS level of a stretch of samples.
struct ToneMeasurement
{
    double frequency = 0.0;
    double rms = 0.0;
    size_t frames = 0;
};
ToneMeasurement MeasureTone(const float* samples, size_t count, uint32_t sampleRate);
// Over pieces of chunkFrames: the level of the pieces that carry the tone
// whole (the 90th percentile) and the median frequency of those pieces. A
// dropout on a loaded machine spoils pieces, not the measurement.
ToneMeasurement MeasureTonePieces(const float* samples, size_t count, uint32_t sampleRate,
                                  size_t chunkFrames);

// Samples collected on a real-time thread into memory reserved up front.
// One writer; readers see everything before Frames().
class SampleCollector
{
public:
    explicit SampleCollector(size_t capacity) : samples_(capacity) {}
    // No allocation, no lock: fit for an audio callback. Drops what doesn't fit.
    void Append(const float* samples, size_t count);
    size_t Frames() const { return written_.load(std::memory_order_acquire); }
    // The samples [from, Frames()).
    std::vector<float> Copy(size_t from = 0) const;
    // Index of the first sample whose magnitude exceeds threshold, or Frames().
    size_t FirstAbove(float threshold) const;

private:
    std::vector<float> samples_;
    std::atomic<size_t> written_{0};
};

class PipeWireTestPeer
{
public:
    class Handle
    {
    public:
        virtual ~Handle() = default;
    };

    // Null when no daemon answers. An empty remote name is the usual daemon.
    static std::unique_ptr<PipeWireTestPeer> Connect(const std::string& remoteName = {});
    virtual ~PipeWireTestPeer() = default;

    // A null-sink node ("Audio/Sink" or "Audio/Duplex") that lives as long as the handle.
    virtual std::unique_ptr<Handle> CreateNullSink(const std::string& nodeName,
                                                   const std::string& description,
                                                   const std::string& mediaClass) = 0;
    // Plays a sine (both channels) into the node of that name.
    virtual std::unique_ptr<Handle> PlayTone(const std::string& nodeName, double frequency,
                                             float amplitude) = 0;
    // A client of its own, named by application.id and application.name, that
    // plays a sine to wherever the session manager links it; destroying the
    // handle disconnects it, as a quitting application does.
    virtual std::unique_ptr<Handle> RunApplication(const std::string& appId, const std::string& appName,
                                                   double frequency, float amplitude) = 0;
    // Records the left channel of what the node of that name plays (its monitor).
    virtual std::unique_ptr<Handle> RecordMonitor(const std::string& nodeName,
                                                  std::shared_ptr<SampleCollector> into) = 0;
};

}  // namespace tidemix::test
