// Built only with PipeWire; see PipeWireAudioSystem.h for the backend.
#if TIDEMIX_HAVE_PIPEWIRE
#include "platform/pipewire/PipeWireStreamBase.h"

#include <spa/param/audio/format-utils.h>
#include <spa/pod/builder.h>

#include <cstring>
#include <thread>

#include "platform/HostTime.h"
#include "portable-core/DRAVLog.h"

namespace tidemix::platform::pipewire
{
namespace
{
const char* DirectionName(bool capture)
{
    return capture ? "capture" : "playback";
}
}  // namespace

DeviceStreamFormat PipeWireStreamBase::StreamFormat()
{
    DeviceStreamFormat format;
    format.sampleRate = kSampleRate;
    format.channels = kChannels;
    format.encoding = SampleEncoding::Float32;
    format.interleaved = false;
    return format;
}

PipeWireStreamBase::PipeWireStreamBase(std::shared_ptr<PipeWireContext> context, StreamTarget target,
                                       bool capture)
    : context_(std::move(context)), target_(std::move(target)), capture_(capture)
{
}

PipeWireStreamBase::~PipeWireStreamBase()
{
    // A subclass stops in its own destructor, while Process may still be
    // called; this is the last line of defence.
    StopStream();
}

DRAVResult PipeWireStreamBase::StartStream()
{
    PipeWireContext::Lock lock(*context_);
    if (running_.load())
    {
        return DRAVResult(kDRAVResultErrInvalidState, "the PipeWire %s stream is already running",
                          DirectionName(capture_));
    }
    if (!context_->Connected())
    {
        return DRAVResult(kDRAVResultErrNotInitialized, "the PipeWire daemon is gone");
    }
    DestroyLocked();  // left by a stop from within the callback
    DRAVResult result = ConnectLocked();
    if (result.Succeeded())
    {
        active_.store(true);
        running_.store(true);
    }
    return result;
}

void PipeWireStreamBase::StopStream()
{
    running_.store(false);
    active_.store(false);
    if (processThread_.load() == std::this_thread::get_id())
    {
        // Stopped from its own callback: the callback can't wait for itself
        // and PipeWire's data thread mustn't tear the stream down. No further
        // callback reaches the owner; the next start or the destructor
        // destroys the pw_stream.
        return;
    }
    // A callback that began before the flag fell still runs: wait for it.
    // One that begins after sees the flag and does nothing.
    while (inFlight_.load() != 0)
    {
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    PipeWireContext::Lock lock(*context_);
    DestroyLocked();
}

DRAVResult PipeWireStreamBase::Retarget(StreamTarget target)
{
    PipeWireContext::Lock lock(*context_);
    target_ = std::move(target);
    if (!running_.load())
    {
        return DRAVResult(kDRAVResultOk);
    }
    if (!context_->Connected())
    {
        return DRAVResult(kDRAVResultErrNotInitialized, "the PipeWire daemon is gone");
    }
    // The callback goes on across the move: only the pw_stream is new.
    DestroyLocked();
    DRAVResult result = ConnectLocked();
    if (!result.Succeeded())
    {
        active_.store(false);
        running_.store(false);
    }
    return result;
}

DRAVResult PipeWireStreamBase::ConnectLocked()
{
    pw_properties* props = pw_properties_new(
        PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, capture_ ? "Capture" : "Playback",
        PW_KEY_MEDIA_ROLE, "Production", PW_KEY_NODE_NAME, capture_ ? "tidemix.capture" : "tidemix.playback",
        PW_KEY_NODE_LATENCY, "960/48000", nullptr);
    if (!target_.serial.empty() || !target_.nodeName.empty())
    {
        pw_properties_set(props, PW_KEY_TARGET_OBJECT,
                          !target_.serial.empty() ? target_.serial.c_str() : target_.nodeName.c_str());
        // A stream made for one device never wanders to another.
        pw_properties_set(props, PW_KEY_NODE_DONT_RECONNECT, "true");
    }
    if (capture_ && target_.captureFromSink)
    {
        pw_properties_set(props, PW_KEY_STREAM_CAPTURE_SINK, "true");
    }

    pw_stream* stream =
        pw_stream_new(context_->Core(), capture_ ? "Tidemix capture" : "Tidemix playback", props);
    if (stream == nullptr)
    {
        return DRAVResult(kDRAVResultErrInsufficientMemory, "cannot make a PipeWire %s stream: %s",
                          DirectionName(capture_), strerror(errno));
    }
    static const pw_stream_events kEvents = []
    {
        pw_stream_events events{};
        events.version = PW_VERSION_STREAM_EVENTS;
        events.state_changed = &PipeWireStreamBase::OnStateChanged;
        events.process = &PipeWireStreamBase::OnProcess;
        return events;
    }();
    streamListener_ = {};
    pw_stream_add_listener(stream, &streamListener_, &kEvents, this);

    uint8_t podBuffer[1024];
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, podBuffer, sizeof(podBuffer));
    spa_audio_info_raw info{};
    info.format = SPA_AUDIO_FORMAT_F32P;
    info.rate = kSampleRate;
    info.channels = kChannels;
    info.position[0] = SPA_AUDIO_CHANNEL_FL;
    info.position[1] = SPA_AUDIO_CHANNEL_FR;
    const spa_pod* params[1] = {spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &info)};

    const auto flags = static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS |
                                                    PW_STREAM_FLAG_RT_PROCESS);
    errorLogged_ = false;
    stream_.store(stream);
    int rc = pw_stream_connect(stream, capture_ ? PW_DIRECTION_INPUT : PW_DIRECTION_OUTPUT, PW_ID_ANY, flags,
                               params, 1);
    if (rc < 0)
    {
        DestroyLocked();
        return DRAVResult(kDRAVResultErrInvalidState, "cannot connect a PipeWire %s stream to \"%s\": %s",
                          DirectionName(capture_), target_.displayName.c_str(), strerror(-rc));
    }
    return DRAVResult(kDRAVResultOk);
}

void PipeWireStreamBase::DestroyLocked()
{
    pw_stream* stream = stream_.load();
    if (stream == nullptr)
    {
        return;
    }
    // pw_stream_destroy leaves the data thread before it returns.
    spa_hook_remove(&streamListener_);
    pw_stream_destroy(stream);
    stream_.store(nullptr);
}

void PipeWireStreamBase::CycleTimes(pw_stream* stream, int64_t* now, int64_t* delay)
{
    pw_time time{};
    *now = 0;
    *delay = 0;
    if (pw_stream_get_time_n(stream, &time, sizeof(time)) == 0 && time.now > 0)
    {
        *now = time.now;
        if (time.rate.denom != 0)
        {
            *delay = time.delay * static_cast<int64_t>(SPA_NSEC_PER_SEC) * time.rate.num / time.rate.denom;
        }
    }
    if (*now == 0)
    {
        *now = HostTimeNanoseconds();
    }
}

void PipeWireStreamBase::OnProcess(void* data)
{
    auto* self = static_cast<PipeWireStreamBase*>(data);
    self->inFlight_.fetch_add(1);
    if (self->active_.load())
    {
        self->processThread_.store(std::this_thread::get_id());
        self->Process(self->stream_.load());
        self->processThread_.store(std::thread::id());
    }
    self->inFlight_.fetch_sub(1);
}

void PipeWireStreamBase::OnStateChanged(void* data, pw_stream_state /*old*/, pw_stream_state state,
                                        const char* error)
{
    auto* self = static_cast<PipeWireStreamBase*>(data);
    if (state == PW_STREAM_STATE_ERROR && !self->errorLogged_)
    {
        self->errorLogged_ = true;
        DRAVLogPrintf(kDbgPrintLevelError, "PipeWire: the %s stream on \"%s\" failed (%s); it stays silent",
                      DirectionName(self->capture_), self->target_.displayName.c_str(),
                      error != nullptr ? error : "no reason given");
    }
    else if (state == PW_STREAM_STATE_UNCONNECTED && self->running_.load() && !self->errorLogged_)
    {
        self->errorLogged_ = true;
        DRAVLogPrintf(kDbgPrintLevelWarning,
                      "PipeWire: the %s stream on \"%s\" lost its device; it stays silent",
                      DirectionName(self->capture_), self->target_.displayName.c_str());
    }
}

}  // namespace tidemix::platform::pipewire

#endif
