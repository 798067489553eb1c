#include "support/MixerUnitTestSupport.h"

#include <pthread.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <thread>

#include "engine/media/DRAVBufferRAM.h"
#include "engine/media/DRAVMediaBufferLock.h"

namespace mixerunit_test
{
namespace
{
const DRAVAudioFormat kPlanarStereo(48000, 2, kDRAVAudioSampleTypeFloat, 3, true);
}

BlockSource::BlockSource(Generator generator)
    : DRAVSource("block source", nullptr, DRAVSourceConfig{2, 1}, 1), generator_(std::move(generator))
{
}

std::shared_ptr<BlockSource> BlockSource::Constant(float left, float right)
{
    return std::make_shared<BlockSource>(
        [left, right](float* l, float* r, int64_t frames, int64_t)
        {
            for (int64_t i = 0; i < frames; ++i)
            {
                l[i] = left;
                r[i] = right;
            }
        });
}

std::shared_ptr<BlockSource> BlockSource::Sine(double hz, float amplitude)
{
    return std::make_shared<BlockSource>(
        [hz, amplitude](float* l, float* r, int64_t frames, int64_t first)
        {
            for (int64_t i = 0; i < frames; ++i)
            {
                const double phase = 2.0 * M_PI * hz * static_cast<double>(first + i) / 48000.0;
                l[i] = r[i] = amplitude * static_cast<float>(std::sin(phase));
            }
        });
}

DRAVResult BlockSource::PullAudioFrame(const DRAVTimestamp& time, std::shared_ptr<DRAVAudioBuffer>* out,
                                       const DRAVDuration& duration, int)
{
    pulls_.fetch_add(1);
    lastDuration_.store(duration.Get());
    if (out == nullptr)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    if (empty_.load())
    {
        out->reset();
        return DRAVResult(kDRAVResultErrNoData);
    }
    const int64_t forced = forcedFrames_.load();
    const int64_t frames = forced > 0 ? forced : kPlanarStereo.GetFramesFromDuration(duration);
    std::vector<float> samples(static_cast<size_t>(frames) * 2);
    generator_(samples.data(), samples.data() + frames, frames, position_.fetch_add(frames));
    *out = DRAVAudioBuffer::GetAudioBuffer("block source", frames * 8, kPlanarStereo, samples.data(),
                                           frames * 8);
    if (*out)
    {
        (*out)->SetTimestamp(time);
        (*out)->SetDuration(duration);
    }
    return DRAVResult();
}

RecordingMixSink::RecordingMixSink(const std::string& name) : DRAVSink(name, nullptr, DRAVSinkConfig{5}, 1) {}

void RecordingMixSink::SleepOnBlock(int64_t index, int64_t milliseconds)
{
    sleepMilliseconds_.store(milliseconds);
    sleepIndex_.store(index);
}

void RecordingMixSink::SetOnBlock(std::function<void()> onBlock)
{
    std::lock_guard<std::mutex> lock(mutex_);
    onBlock_ = std::move(onBlock);
}

DRAVResult RecordingMixSink::SendAudioFrame(std::shared_ptr<DRAVAudioBuffer> frame)
{
    ReceivedBlock block;
    block.arrival = DRAVGetHostTime().Get();
    if (refuse_.load())
    {
        refused_.fetch_add(1);
        return DRAVResult(kDRAVResultErrInvalidState);
    }
    if (!frame)
    {
        return DRAVResult(kDRAVResultErrNullPointer);
    }
    block.timestamp = frame->GetTimestamp().Get();
    block.duration = frame->GetDuration().Get();
    {
        std::shared_ptr<DRAVBufferRAM> storage;
        DRAVMediaBufferReadLock<DRAVBufferRAM> lock(frame, &storage);
        if (!lock.IsLocked())
        {
            return DRAVResult(kDRAVResultErrInvalidState);
        }
        block.bytes = storage->GetSizeCurrent();
        const auto* samples = reinterpret_cast<const float*>(storage->GetData());
        const size_t perChannel = static_cast<size_t>(block.bytes) / 8;
        block.left.assign(samples, samples + perChannel);
        block.right.assign(samples + perChannel, samples + 2 * perChannel);
    }
    char threadName[16] = {};
    pthread_getname_np(pthread_self(), threadName, sizeof(threadName));
    block.threadName = threadName;

    std::function<void()> onBlock;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        onBlock = onBlock_;
    }
    if (onBlock)
    {
        onBlock();
    }
    if (seen_.fetch_add(1) == sleepIndex_.load())
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(sleepMilliseconds_.load()));
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        blocks_.push_back(std::move(block));
        lastFrame_ = std::move(frame);
    }
    changed_.notify_all();
    return DRAVResult();
}

std::vector<ReceivedBlock> RecordingMixSink::Blocks()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return blocks_;
}

std::shared_ptr<DRAVAudioBuffer> RecordingMixSink::LastFrame()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return lastFrame_;
}

size_t RecordingMixSink::Count()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return blocks_.size();
}

bool RecordingMixSink::WaitFor(size_t count, int timeoutMs)
{
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                             [this, count] { return blocks_.size() >= count; });
}

}  // namespace mixerunit_test
