// Built only with PipeWire; see PipeWireAudioSystem.h for the backend.
#if TIDEMIX_HAVE_PIPEWIRE
#include "platform/pipewire/PipeWireCaptureStream.h"

#include <algorithm>

namespace tidemix::platform::pipewire
{

PipeWireCaptureStream::PipeWireCaptureStream(std::shared_ptr<PipeWireContext> context, StreamTarget target,
                                             CaptureCallback callback)
    : PipeWireStreamBase(std::move(context), std::move(target), true), callback_(std::move(callback))
{
}

PipeWireCaptureStream::~PipeWireCaptureStream()
{
    StopStream();
}

void PipeWireCaptureStream::Process(pw_stream* stream)
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
    const void* channels[kChannels] = {};
    uint32_t frames = UINT32_MAX;
    const uint32_t count = std::min<uint32_t>(data->n_datas, kChannels);
    for (uint32_t i = 0; i < count; ++i)
    {
        const spa_data& plane = data->datas[i];
        if (plane.data == nullptr || plane.chunk == nullptr)
        {
            frames = 0;
            break;
        }
        const uint32_t offset = std::min(plane.chunk->offset, plane.maxsize);
        const uint32_t size = std::min(plane.chunk->size, plane.maxsize - offset);
        channels[i] = static_cast<const uint8_t*>(plane.data) + offset;
        frames = std::min<uint32_t>(frames, size / sizeof(float));
    }
    if (count == kChannels && frames != 0 && frames != UINT32_MAX && callback_)
    {
        int64_t now = 0;
        int64_t delay = 0;
        CycleTimes(stream, &now, &delay);
        CapturePacket packet;
        packet.buffers = channels;
        packet.bufferCount = kChannels;
        packet.frames = frames;
        // The cycle begins when the last frame is in: the first came a packet earlier.
        packet.hostTimeNanoseconds =
            now - delay - static_cast<int64_t>(frames) * static_cast<int64_t>(SPA_NSEC_PER_SEC) / kSampleRate;
        callback_(packet);
    }
    pw_stream_queue_buffer(stream, buffer);
}

}  // namespace tidemix::platform::pipewire

#endif
