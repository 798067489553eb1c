#include "platform/sim/SimDeviceEngine.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

#include "platform/HostTime.h"
#include "portable-core/DplThreadName.h"

namespace tidemix::platform::sim
{
namespace
{
// A device that falls further behind than this (a stalled host, a very slow
// callback) drops the lost time instead of bursting to catch up. Ten seconds:
// a device thread starved on a busy machine (sanitizers, parallel tests)
// catches up without losing time, so its clock stays exact.
constexpr int64_t kMaxLagNanoseconds = 10'000'000'000;

std::chrono::steady_clock::time_point ToSteady(int64_t hostNanoseconds)
{
    // Host time is CLOCK_MONOTONIC, which is also steady_clock on Linux.
    return std::chrono::steady_clock::time_point(std::chrono::nanoseconds(hostNanoseconds));
}

int16_t ToInt16(float value)
{
    // Scaled by 32768 both ways, so int16 -> float -> int16 is exact; +1.0
    // itself clips to 32767.
    const long scaled = std::lrintf(std::clamp(value, -1.0f, 1.0f) * 32768.0f);
    return static_cast<int16_t>(std::clamp(scaled, -32768L, 32767L));
}

// Planar float into the device's layout and sample type.
void StoreFrames(const DeviceStreamFormat& format, float* const* planar, void* const* buffers,
                 uint32_t frames)
{
    const uint32_t channels = format.channels;
    for (uint32_t c = 0; c < channels; ++c)
    {
        const float* source = planar[c];
        void* buffer = buffers[format.interleaved ? 0 : c];
        const uint32_t stride = format.interleaved ? channels : 1;
        const uint32_t offset = format.interleaved ? c : 0;
        if (format.encoding == SampleEncoding::Float32)
        {
            float* out = static_cast<float*>(buffer);
            for (uint32_t i = 0; i < frames; ++i)
            {
                out[i * stride + offset] = source[i];
            }
        }
        else
        {
            int16_t* out = static_cast<int16_t*>(buffer);
            for (uint32_t i = 0; i < frames; ++i)
            {
                out[i * stride + offset] = ToInt16(source[i]);
            }
        }
    }
}

// Adds the device-layout samples, scaled, to an interleaved float mix.
void MixFrames(const DeviceStreamFormat& format, void* const* buffers, uint32_t frames, float gain,
               float* mix)
{
    const uint32_t channels = format.channels;
    for (uint32_t c = 0; c < channels; ++c)
    {
        const void* buffer = buffers[format.interleaved ? 0 : c];
        const uint32_t stride = format.interleaved ? channels : 1;
        const uint32_t offset = format.interleaved ? c : 0;
        if (format.encoding == SampleEncoding::Float32)
        {
            const float* in = static_cast<const float*>(buffer);
            for (uint32_t i = 0; i < frames; ++i)
            {
                mix[i * channels + c] += gain * in[i * stride + offset];
            }
        }
        else
        {
            const int16_t* in = static_cast<const int16_t*>(buffer);
            for (uint32_t i = 0; i < frames; ++i)
            {
                mix[i * channels + c] += gain * (static_cast<float>(in[i * stride + offset]) / 32768.0f);
            }
        }
    }
}
}  // namespace

SimDeviceEngine::SimDeviceEngine(uint32_t deviceId, SimDirection direction, SimEngineConfig config)
    : deviceId_(deviceId), direction_(direction), config_(std::move(config))
{
    members_.reserve(8);
}

SimDeviceEngine::~SimDeviceEngine()
{
    Shutdown();
}

void SimDeviceEngine::Launch()
{
    std::lock_guard guard(lock_);
    if (thread_.joinable() || quit_)
    {
        return;
    }
    // The thread keeps the engine alive: a shutdown from one of its own
    // callbacks detaches it, and it must still find its members.
    thread_ = std::thread([self = shared_from_this()] { self->Run(); });
    threadId_ = thread_.get_id();
}

void SimDeviceEngine::Shutdown()
{
    std::thread thread;
    {
        std::lock_guard guard(lock_);
        quit_ = true;
        thread = std::move(thread_);
    }
    wake_.notify_all();
    if (!thread.joinable())
    {
        return;
    }
    if (thread.get_id() == std::this_thread::get_id())
    {
        // Called from a callback: the loop ends once the callback returns.
        thread.detach();
        return;
    }
    thread.join();
}

bool SimDeviceEngine::IsShutDown() const
{
    std::lock_guard guard(lock_);
    return quit_;
}

void SimDeviceEngine::Configure(SimEngineConfig config)
{
    {
        std::lock_guard guard(lock_);
        config_ = std::move(config);
        ++generation_;
    }
    wake_.notify_all();
}

SimEngineConfig SimDeviceEngine::Config() const
{
    std::lock_guard guard(lock_);
    return config_;
}

DeviceStreamFormat SimDeviceEngine::Format() const
{
    std::lock_guard guard(lock_);
    return config_.format;
}

void SimDeviceEngine::Attach(SimStreamCore* core)
{
    std::lock_guard guard(callbackLock_);
    members_.push_back(core);
}

void SimDeviceEngine::Detach(SimStreamCore* core)
{
    StopStream(core);
    std::lock_guard guard(callbackLock_);
    members_.erase(std::remove(members_.begin(), members_.end(), core), members_.end());
}

DRAVResult SimDeviceEngine::StartStream(SimStreamCore* core)
{
    {
        std::lock_guard guard(lock_);
        if (quit_)
        {
            return DRAVResult(kDRAVResultErrNotFound, "device %u is gone", deviceId_);
        }
        if (!core->started.exchange(true))
        {
            ++activeStreams_;
        }
    }
    wake_.notify_all();
    return kDRAVResultOk;
}

void SimDeviceEngine::StopStream(SimStreamCore* core)
{
    {
        std::lock_guard guard(lock_);
        if (core->started.exchange(false))
        {
            --activeStreams_;
        }
    }
    wake_.notify_all();
    // A round of callbacks that began before the flag fell ends before this
    // lock is ours; later rounds skip the stream.
    std::lock_guard barrier(callbackLock_);
}

void SimDeviceEngine::ApplyConfig(const SimEngineConfig& config)
{
    running_ = config;
    DeviceStreamFormat& format = running_.format;
    format.channels = std::max<uint32_t>(format.channels, 1);
    format.sampleRate = std::max<uint32_t>(format.sampleRate, 1);
    running_.packetFrames = std::max<uint32_t>(running_.packetFrames, 1);
    // The most frames one packet can have: irregular packets go up to twice
    // the regular size.
    const uint32_t maxFrames = running_.packetFrames * 2;
    generator_.emplace(running_.signal, format.sampleRate, format.channels);
    planar_.assign(format.channels, std::vector<float>(maxFrames));
    planarPointers_.clear();
    for (auto& channel : planar_)
    {
        planarPointers_.push_back(channel.data());
    }
    const uint32_t bufferCount = format.BufferCount();
    const uint32_t samplesPerBuffer = maxFrames * (format.interleaved ? format.channels : 1);
    deviceBuffers_.assign(bufferCount, std::vector<float>(samplesPerBuffer));
    devicePointers_.clear();
    for (auto& buffer : deviceBuffers_)
    {
        devicePointers_.push_back(buffer.data());
    }
    mix_.assign(static_cast<size_t>(maxFrames) * format.channels, 0.0f);
    irregularState_ = running_.faults.irregularSeed == 0 ? 1 : running_.faults.irregularSeed;
}

uint32_t SimDeviceEngine::NextPacketFrames()
{
    const uint32_t regular = running_.packetFrames;
    if (!running_.faults.irregularPackets)
    {
        return regular;
    }
    irregularState_ ^= irregularState_ << 13;
    irregularState_ ^= irregularState_ >> 7;
    irregularState_ ^= irregularState_ << 17;
    return 1 + static_cast<uint32_t>(irregularState_ % (2ull * regular));
}

void SimDeviceEngine::Run()
{
    char name[16];
    std::snprintf(name, sizeof name, "sim.%s.%u", direction_ == SimDirection::Input ? "in" : "out",
                  deviceId_);
    DplSetCurrentThreadName(name);

    std::unique_lock lock(lock_);
    uint64_t seenGeneration = generation_;
    ApplyConfig(config_);
    bool needsBase = true;
    int64_t baseTime = 0;
    uint64_t framesSinceBase = 0;
    double nanosecondsPerFrame = 1.0;

    while (!quit_)
    {
        if (activeStreams_ == 0)
        {
            wake_.wait(lock, [&] { return quit_ || activeStreams_ > 0; });
            needsBase = true;
            continue;
        }
        if (generation_ != seenGeneration)
        {
            // Keep time continuous: the new clock starts where the old one is.
            if (!needsBase)
            {
                baseTime += static_cast<int64_t>(std::llround(framesSinceBase * nanosecondsPerFrame));
                framesSinceBase = 0;
            }
            ApplyConfig(config_);
            seenGeneration = generation_;
        }
        const double framesPerSecond = running_.format.sampleRate * (1.0 + running_.skewPpm * 1e-6);
        nanosecondsPerFrame = 1e9 / std::max(framesPerSecond, 1.0);
        if (needsBase)
        {
            baseTime = HostTimeNanoseconds();
            framesSinceBase = 0;
            needsBase = false;
        }
        const uint32_t frames = NextPacketFrames();
        const int64_t firstFrameTime =
            baseTime + static_cast<int64_t>(std::llround(framesSinceBase * nanosecondsPerFrame));
        const int64_t deadline =
            baseTime + static_cast<int64_t>(std::llround((framesSinceBase + frames) * nanosecondsPerFrame));
        const uint64_t generation = seenGeneration;
        const bool interrupted =
            wake_.wait_until(lock, ToSteady(deadline),
                             [&] { return quit_ || activeStreams_ == 0 || generation_ != generation; });
        if (interrupted)
        {
            continue;
        }
        if (HostTimeNanoseconds() - deadline > kMaxLagNanoseconds)
        {
            needsBase = true;
            continue;
        }
        const SimDeviceFaults faults = running_.faults;
        lock.unlock();
        if (!faults.stalled)
        {
            if (direction_ == SimDirection::Input)
            {
                DeliverCapture(frames, firstFrameTime);
            }
            else
            {
                DeliverPlayback(frames, firstFrameTime, nanosecondsPerFrame);
            }
        }
        if (faults.slowCallbackMicroseconds > 0)
        {
            std::this_thread::sleep_for(std::chrono::microseconds(faults.slowCallbackMicroseconds));
        }
        lock.lock();
        framesSinceBase += frames;
    }
}

void SimDeviceEngine::DeliverCapture(uint32_t frames, int64_t hostTime)
{
    std::lock_guard guard(callbackLock_);
    generator_->Render(planarPointers_.data(), frames);
    StoreFrames(running_.format, planarPointers_.data(), devicePointers_.data(), frames);
    CapturePacket packet;
    packet.buffers = devicePointers_.data();
    packet.bufferCount = static_cast<uint32_t>(devicePointers_.size());
    packet.frames = frames;
    packet.hostTimeNanoseconds = hostTime;
    // By index: a callback may open another stream on this device.
    for (size_t i = 0; i < members_.size(); ++i)
    {
        SimStreamCore* core = members_[i];
        if (core->started.load(std::memory_order_acquire) && core->capture)
        {
            core->capture(packet);
        }
    }
    packets_.fetch_add(1, std::memory_order_release);
    frames_.fetch_add(frames, std::memory_order_release);
}

void SimDeviceEngine::DeliverPlayback(uint32_t frames, int64_t hostTime, double nanosecondsPerFrame)
{
    std::lock_guard guard(callbackLock_);
    const DeviceStreamFormat& format = running_.format;
    std::fill(mix_.begin(), mix_.begin() + static_cast<std::ptrdiff_t>(frames * format.channels), 0.0f);
    PlaybackRequest request;
    request.buffers = devicePointers_.data();
    request.bufferCount = static_cast<uint32_t>(devicePointers_.size());
    request.frames = frames;
    // The packet plays once the one before it has played.
    request.hostTimeNanoseconds = hostTime + static_cast<int64_t>(std::llround(frames * nanosecondsPerFrame));
    for (size_t i = 0; i < members_.size(); ++i)
    {
        SimStreamCore* core = members_[i];
        if (!core->started.load(std::memory_order_acquire) || !core->playback)
        {
            continue;
        }
        for (auto& buffer : deviceBuffers_)
        {
            std::fill(buffer.begin(), buffer.end(), 0.0f);
        }
        core->playback(request);
        MixFrames(format, devicePointers_.data(), frames, core->volume.load(std::memory_order_relaxed),
                  mix_.data());
    }
    if (running_.recorder)
    {
        running_.recorder->Append(mix_.data(), frames);
    }
    if (running_.loopback && running_.loopback->Channels() == format.channels)
    {
        running_.loopback->Write(mix_.data(), frames);
    }
    packets_.fetch_add(1, std::memory_order_release);
    frames_.fetch_add(frames, std::memory_order_release);
}

}  // namespace tidemix::platform::sim
