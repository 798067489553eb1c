#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine/devices/DRAVMultiChannelAudioMixerCoreAudio.h"
#include "engine/units/DRAVSink.h"
#include "engine/units/DRAVSource.h"

namespace mixerunit_test
{
constexpr int64_t kBlockFrames = 960;
constexpr int64_t kBlockUsec = 20000;

// The mixer unit without its audio thread: blocks are rendered when the test
// asks, on the test's thread.
class ManualMixer : public DRAVMultiChannelAudioMixerCoreAudio
{
public:
    explicit ManualMixer(const std::string& name, int inputs)
        : DRAVMultiChannelAudioMixerCoreAudio(name, DRAVFilterConfig{8}, inputs, 1, DRAVTimestamp(0))
    {
    }
    DRAVDuration RenderBlock() { return AudioThread(); }

protected:
    void StartRenderLoop() override {}
};

// A source whose pulls hand out planar stereo blocks made by a generator, of
// the asked duration's frames (or of a forced frame count).
class BlockSource : public DRAVSource
{
public:
    // Fills `frames` samples of each channel; `first` is the running frame
    // number of the source, so that a generator can keep its phase.
    using Generator = std::function<void(float* left, float* right, int64_t frames, int64_t first)>;

    explicit BlockSource(Generator generator);
    // Constant values on the two channels.
    static std::shared_ptr<BlockSource> Constant(float left, float right);
    // A sine of `hz` at `amplitude` on both channels.
    static std::shared_ptr<BlockSource> Sine(double hz, float amplitude);

    DRAVResult PullAudioFrame(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                              const DRAVDuration& duration, int pin) override;
    using DRAVSource::PullAudioFrame;

    // Hand out nothing, as a ring that runs dry.
    void SetEmpty(bool empty) { empty_.store(empty); }
    // Hand out blocks of this many frames whatever was asked; 0 to follow the ask.
    void ForceFrames(int64_t frames) { forcedFrames_.store(frames); }
    int64_t Pulls() const { return pulls_.load(); }
    int64_t LastPullDurationUsec() const { return lastDuration_.load(); }

private:
    Generator generator_;
    std::atomic<bool> empty_{false};
    std::atomic<int64_t> forcedFrames_{0};
    std::atomic<int64_t> pulls_{0};
    std::atomic<int64_t> lastDuration_{0};
    std::atomic<int64_t> position_{0};
};

struct ReceivedBlock
{
    int64_t timestamp = -1;
    int64_t duration = 0;
    int64_t arrival = -1;  // host time of the SendAudioFrame call
    int64_t bytes = 0;
    std::vector<float> left;
    std::vector<float> right;
    std::string threadName;
};

// A sink that records what SendAudioFrame hands it, on the caller's thread.
class RecordingMixSink : public DRAVSink
{
public:
    explicit RecordingMixSink(const std::string& name);

    DRAVResult SendAudioFrame(std::shared_ptr<DRAVAudioBuffer> frame) override;

    // Refused frames are counted, not recorded.
    void SetRefuse(bool refuse) { refuse_.store(refuse); }
    // The block with this index (counted from 0) is held this long before
    // the call returns.
    void SleepOnBlock(int64_t index, int64_t milliseconds);
    // Called with every block before it is recorded.
    void SetOnBlock(std::function<void()> onBlock);

    std::vector<ReceivedBlock> Blocks();
    // The last frame received, kept alive.
    std::shared_ptr<DRAVAudioBuffer> LastFrame();
    size_t Count();
    int64_t Refused() const { return refused_.load(); }
    bool WaitFor(size_t count, int timeoutMs);

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<ReceivedBlock> blocks_;
    std::shared_ptr<DRAVAudioBuffer> lastFrame_;
    std::function<void()> onBlock_;
    std::atomic<bool> refuse_{false};
    std::atomic<int64_t> refused_{0};
    std::atomic<int64_t> sleepIndex_{-1};
    std::atomic<int64_t> sleepMilliseconds_{0};
    std::atomic<int64_t> seen_{0};
};

}  // namespace mixerunit_test
