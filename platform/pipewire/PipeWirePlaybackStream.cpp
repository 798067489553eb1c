// Built only with PipeWire; see PipeWireAudioSystem.h for the backend.
#if TIDEMIX_HAVE_PIPEWIRE
#include "platform/pipewire/PipeWirePlaybackStream.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace tidemix::platform::pipewire
{
namespace
{
// When PipeWire doesn't say how much it wants: one cycle of the usual size.
constexpr uint32_t kFallbackFrames = 1024;
}  // namespace

PipeWirePlaybackStream::PipeWirePlaybackStream(std::shared_ptr<PipeWireContext> context, StreamTarget target,
                                               TargetResolver resolver, PlaybackCallback callback)
    : PipeWireStreamBase(std::move(context), std::move(target), false),
      resolver_(std::move(resolver)),
      callback_(std::move(callback))
{
}

PipeWirePlaybackStream::~PipeWirePlaybackStream()
{
    StopStream();
}

void PipeWirePlaybackStream::SetVolume(float volume)
{
    if (std::isnan(volume))
    {
        volume = 0.0f;
    }
    volume_.store(std::clamp(volume, 0.0f, 1.0f));
}

DRAVResult PipeWirePlaybackStream::MoveTo(uint32_t deviceId)
{
    std::optional<StreamTarget> target = resolver_ ? resolver_(deviceId) : std::nullopt;
    if (!target)
    {
        return DRAVResult(kDRAVResultErrNotFound, "no PipeWire output device %u", deviceId);
    }
    return Retarget(std::move(*target));
}

void PipeWirePlaybackStream::Process(pw_stream* stream)
{
    if (stream == nullptr)
    {
        return;
    }
    pw_buffer* buffer = pw_stream_dequeue_buffer(stream);
    if (buffer == nullptr)
    {
        return;
    }
    spa_buffer* data = buffer->buffer;
    void* channels[kChannels] = {};
    uint32_t frames = buffer->requested != 0 ? static_cast<uint32_t>(buffer->requested) : kFallbackFrames;
    const uint32_t count = std::min<uint32_t>(data->n_datas, kChannels);
    bool usable = count == kChannels;
    for (uint32_t i = 0; i < count; ++i)
    {
        spa_data& plane = data->datas[i];
        if (plane.data == nullptr || plane.chunk == nullptr)
        {
            usable = false;
            break;
        }
        channels[i] = plane.data;
        frames = std::min<uint32_t>(frames, plane.maxsize / sizeof(float));
    }
    if (!usable)
    {
        frames = 0;
    }
    if (frames != 0)
    {
        if (callback_)
        {
            int64_t now = 0;
            int64_t delay = 0;
            CycleTimes(stream, &now, &delay);
            PlaybackRequest request;
            request.buffers = channels;
            request.bufferCount = kChannels;
            request.frames = frames;
            request.hostTimeNanoseconds = now + delay;
            callback_(request);
        }
        else
        {
            for (void* channel : channels)
            {
                memset(channel, 0, frames * sizeof(float));
            }
        }
        const float volume = volume_.load();
        if (volume != 1.0f)
        {
            for (void* channel : channels)
            {
                float* samples = static_cast<float*>(channel);
                for (uint32_t f = 0; f < frames; ++f)
                {
                    samples[f] *= volume;
                }
            }
        }
    }
    for (uint32_t i = 0; i < data->n_datas; ++i)
    {
        if (data->datas[i].chunk != nullptr)
        {
            data->datas[i].chunk->offset = 0;
            data->datas[i].chunk->stride = sizeof(float);
            data->datas[i].chunk->size = frames * static_cast<uint32_t>(sizeof(float));
        }
    }
    pw_stream_queue_buffer(stream, buffer);
}

}  // namespace tidemix::platform::pipewire

#endif
