// Device threads must not allocate once running. Every operator new of this
// test program is counted per thread, and the callbacks compare the device
// thread's count between an early and a late packet.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <new>
#include <thread>

#include "platform/sim/SimAudioWorld.h"

namespace
{
thread_local uint64_t tAllocations = 0;
}  // namespace

void* operator new(std::size_t size)
{
    ++tAllocations;
    if (void* p = std::malloc(size == 0 ? 1 : size))
    {
        return p;
    }
    throw std::bad_alloc();
}

void operator delete(void* p) noexcept
{
    std::free(p);
}

void operator delete(void* p, std::size_t) noexcept
{
    std::free(p);
}

namespace tidemix::platform::sim
{
namespace
{
using namespace std::chrono_literals;

// Counts the device thread's allocations from packet `from` to packet `to`.
struct AllocationProbe
{
    static constexpr uint64_t kFrom = 5;
    static constexpr uint64_t kTo = 60;
    std::atomic<uint64_t> packets{0};
    std::atomic<uint64_t> atFrom{0};
    std::atomic<uint64_t> atTo{0};
    std::atomic<bool> done{false};

    void Packet()
    {
        const uint64_t n = ++packets;
        if (n == kFrom)
        {
            atFrom.store(tAllocations);
        }
        if (n == kTo)
        {
            atTo.store(tAllocations);
            done.store(true);
        }
    }

    bool Wait()
    {
        const auto end = std::chrono::steady_clock::now() + 20s;
        while (!done.load() && std::chrono::steady_clock::now() < end)
        {
            std::this_thread::sleep_for(5ms);
        }
        return done.load();
    }
};
}  // namespace

TEST(SimDeviceAllocation, CaptureThreadDoesNotAllocateInSteadyState)
{
    const SimSignal signals[] = {SimSignal::Sines({{440, 0.5}, {880, 0.2}}), SimSignal::Noise(3, 0.5),
                                 SimSignal::FromSound(SimSound{48000, 1, {0.1f, 0.2f, 0.3f}})};
    for (const SimSignal& signal : signals)
    {
        SimAudioWorld world;
        SimDeviceSpec spec = SimDeviceSpec::Microphone("m", "Mic", {48000, 2, SampleEncoding::Int16, false});
        spec.packetFrames = 96;
        spec.signal = signal;
        spec.faults.irregularPackets = true;
        const uint32_t id = world.AddDevice(spec);
        AllocationProbe probe;
        auto stream = world.OpenCapture(id, [&](const CapturePacket&) { probe.Packet(); });
        ASSERT_TRUE(stream->Start().Succeeded());
        ASSERT_TRUE(probe.Wait());
        stream->Stop();
        EXPECT_EQ(probe.atTo.load(), probe.atFrom.load());
    }
}

TEST(SimDeviceAllocation, PlaybackThreadDoesNotAllocateWhileRecording)
{
    SimAudioWorld world;
    const uint32_t id =
        world.AddDevice(SimDeviceSpec::Speaker("s", "Speakers", {44100, 2, SampleEncoding::Float32, true}));
    ASSERT_TRUE(world.StartRecording(id, 10.0));
    AllocationProbe probe;
    auto a = world.OpenPlayback(id, [&](const PlaybackRequest&) { probe.Packet(); });
    auto b = world.OpenPlayback(id, [](const PlaybackRequest&) {});
    a->SetVolume(0.3f);
    ASSERT_TRUE(world.SetPacketFrames(id, 64));
    ASSERT_TRUE(a->Start().Succeeded());
    ASSERT_TRUE(b->Start().Succeeded());
    ASSERT_TRUE(probe.Wait());
    a->Stop();
    b->Stop();
    EXPECT_EQ(probe.atTo.load(), probe.atFrom.load());
    EXPECT_GT(world.Recording(id)->Frames(), 0u);
}

}  // namespace tidemix::platform::sim
