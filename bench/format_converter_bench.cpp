// Speed of the format converter in output frames per second (items/s):
// 44100 -> 48000 Hz stereo in 960-frame mix blocks, the way back to a
// 44100 Hz 16-bit interleaved device in 512-frame packets, and the
// equal-rate path.
#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "engine/media/AlignedSampleBuffer.h"
#include "engine/devices/AudioFormatConverter.h"

namespace
{

using tidemix::engine::AlignedSampleBuffer;
using tidemix::engine::AudioFormatConverter;
using tidemix::platform::DeviceStreamFormat;
using tidemix::platform::SampleEncoding;

DeviceStreamFormat Format(uint32_t rate, SampleEncoding encoding, bool interleaved)
{
    DeviceStreamFormat format;
    format.sampleRate = rate;
    format.channels = 2;
    format.encoding = encoding;
    format.interleaved = interleaved;
    return format;
}

// Fills any stereo layout with a tone. The converter's input buffers keep
// their content between calls, so the tone is written only when a request
// reaches further than before: the source costs nothing in the measurement.
uint32_t FillTone(const DeviceStreamFormat& format, void* const* buffers, uint32_t frames)
{
    for (uint32_t f = 0; f < frames; ++f)
    {
        const float v = 0.5f * std::sin(0.13f * static_cast<float>(f));
        for (uint32_t c = 0; c < 2; ++c)
        {
            const size_t index = format.interleaved ? f * 2 + c : f;
            void* base = buffers[format.interleaved ? 0 : c];
            if (format.encoding == SampleEncoding::Float32)
                static_cast<float*>(base)[index] = v;
            else
                static_cast<int16_t*>(base)[index] = static_cast<int16_t>(v * 32767.0f);
        }
    }
    return frames;
}

void RunConverter(benchmark::State& state, const DeviceStreamFormat& input, const DeviceStreamFormat& output,
                  uint32_t frames)
{
    uint32_t filled = 0;
    auto converter = AudioFormatConverter::Create(input, output, frames,
                                                  [&input, &filled](void* const* b, uint32_t n)
                                                  {
                                                      if (n > filled)
                                                          filled = FillTone(input, b, n);
                                                      return n;
                                                  });
    if (!converter)
    {
        state.SkipWithError("converter refused the formats");
        return;
    }
    AlignedSampleBuffer<uint8_t> storage(frames * 2 * output.BytesPerSample() + 128);
    const size_t half = (frames * output.BytesPerSample() + 63) / 64 * 64;
    void* buffers[2] = {storage.Data(), storage.Data() + half};
    for (auto _ : state)
    {
        converter->Render(buffers, frames);
        benchmark::DoNotOptimize(storage.Data()[0]);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * frames);
}

void BM_Convert44100StereoTo48000Planar(benchmark::State& state)
{
    RunConverter(state, Format(44100, SampleEncoding::Float32, false), AudioFormatConverter::MixFormat(),
                 960);
}
BENCHMARK(BM_Convert44100StereoTo48000Planar);

void BM_Convert44100Int16InterleavedTo48000Planar(benchmark::State& state)
{
    RunConverter(state, Format(44100, SampleEncoding::Int16, true), AudioFormatConverter::MixFormat(), 960);
}
BENCHMARK(BM_Convert44100Int16InterleavedTo48000Planar);

void BM_Convert48000PlanarTo44100Int16Interleaved(benchmark::State& state)
{
    RunConverter(state, AudioFormatConverter::MixFormat(), Format(44100, SampleEncoding::Int16, true), 512);
}
BENCHMARK(BM_Convert48000PlanarTo44100Int16Interleaved);

void BM_Convert48000PlanarPassthrough(benchmark::State& state)
{
    RunConverter(state, AudioFormatConverter::MixFormat(), AudioFormatConverter::MixFormat(), 960);
}
BENCHMARK(BM_Convert48000PlanarPassthrough);

}  // namespace
