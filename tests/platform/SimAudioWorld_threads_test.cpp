#include "platform/sim/SimAudioWorld.h"

#include <gtest/gtest.h>

#include <algorithm>

#include <unistd.h>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>

#include "platform/HostTime.h"
#include "platform/sim/SimWavFile.h"
#include "support/SimAudioAnalysis.h"
#include "support/ThreadsTestSupport.h"

namespace tidemix::platform::sim
{
namespace
{
using namespace std::chrono_literals;

// Collects capture packets on the device thread without allocating: the
// sample store is reserved up front and each channel is kept as float.
class CaptureCollector
{
public:
    CaptureCollector(DeviceStreamFormat format, size_t maxFrames) : format_(format), maxFrames_(maxFrames)
    {
        channels_.assign(format.channels, std::vector<float>(maxFrames));
    }

    void operator()(const CapturePacket& packet)
    {
        const int64_t arrival = HostTimeNanoseconds();
        std::lock_guard guard(lock_);
        if (packetCount_ == 0)
        {
            firstStamp_ = packet.hostTimeNanoseconds;
        }
        else
        {
            // Frames from the first packet's first frame to this one's.
            framesAfterFirst_ += previousFrames_;
            lastStamp_ = packet.hostTimeNanoseconds;
        }
        if (packet.hostTimeNanoseconds > arrival)
        {
            stampInFuture_ = true;
        }
        // How late each packet arrives after its stamp, at best, early and
        // late in the run. A host stall delays some packets, never a whole
        // window; a delivery pace off the device clock moves every packet.
        const int64_t lag = arrival - packet.hostTimeNanoseconds;
        if (packetCount_ < kLagWindow)
        {
            earlyMinLag_ = std::min(earlyMinLag_, lag);
        }
        else if (packetCount_ >= 4 * kLagWindow)
        {
            lateMinLag_ = std::min(lateMinLag_, lag);
        }
        previousFrames_ = packet.frames;
        minFrames_ = std::min(minFrames_, packet.frames);
        maxPacket_ = std::max(maxPacket_, packet.frames);
        bufferCountOk_ = bufferCountOk_ && packet.bufferCount == format_.BufferCount();
        for (uint32_t i = 0; i < packet.frames && frames_ < maxFrames_; ++i, ++frames_)
        {
            for (uint32_t c = 0; c < format_.channels; ++c)
            {
                channels_[c][frames_] = Sample(packet, c, i);
            }
        }
        ++packetCount_;
    }

    float Sample(const CapturePacket& packet, uint32_t channel, uint32_t frame) const
    {
        const void* buffer = packet.buffers[format_.interleaved ? 0 : channel];
        const size_t index = format_.interleaved ? frame * format_.channels + channel : frame;
        if (format_.encoding == SampleEncoding::Float32)
        {
            return static_cast<const float*>(buffer)[index];
        }
        return static_cast<const int16_t*>(buffer)[index] / 32768.0f;
    }

    uint64_t Packets()
    {
        std::lock_guard guard(lock_);
        return packetCount_;
    }

    std::vector<float> Channel(uint32_t c)
    {
        std::lock_guard guard(lock_);
        return std::vector<float>(channels_[c].begin(),
                                  channels_[c].begin() + static_cast<std::ptrdiff_t>(frames_));
    }

    DeviceStreamFormat format_;
    size_t maxFrames_;
    std::mutex lock_;
    std::vector<std::vector<float>> channels_;
    size_t frames_ = 0;
    uint64_t packetCount_ = 0;
    uint64_t framesAfterFirst_ = 0;
    uint32_t previousFrames_ = 0;
    static constexpr uint64_t kLagWindow = 30;
    int64_t firstStamp_ = 0, lastStamp_ = 0;
    int64_t earlyMinLag_ = INT64_MAX, lateMinLag_ = INT64_MAX;
    uint32_t minFrames_ = UINT32_MAX;
    uint32_t maxPacket_ = 0;
    bool stampInFuture_ = false;
    bool bufferCountOk_ = true;
};

std::string TempWav(const char* name)
{
    return std::string(::testing::TempDir()) + name + std::to_string(getpid()) + ".wav";
}
}  // namespace

// Interleaved and planar, float and 16-bit, skewed clocks and irregular
// packet sizes: the stamps follow the device's clock and the content stays at
// the nominal rate.
TEST(SimAudioWorld, CaptureDeliversTheSignalAtTheDevicesRate)
{
    struct Case
    {
        const char* name;
        DeviceStreamFormat format;
        uint32_t packetFrames;
        double skewPpm;  // 2%: big enough to tell from scheduling noise
        bool irregular;
        std::vector<SimTone> tones;
    };
    const Case cases[] = {
        {"interleaved float, fast",
         {48000, 2, SampleEncoding::Float32, true},
         480,
         20000.0,
         false,
         {{1000.0, 0.5}, {250.0, 0.125}}},
        {"planar int16, slow",
         {44100, 3, SampleEncoding::Int16, false},
         441,
         -20000.0,
         false,
         {{441.0, 0.9}, {882.0, 0.3}, {100.0, 0.05}}},
        {"irregular packets",
         {48000, 2, SampleEncoding::Float32, true},
         256,
         0.0,
         true,
         {{500.0, 0.5}, {500.0, 0.5}}},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        SimAudioWorld world;
        SimDeviceSpec spec = SimDeviceSpec::Microphone("mic", "Mic", c.format);
        spec.packetFrames = c.packetFrames;
        spec.skewPpm = c.skewPpm;
        spec.faults.irregularPackets = c.irregular;
        spec.faults.irregularSeed = 99;
        spec.signal = SimSignal::Sines(c.tones);
        const uint32_t id = world.AddDevice(spec);
        CaptureCollector collector(c.format, c.format.sampleRate * 4);
        auto stream = world.OpenCapture(id, std::ref(collector));
        ASSERT_NE(stream, nullptr);
        EXPECT_EQ(stream->Format(), c.format);
        ASSERT_TRUE(stream->Start().Succeeded());
        ASSERT_TRUE(threads_test::WaitUntil([&] { return collector.Packets() >= 200; }));
        stream->Stop();

        std::lock_guard guard(collector.lock_);
        const double rate = c.format.sampleRate * (1.0 + c.skewPpm * 1e-6);
        EXPECT_NEAR(collector.framesAfterFirst_ * 1e9 / double(collector.lastStamp_ - collector.firstStamp_),
                    rate, 2.0);
        // The deliveries keep that pace against the host clock: the best lag
        // after the stamp is the same early and late. Delivering at the nominal
        // rate would add 0.2 ms a packet.
        ASSERT_NE(collector.lateMinLag_, INT64_MAX);
        EXPECT_FALSE(collector.stampInFuture_);
        EXPECT_TRUE(collector.bufferCountOk_);
        if (c.irregular)
        {
            // Sizes vary within twice the nominal packet.
            EXPECT_GE(collector.minFrames_, 1u);
            EXPECT_LT(collector.minFrames_, 200u);
            EXPECT_GT(collector.maxPacket_, 300u);
            EXPECT_LE(collector.maxPacket_, 512u);
        }
        else
        {
            EXPECT_LT(std::abs(collector.lateMinLag_ - collector.earlyMinLag_), 10'000'000)
                << "early " << collector.earlyMinLag_ << " ns, late " << collector.lateMinLag_ << " ns";
            EXPECT_EQ(collector.minFrames_, c.packetFrames);
            EXPECT_EQ(collector.maxPacket_, c.packetFrames);
        }
        for (uint32_t ch = 0; ch < c.format.channels; ++ch)
        {
            const std::vector<float> one(collector.channels_[ch].begin(),
                                         collector.channels_[ch].begin() + c.format.sampleRate);
            EXPECT_NEAR(test::ZeroCrossingFrequency(one, c.format.sampleRate), c.tones[ch].frequency, 1.0);
            EXPECT_NEAR(test::Rms(one), c.tones[ch].level / std::sqrt(2.0), 2e-3);
        }
    }
}

TEST(SimAudioWorld, TwoStreamsOnOneDeviceHearTheSamePackets)
{
    SimAudioWorld world;
    DeviceStreamFormat format{48000, 1, SampleEncoding::Float32, true};
    SimDeviceSpec spec = SimDeviceSpec::Microphone("mic-3", "Mono", format);
    spec.signal = SimSignal::Noise(7, 0.5);
    const uint32_t id = world.AddDevice(spec);
    CaptureCollector a(format, 48000), b(format, 48000);
    auto first = world.OpenCapture(id, std::ref(a));
    auto second = world.OpenCapture(id, std::ref(b));
    // Start both inside one round: stop the device's clock with a stall first.
    SimDeviceFaults stalled;
    stalled.stalled = true;
    world.SetFaults(id, stalled);
    ASSERT_TRUE(first->Start().Succeeded());
    ASSERT_TRUE(second->Start().Succeeded());
    world.SetFaults(id, {});
    ASSERT_TRUE(threads_test::WaitUntil([&] { return a.Packets() >= 20 && b.Packets() >= 20; }));
    first->Stop();
    second->Stop();
    const auto x = a.Channel(0);
    const auto y = b.Channel(0);
    const size_t n = std::min(x.size(), y.size());
    ASSERT_GT(n, 0u);
    EXPECT_TRUE(std::equal(x.begin(), x.begin() + static_cast<std::ptrdiff_t>(n), y.begin()));
}

// That the callbacks stop with the device is the capture source's case
// (DRAVSourceAudioCaptureCoreAudio_threads_test).
TEST(SimAudioWorld, RemovingADeviceFiresTheListenerAndForgetsIt)
{
    SimAudioWorld world;
    std::atomic<int> listChanges{0};
    ASSERT_NE(world.AddDeviceListListener([&] { listChanges.fetch_add(1); }), 0u);
    const uint32_t id = world.AddDevice(SimDeviceSpec::Microphone("mic-4", "USB Mic"));
    world.FlushNotifications();
    EXPECT_EQ(listChanges.load(), 1);
    ASSERT_EQ(world.Devices().size(), 1u);
    EXPECT_EQ(world.Devices()[0].uid, "mic-4");
    ASSERT_TRUE(world.RemoveDevice(id));
    world.FlushNotifications();
    EXPECT_EQ(listChanges.load(), 2);
    EXPECT_TRUE(world.Devices().empty());
    EXPECT_FALSE(world.RemoveDevice(id));
    EXPECT_EQ(world.OpenCapture(id, [](const CapturePacket&) {}), nullptr);
}

TEST(SimAudioWorld, DefaultOutputFollowsAdditionsRemovalsAndChoice)
{
    SimAudioWorld world;
    std::atomic<int> defaultChanges{0};
    world.AddDefaultOutputListener([&] { defaultChanges.fetch_add(1); });
    EXPECT_FALSE(world.DefaultOutput().has_value());
    EXPECT_EQ(world.OpenPlayback(0, [](const PlaybackRequest&) {}), nullptr);
    const uint32_t mic = world.AddDevice(SimDeviceSpec::Microphone("m", "Mic"));
    const uint32_t a = world.AddDevice(SimDeviceSpec::Speaker("a", "Speakers"));
    const uint32_t b = world.AddDevice(SimDeviceSpec::Speaker("b", "Headphones"));
    EXPECT_EQ(world.DefaultOutput(), a);
    EXPECT_FALSE(world.SetDefaultOutput(mic));
    EXPECT_TRUE(world.SetDefaultOutput(b));
    EXPECT_EQ(world.DefaultOutput(), b);
    world.RemoveDevice(b);
    EXPECT_EQ(world.DefaultOutput(), a);
    world.RemoveDevice(a);
    EXPECT_FALSE(world.DefaultOutput().has_value());
    world.FlushNotifications();
    EXPECT_EQ(defaultChanges.load(), 4);
}

TEST(SimAudioWorld, PlaybackRecordingHoldsWhatWasPlayedAfterVolume)
{
    SimAudioWorld world;
    DeviceStreamFormat format{48000, 2, SampleEncoding::Float32, false};
    const uint32_t id = world.AddDevice(SimDeviceSpec::Speaker("spk", "Speakers", format));
    ASSERT_TRUE(world.StartRecording(id, 5.0));
    std::atomic<uint32_t> next{0};
    auto stream = world.OpenPlayback(0,
                                     [&](const PlaybackRequest& request)
                                     {
                                         // Channel 0 a running count, channel 1 its negative: a gap or a
                                         // repeat shows in the recording.
                                         uint32_t n = next.load(std::memory_order_relaxed);
                                         auto* left = static_cast<float*>(request.buffers[0]);
                                         auto* right = static_cast<float*>(request.buffers[1]);
                                         for (uint32_t i = 0; i < request.frames; ++i, ++n)
                                         {
                                             left[i] = static_cast<float>(n % 1000) / 1000.0f;
                                             right[i] = -left[i];
                                         }
                                         next.store(n, std::memory_order_relaxed);
                                     });
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(stream->Format(), format);
    stream->SetVolume(0.5f);
    EXPECT_EQ(stream->Volume(), 0.5f);
    ASSERT_TRUE(stream->Start().Succeeded());
    ASSERT_TRUE(threads_test::WaitUntil([&] { return next.load() >= 9600; }));
    stream->Stop();
    world.StopRecording(id);
    auto recorder = world.Recording(id);
    ASSERT_NE(recorder, nullptr);
    const SimSound sound = recorder->Snapshot();
    EXPECT_EQ(sound.channels, 2u);
    ASSERT_EQ(sound.Frames(), next.load());
    for (size_t i = 0; i < sound.Frames(); ++i)
    {
        const float expected = 0.5f * static_cast<float>(i % 1000) / 1000.0f;
        ASSERT_FLOAT_EQ(sound.samples[2 * i], expected) << i;
        ASSERT_FLOAT_EQ(sound.samples[2 * i + 1], -expected) << i;
    }
    const std::string path = TempWav("recording");
    ASSERT_TRUE(world.SaveRecording(id, path, SampleEncoding::Float32).Succeeded());
    SimSound fromFile;
    ASSERT_TRUE(SimWavFile::Read(path, fromFile).Succeeded());
    EXPECT_EQ(fromFile.samples, sound.samples);
    std::remove(path.c_str());
}

TEST(SimAudioWorld, TwoPlaybackStreamsOnOneDeviceAreMixed)
{
    SimAudioWorld world;
    DeviceStreamFormat format{48000, 1, SampleEncoding::Int16, true};
    const uint32_t id = world.AddDevice(SimDeviceSpec::Speaker("spk", "Speakers", format));
    ASSERT_TRUE(world.StartRecording(id, 5.0));
    auto constant = [](int16_t value)
    {
        return [value](const PlaybackRequest& request)
        {
            auto* out = static_cast<int16_t*>(request.buffers[0]);
            std::fill(out, out + request.frames, value);
        };
    };
    SimDeviceFaults stalled;
    stalled.stalled = true;
    world.SetFaults(id, stalled);
    auto a = world.OpenPlayback(id, constant(8192));   // 0.25
    auto b = world.OpenPlayback(id, constant(-4096));  // -0.125
    ASSERT_TRUE(a->Start().Succeeded());
    ASSERT_TRUE(b->Start().Succeeded());
    world.SetFaults(id, {});
    ASSERT_TRUE(threads_test::WaitUntil([&] { return world.Recording(id)->Frames() >= 4800; }));
    a->Stop();
    b->Stop();
    const SimSound sound = world.Recording(id)->Snapshot();
    ASSERT_GE(sound.Frames(), 4800u);
    for (size_t i = 0; i < 4800; ++i)
    {
        ASSERT_FLOAT_EQ(sound.samples[i], 0.125f) << i;
    }
}

TEST(SimAudioWorld, StopWhileCallbacksRunIsSafeAndFinal)
{
    SimAudioWorld world;
    SimDeviceSpec spec = SimDeviceSpec::Microphone("mic", "Mic");
    spec.packetFrames = 48;  // 1 ms packets: many callbacks race each stop
    const uint32_t id = world.AddDevice(spec);
    std::atomic<bool> stopped{false};
    std::atomic<int> lateCalls{0};
    std::atomic<int> calls{0};
    auto stream = world.OpenCapture(id,
                                    [&](const CapturePacket& packet)
                                    {
                                        if (stopped.load())
                                        {
                                            lateCalls.fetch_add(1);
                                        }
                                        volatile float sink = 0;
                                        for (uint32_t i = 0; i < packet.frames; ++i)
                                        {
                                            sink = sink + static_cast<const float*>(packet.buffers[0])[i];
                                        }
                                        calls.fetch_add(1);
                                    });
    for (int round = 0; round < 50; ++round)
    {
        stopped.store(false);
        ASSERT_TRUE(stream->Start().Succeeded());
        const int before = calls.load();
        ASSERT_TRUE(threads_test::WaitUntil([&] { return calls.load() > before; }));
        stream->Stop();
        stopped.store(true);
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_EQ(lateCalls.load(), 0);

    // A callback that stops its own stream: it returns, and no call follows.
    std::atomic<int> selfStopCalls{0};
    std::unique_ptr<CaptureStream> selfStopping;
    selfStopping = world.OpenCapture(id,
                                     [&](const CapturePacket&)
                                     {
                                         selfStopCalls.fetch_add(1);
                                         selfStopping->Stop();
                                     });
    ASSERT_TRUE(selfStopping->Start().Succeeded());
    ASSERT_TRUE(threads_test::WaitUntil([&] { return selfStopCalls.load() >= 1; }));
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(selfStopCalls.load(), 1);
}

TEST(SimAudioWorld, StalledDeviceStopsCallingBackAndResumes)
{
    SimAudioWorld world;
    const uint32_t id = world.AddDevice(SimDeviceSpec::Microphone("mic", "Mic"));
    std::atomic<int> calls{0};
    auto stream = world.OpenCapture(id, [&](const CapturePacket&) { calls.fetch_add(1); });
    ASSERT_TRUE(stream->Start().Succeeded());
    ASSERT_TRUE(threads_test::WaitUntil([&] { return calls.load() >= 3; }));
    SimDeviceFaults faults;
    faults.stalled = true;
    ASSERT_TRUE(world.SetFaults(id, faults));
    // Let a round that already began finish.
    std::this_thread::sleep_for(50ms);
    const int atStall = calls.load();
    std::this_thread::sleep_for(150ms);
    EXPECT_EQ(calls.load(), atStall);
    ASSERT_TRUE(world.SetFaults(id, {}));
    EXPECT_TRUE(threads_test::WaitUntil([&] { return calls.load() >= atStall + 3; }));
    stream->Stop();
}

TEST(SimAudioWorld, ListenerRemovalWaitsForARunningCall)
{
    SimAudioWorld world;
    std::atomic<bool> inside{false};
    std::atomic<bool> release{false};
    std::atomic<int> calls{0};
    const ListenerToken token = world.AddDeviceListListener(
        [&]
        {
            inside.store(true);
            while (!release.load())
            {
                std::this_thread::sleep_for(1ms);
            }
            calls.fetch_add(1);
            inside.store(false);
        });
    world.AddDevice(SimDeviceSpec::Microphone("m", "M"));
    ASSERT_TRUE(threads_test::WaitUntil([&] { return inside.load(); }));
    std::atomic<bool> removed{false};
    std::thread remover(
        [&]
        {
            world.RemoveListener(token);
            removed.store(true);
        });
    std::this_thread::sleep_for(50ms);
    EXPECT_FALSE(removed.load());
    release.store(true);
    remover.join();
    EXPECT_FALSE(inside.load());
    world.AddDevice(SimDeviceSpec::Microphone("n", "N"));
    world.FlushNotifications();
    EXPECT_EQ(calls.load(), 1);
}

TEST(SimAudioWorld, StreamsOutliveTheWorldSafely)
{
    std::unique_ptr<CaptureStream> capture;
    std::unique_ptr<PlaybackStream> playback;
    std::atomic<int> calls{0};
    {
        SimAudioWorld world;
        const uint32_t id = world.AddDevice(SimDeviceSpec::Duplex("d", "Duplex"));
        capture = world.OpenCapture(id, [&](const CapturePacket&) { calls.fetch_add(1); });
        playback = world.OpenPlayback(id, [&](const PlaybackRequest&) { calls.fetch_add(1); });
        ASSERT_TRUE(capture->Start().Succeeded());
        ASSERT_TRUE(playback->Start().Succeeded());
        ASSERT_TRUE(threads_test::WaitUntil([&] { return calls.load() >= 4; }));
    }
    const int atEnd = calls.load();
    std::this_thread::sleep_for(30ms);
    EXPECT_EQ(calls.load(), atEnd);
    EXPECT_FALSE(playback->MoveTo(1).Succeeded());
    capture->Stop();
    playback->Stop();
}

TEST(SimAudioWorld, VirtualDevicesLoopWhatIsPlayedBackToTheirInput)
{
    SimAudioWorld world;
    const auto ids = world.PublishVirtualDevices();
    const uint32_t music = ids[1];
    ASSERT_EQ(world.Device(music)->name, "Tidemix Music");
    const DeviceStreamFormat format = world.Device(music)->outputFormat;
    ASSERT_TRUE(format.interleaved);
    ASSERT_EQ(format.encoding, SampleEncoding::Float32);

    // An application plays a 600 Hz tone to the channel...
    double phase = 0.0;
    auto player = world.OpenPlayback(
        music,
        [&, channels = format.channels](const PlaybackRequest& request)
        {
            float* out = static_cast<float*>(request.buffers[0]);
            for (uint32_t i = 0; i < request.frames; ++i, phase += 2.0 * M_PI * 600.0 / 48000.0)
            {
                for (uint32_t c = 0; c < channels; ++c)
                {
                    out[i * channels + c] = static_cast<float>(0.4 * std::sin(phase));
                }
            }
        });
    player->SetVolume(0.5f);
    // ...and the mixer captures from it.
    CaptureCollector collector(world.Device(music)->inputFormat, 48000 * 3);
    auto capture = world.OpenCapture(music, std::ref(collector));
    ASSERT_TRUE(player->Start().Succeeded());
    ASSERT_TRUE(capture->Start().Succeeded());
    ASSERT_TRUE(threads_test::WaitUntil([&] { return collector.Packets() >= 150; }));
    capture->Stop();
    player->Stop();
    std::vector<float> left = collector.Channel(0);
    // Skip the start, where the two device threads find their pace.
    left.erase(left.begin(), left.begin() + 9600);
    left.resize(std::min<size_t>(left.size(), 48000));
    ASSERT_GE(left.size(), 24000u);
    // Read the tone from 0.1 s pieces that carry it: on a loaded machine the
    // two device threads may leave a gap in the loop, which a reading over the
    // whole stretch would count as a lower frequency.
    std::vector<double> readings;
    for (size_t at = 0; at + 4800 <= left.size(); at += 4800)
    {
        const std::vector<float> piece(left.begin() + at, left.begin() + at + 4800);
        if (test::Peak(piece) > 0.15f)
        {
            readings.push_back(test::ZeroCrossingFrequency(piece, 48000));
        }
    }
    ASSERT_GE(readings.size(), 3u) << "the tone came back in too few pieces";
    std::nth_element(readings.begin(), readings.begin() + readings.size() / 2, readings.end());
    EXPECT_NEAR(readings[readings.size() / 2], 600.0, 6.0);
    EXPECT_NEAR(test::Peak(left), 0.2, 0.01);

    // Another channel, where nothing plays, is silent.
    CaptureCollector quiet(world.Device(ids[0])->inputFormat, 48000);
    auto other = world.OpenCapture(ids[0], std::ref(quiet));
    ASSERT_TRUE(other->Start().Succeeded());
    ASSERT_TRUE(threads_test::WaitUntil([&] { return quiet.Packets() >= 5; }));
    other->Stop();
    EXPECT_EQ(test::Peak(quiet.Channel(0)), 0.0);
}

TEST(SimAudioWorld, UnusableFormatsAndSizesAreRefused)
{
    SimAudioWorld world;
    SimDeviceSpec spec = SimDeviceSpec::Microphone("m", "Mic", {48000, 0, SampleEncoding::Float32, true});
    spec.packetFrames = 0;
    const uint32_t id = world.AddDevice(spec);
    EXPECT_EQ(world.Device(id)->inputFormat, DeviceStreamFormat{});
    EXPECT_FALSE(world.SetInputFormat(id, {0, 2, SampleEncoding::Float32, true}));
    EXPECT_FALSE(world.SetInputFormat(id, {48000, 65, SampleEncoding::Float32, true}));
    EXPECT_FALSE(world.SetPacketFrames(id, 0));
    EXPECT_FALSE(world.SetPacketFrames(id, 1u << 20));
    EXPECT_FALSE(world.SetSkewPpm(id, 1e9));
    EXPECT_FALSE(world.StartRecording(id, 1.0));  // no output
    EXPECT_TRUE(world.SetInputFormat(id, {8000, 4, SampleEncoding::Int16, false}));
    EXPECT_EQ(world.Device(id)->inputFormat, (DeviceStreamFormat{8000, 4, SampleEncoding::Int16, false}));
    EXPECT_FALSE(world.SetInputFormat(9999, {}));
    // A clamped packet size of 1 frame still runs.
    std::atomic<int> calls{0};
    auto stream = world.OpenCapture(id,
                                    [&](const CapturePacket& p)
                                    {
                                        if (p.frames == 1 && p.bufferCount == 4)
                                        {
                                            calls.fetch_add(1);
                                        }
                                    });
    ASSERT_TRUE(stream->Start().Succeeded());
    EXPECT_TRUE(threads_test::WaitUntil([&] { return calls.load() >= 10; }));
    stream->Stop();
}

}  // namespace tidemix::platform::sim
