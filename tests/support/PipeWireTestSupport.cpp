#include "support/PipeWireTestSupport.h"

#include <algorithm>
#include <cmath>

namespace tidemix::test
{

ToneMeasurement MeasureTone(const float* samples, size_t count, uint32_t sampleRate)
{
    ToneMeasurement result;
    result.frames = count;
    if (count < 2 || sampleRate == 0)
    {
        return result;
    }
    double energy = 0.0;
    for (size_t i = 0; i < count; ++i)
    {
        energy += static_cast<double>(samples[i]) * samples[i];
    }
    result.rms = std::sqrt(energy / static_cast<double>(count));

    // Rising zero crossings, placed between samples by linear interpolation.
    double first = -1.0;
    double last = -1.0;
    size_t crossings = 0;
    for (size_t i = 1; i < count; ++i)
    {
        if (samples[i - 1] < 0.0f && samples[i] >= 0.0f)
        {
            double fraction = samples[i - 1] / static_cast<double>(samples[i - 1] - samples[i]);
            double at = static_cast<double>(i - 1) + fraction;
            if (crossings == 0)
            {
                first = at;
            }
            last = at;
            ++crossings;
        }
    }
    if (crossings >= 2 && last > first)
    {
        result.frequency = static_cast<double>(crossings - 1) * sampleRate / (last - first);
    }
    return result;
}

ToneMeasurement MeasureTonePieces(const float* samples, size_t count, uint32_t sampleRate, size_t chunkFrames)
{
    std::vector<ToneMeasurement> pieces;
    for (size_t at = 0; chunkFrames > 0 && at + chunkFrames <= count; at += chunkFrames)
    {
        pieces.push_back(MeasureTone(samples + at, chunkFrames, sampleRate));
    }
    ToneMeasurement result;
    result.frames = count;
    if (pieces.empty())
    {
        return result;
    }
    // A piece with a dropout reads low, never high: the level is that of the
    // pieces that carry the tone whole (the 90th percentile), and the
    // frequency the median of those pieces alone, since a gap also stretches
    // the time between crossings.
    std::vector<double> levels;
    for (const ToneMeasurement& piece : pieces)
    {
        levels.push_back(piece.rms);
    }
    const size_t upper = levels.size() * 9 / 10;
    std::nth_element(levels.begin(), levels.begin() + static_cast<std::ptrdiff_t>(upper), levels.end());
    result.rms = levels[upper];
    std::vector<double> frequencies;
    for (const ToneMeasurement& piece : pieces)
    {
        if (piece.rms >= 0.9 * result.rms)
        {
            frequencies.push_back(piece.frequency);
        }
    }
    std::nth_element(frequencies.begin(),
                     frequencies.begin() + static_cast<std::ptrdiff_t>(frequencies.size() / 2),
                     frequencies.end());
    result.frequency = frequencies[frequencies.size() / 2];
    return result;
}

void SampleCollector::Append(const float* samples, size_t count)
{
    size_t at = written_.load(std::memory_order_relaxed);
    size_t room = samples_.size() - at;
    size_t take = std::min(room, count);
    std::copy(samples, samples + take, samples_.begin() + static_cast<std::ptrdiff_t>(at));
    written_.store(at + take, std::memory_order_release);
}

std::vector<float> SampleCollector::Copy(size_t from) const
{
    size_t end = Frames();
    from = std::min(from, end);
    return std::vector<float>(samples_.begin() + static_cast<std::ptrdiff_t>(from),
                              samples_.begin() + static_cast<std::ptrdiff_t>(end));
}

size_t SampleCollector::FirstAbove(float threshold) const
{
    size_t end = Frames();
    for (size_t i = 0; i < end; ++i)
    {
        if (std::fabs(samples_[i]) > threshold)
        {
            return i;
        }
    }
    return end;
}

}  // namespace tidemix::test

#if TIDEMIX_HAVE_PIPEWIRE

#include <pipewire/pipewire.h>
#include <spa/param/audio/format-utils.h>

#include <cstring>
#include <mutex>

namespace tidemix::test
{
namespace
{
constexpr uint32_t kRate = 48000;

// The peer's own connection: loop, context and core.
struct PeerCore
{
    pw_thread_loop* loop = nullptr;
    pw_context* context = nullptr;
    pw_core* core = nullptr;
    spa_hook coreListener{};
    int doneSeq = -1;

    ~PeerCore()
    {
        if (loop != nullptr)
        {
            pw_thread_loop_stop(loop);
        }
        if (core != nullptr)
        {
            spa_hook_remove(&coreListener);
            pw_core_disconnect(core);
        }
        if (context != nullptr)
        {
            pw_context_destroy(context);
        }
        if (loop != nullptr)
        {
            pw_thread_loop_destroy(loop);
        }
    }

    bool RoundTrip()
    {
        pw_thread_loop_lock(loop);
        int seq = pw_core_sync(core, PW_ID_CORE, 0);
        timespec deadline{};
        pw_thread_loop_get_time(loop, &deadline, 5 * static_cast<int64_t>(SPA_NSEC_PER_SEC));
        bool ok = true;
        while (doneSeq < seq && ok)
        {
            ok = pw_thread_loop_timed_wait_full(loop, &deadline) == 0;
        }
        pw_thread_loop_unlock(loop);
        return ok;
    }
};

class LoopLock
{
public:
    explicit LoopLock(pw_thread_loop* loop) : loop_(loop) { pw_thread_loop_lock(loop_); }
    ~LoopLock() { pw_thread_loop_unlock(loop_); }
    LoopLock(const LoopLock&) = delete;
    LoopLock& operator=(const LoopLock&) = delete;

private:
    pw_thread_loop* loop_;
};

const spa_pod* StereoFloatFormat(spa_pod_builder* builder)
{
    spa_audio_info_raw info{};
    info.format = SPA_AUDIO_FORMAT_F32;
    info.rate = kRate;
    info.channels = 2;
    info.position[0] = SPA_AUDIO_CHANNEL_FL;
    info.position[1] = SPA_AUDIO_CHANNEL_FR;
    return spa_format_audio_raw_build(builder, SPA_PARAM_EnumFormat, &info);
}

class NodeHandle final : public PipeWireTestPeer::Handle
{
public:
    NodeHandle(std::shared_ptr<PeerCore> core, pw_proxy* proxy) : core_(std::move(core)), proxy_(proxy) {}
    ~NodeHandle() override
    {
        LoopLock lock(core_->loop);
        pw_proxy_destroy(proxy_);
    }

private:
    std::shared_ptr<PeerCore> core_;
    pw_proxy* proxy_;
};

// A pw_stream of the peer; its process runs on PipeWire's data thread.
class StreamHandle : public PipeWireTestPeer::Handle
{
public:
    explicit StreamHandle(std::shared_ptr<PeerCore> core) : core_(std::move(core)) {}
    ~StreamHandle() override { Disconnect(); }

    // Subclasses call this first in their destructors: Process must not run
    // on a half-destroyed object.
    void Disconnect()
    {
        LoopLock lock(core_->loop);
        if (stream_ != nullptr)
        {
            spa_hook_remove(&listener_);
            pw_stream_destroy(stream_);
            stream_ = nullptr;
        }
    }

    bool Connect(const std::string& nodeName, bool capture)
    {
        LoopLock lock(core_->loop);
        pw_properties* props = pw_properties_new(PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY,
                                                 capture ? "Capture" : "Playback", nullptr);
        // No node: wherever the session manager links it, as an application plays.
        if (!nodeName.empty())
        {
            pw_properties_set(props, PW_KEY_TARGET_OBJECT, nodeName.c_str());
            pw_properties_set(props, PW_KEY_NODE_DONT_RECONNECT, "true");
        }
        if (capture)
        {
            pw_properties_set(props, PW_KEY_STREAM_CAPTURE_SINK, "true");
        }
        stream_ = pw_stream_new(core_->core, capture ? "tidemix-test-record" : "tidemix-test-tone", props);
        if (stream_ == nullptr)
        {
            return false;
        }
        static const pw_stream_events kEvents = []
        {
            pw_stream_events events{};
            events.version = PW_VERSION_STREAM_EVENTS;
            events.process = &StreamHandle::OnProcess;
            return events;
        }();
        pw_stream_add_listener(stream_, &listener_, &kEvents, this);
        uint8_t podBuffer[1024];
        spa_pod_builder builder{};
        spa_pod_builder_init(&builder, podBuffer, sizeof(podBuffer));
        const spa_pod* params[1] = {StereoFloatFormat(&builder)};
        return pw_stream_connect(
                   stream_, capture ? PW_DIRECTION_INPUT : PW_DIRECTION_OUTPUT, PW_ID_ANY,
                   static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS |
                                                PW_STREAM_FLAG_RT_PROCESS),
                   params, 1) >= 0;
    }

protected:
    virtual void Process(pw_stream* stream) = 0;

private:
    static void OnProcess(void* data)
    {
        auto* self = static_cast<StreamHandle*>(data);
        self->Process(self->stream_);
    }

    std::shared_ptr<PeerCore> core_;
    pw_stream* stream_ = nullptr;
    spa_hook listener_{};
};

class ToneHandle final : public StreamHandle
{
public:
    ToneHandle(std::shared_ptr<PeerCore> core, double frequency, float amplitude)
        : StreamHandle(std::move(core)), step_(2.0 * M_PI * frequency / kRate), amplitude_(amplitude)
    {
    }
    ~ToneHandle() override { Disconnect(); }

private:
    void Process(pw_stream* stream) override
    {
        pw_buffer* buffer = pw_stream_dequeue_buffer(stream);
        if (buffer == nullptr)
        {
            return;
        }
        spa_data& data = buffer->buffer->datas[0];
        if (data.data == nullptr)
        {
            pw_stream_queue_buffer(stream, buffer);
            return;
        }
        uint32_t frames = data.maxsize / (2 * sizeof(float));
        if (buffer->requested != 0)
        {
            frames = std::min<uint32_t>(frames, static_cast<uint32_t>(buffer->requested));
        }
        auto* out = static_cast<float*>(data.data);
        for (uint32_t f = 0; f < frames; ++f)
        {
            float value = amplitude_ * static_cast<float>(std::sin(phase_));
            phase_ += step_;
            if (phase_ > 2.0 * M_PI)
            {
                phase_ -= 2.0 * M_PI;
            }
            out[2 * f] = value;
            out[2 * f + 1] = value;
        }
        data.chunk->offset = 0;
        data.chunk->stride = 2 * sizeof(float);
        data.chunk->size = frames * 2 * sizeof(float);
        pw_stream_queue_buffer(stream, buffer);
    }

    double phase_ = 0.0;
    const double step_;
    const float amplitude_;
};

class RecordHandle final : public StreamHandle
{
public:
    RecordHandle(std::shared_ptr<PeerCore> core, std::shared_ptr<SampleCollector> into)
        : StreamHandle(std::move(core)), into_(std::move(into))
    {
    }
    ~RecordHandle() override { Disconnect(); }

private:
    void Process(pw_stream* stream) override
    {
        pw_buffer* buffer = pw_stream_dequeue_buffer(stream);
        if (buffer == nullptr)
        {
            return;
        }
        spa_data& data = buffer->buffer->datas[0];
        if (data.data != nullptr && data.chunk != nullptr)
        {
            uint32_t offset = std::min(data.chunk->offset, data.maxsize);
            uint32_t size = std::min(data.chunk->size, data.maxsize - offset);
            const auto* in = reinterpret_cast<const float*>(static_cast<const uint8_t*>(data.data) + offset);
            uint32_t frames = size / (2 * sizeof(float));
            float left[256];
            for (uint32_t done = 0; done < frames;)
            {
                uint32_t chunk = std::min<uint32_t>(frames - done, 256);
                for (uint32_t f = 0; f < chunk; ++f)
                {
                    left[f] = in[2 * (done + f)];
                }
                into_->Append(left, chunk);
                done += chunk;
            }
        }
        pw_stream_queue_buffer(stream, buffer);
    }

    std::shared_ptr<SampleCollector> into_;
};

// An application: a client of its own with a tone; it quits with the handle.
class ApplicationHandle final : public PipeWireTestPeer::Handle
{
public:
    ApplicationHandle(std::shared_ptr<PeerCore> core, std::unique_ptr<StreamHandle> tone)
        : core_(std::move(core)), tone_(std::move(tone))
    {
    }
    ~ApplicationHandle() override { tone_.reset(); }

private:
    std::shared_ptr<PeerCore> core_;
    std::unique_ptr<StreamHandle> tone_;
};

class Peer final : public PipeWireTestPeer
{
public:
    Peer(std::shared_ptr<PeerCore> core, std::string remoteName)
        : core_(std::move(core)), remoteName_(std::move(remoteName))
    {
    }

    std::unique_ptr<Handle> RunApplication(const std::string& appId, const std::string& appName,
                                           double frequency, float amplitude) override;

    std::unique_ptr<Handle> CreateNullSink(const std::string& nodeName, const std::string& description,
                                           const std::string& mediaClass) override
    {
        pw_proxy* proxy = nullptr;
        {
            LoopLock lock(core_->loop);
            pw_properties* props = pw_properties_new(
                "factory.name", "support.null-audio-sink", PW_KEY_NODE_NAME, nodeName.c_str(),
                PW_KEY_NODE_DESCRIPTION, description.c_str(), PW_KEY_MEDIA_CLASS, mediaClass.c_str(),
                "audio.position", "[ FL FR ]", "audio.rate", "48000", PW_KEY_NODE_VIRTUAL, "true", nullptr);
            proxy = static_cast<pw_proxy*>(pw_core_create_object(
                core_->core, "adapter", PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, &props->dict, 0));
            pw_properties_free(props);
        }
        if (proxy == nullptr)
        {
            return nullptr;
        }
        auto handle = std::make_unique<NodeHandle>(core_, proxy);
        core_->RoundTrip();
        return handle;
    }

    std::unique_ptr<Handle> PlayTone(const std::string& nodeName, double frequency, float amplitude) override
    {
        auto tone = std::make_unique<ToneHandle>(core_, frequency, amplitude);
        return tone->Connect(nodeName, false) ? std::move(tone) : nullptr;
    }

    std::unique_ptr<Handle> RecordMonitor(const std::string& nodeName,
                                          std::shared_ptr<SampleCollector> into) override
    {
        auto recording = std::make_unique<RecordHandle>(core_, std::move(into));
        return recording->Connect(nodeName, true) ? std::move(recording) : nullptr;
    }

private:
    std::shared_ptr<PeerCore> core_;
    std::string remoteName_;
};
}  // namespace

namespace
{
// A connection of its own; extra properties name the client (taken over).
std::shared_ptr<PeerCore> ConnectCore(const std::string& remoteName, pw_properties* props)
{
    static std::once_flag once;
    std::call_once(once, [] { pw_init(nullptr, nullptr); });
    auto core = std::make_shared<PeerCore>();
    core->loop = pw_thread_loop_new("tidemix-test-pw", nullptr);
    core->context = pw_context_new(pw_thread_loop_get_loop(core->loop), nullptr, 0);
    if (core->context == nullptr || pw_thread_loop_start(core->loop) < 0)
    {
        if (props != nullptr)
        {
            pw_properties_free(props);
        }
        return nullptr;
    }
    {
        LoopLock lock(core->loop);
        if (!remoteName.empty())
        {
            if (props == nullptr)
            {
                props = pw_properties_new(nullptr, nullptr);
            }
            pw_properties_set(props, PW_KEY_REMOTE_NAME, remoteName.c_str());
        }
        core->core = pw_context_connect(core->context, props, 0);
        if (core->core == nullptr)
        {
            return nullptr;
        }
        static const pw_core_events kCoreEvents = []
        {
            pw_core_events events{};
            events.version = PW_VERSION_CORE_EVENTS;
            events.done = [](void* data, uint32_t id, int seq)
            {
                auto* self = static_cast<PeerCore*>(data);
                if (id == PW_ID_CORE)
                {
                    self->doneSeq = seq;
                    pw_thread_loop_signal(self->loop, false);
                }
            };
            return events;
        }();
        pw_core_add_listener(core->core, &core->coreListener, &kCoreEvents, core.get());
    }
    if (!core->RoundTrip())
    {
        return nullptr;
    }
    return core;
}
}  // namespace

std::unique_ptr<PipeWireTestPeer> PipeWireTestPeer::Connect(const std::string& remoteName)
{
    std::shared_ptr<PeerCore> core = ConnectCore(remoteName, nullptr);
    return core ? std::make_unique<Peer>(std::move(core), remoteName) : nullptr;
}

std::unique_ptr<PipeWireTestPeer::Handle> Peer::RunApplication(const std::string& appId,
                                                               const std::string& appName, double frequency,
                                                               float amplitude)
{
    std::shared_ptr<PeerCore> core = ConnectCore(
        remoteName_,
        pw_properties_new(PW_KEY_APP_ID, appId.c_str(), PW_KEY_APP_NAME, appName.c_str(), nullptr));
    if (!core)
    {
        return nullptr;
    }
    auto tone = std::make_unique<ToneHandle>(core, frequency, amplitude);
    if (!tone->Connect(std::string(), false))
    {
        return nullptr;
    }
    return std::make_unique<ApplicationHandle>(std::move(core), std::move(tone));
}

}  // namespace tidemix::test

#else

namespace tidemix::test
{
std::unique_ptr<PipeWireTestPeer> PipeWireTestPeer::Connect(const std::string&)
{
    return nullptr;
}
}  // namespace tidemix::test

#endif
