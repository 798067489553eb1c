// Counts the heap calls made through operator new on the renderer sink's
// request path, underruns included (the running road's test, which covers
// the capture path, counts only windows without them). The device thread is
// the test's own thread here (the hand-driven platform), so only that thread
// counts.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "engine/filters/DRAVAudioLevelmeter.h"
#include "engine/media/DRAVMemoryPoolRAM.h"
#include "engine/sinks/DRAVSinkAudioRendererAudioUnit.h"
#include "engine/sources/DRAVSourceAudioCaptureCoreAudio.h"
#include "platform/Platform.h"
#include "support/DeviceUnitTestSupport.h"
#include "support/OperatorNewCounter.h"
#include "support/UnitTestSupport.h"

namespace
{
using deviceunits_test::Format;
using deviceunits_test::HandDrivenPlatform;
using tidemix::platform::Platform;
using tidemix::platform::SampleEncoding;
using tidemix::platform::sim::SimDeviceSpec;
using tidemix::test::OperatorNewCounter;

// The engine's own ring and level meter, as on the road of a mix.
class DeviceUnitAllocations : public ::testing::Test
{
protected:
    void SetUp() override
    {
        formerPool_ = DRAVMemoryPoolRAM::InstallShared(
            std::make_shared<DRAVMemoryPoolRAM>(kMemoryPoolRAMName, kMaxRAMPoolItems, kMaxRAMPoolSizeMB));
        formerFactory_ = DRAVUnitFactory::Install(unittest::EngineFilterFactory());
        platform_ = std::make_shared<HandDrivenPlatform>();
        Platform::Use(platform_);
    }
    void TearDown() override
    {
        Platform::Use(nullptr);
        DRAVUnitFactory::Install(formerFactory_);
        DRAVMemoryPoolRAM::InstallShared(formerPool_);
    }

    std::shared_ptr<HandDrivenPlatform> platform_;
    std::shared_ptr<DRAVMemoryPoolRAM> formerPool_;
    DRAVUnitFactory formerFactory_;
};

TEST_F(DeviceUnitAllocations, CountingSeesAnAllocation)
{
    OperatorNewCounter counter(OperatorNewCounter::Scope::ThisThread);
    auto probe = std::make_unique<std::string>(64, 'x');
    EXPECT_GE(counter.Stop(), 1);
}

TEST_F(DeviceUnitAllocations, RendererSinkAnswersRequestsWithoutTheHeap)
{
    const uint32_t speaker = platform_->Hand().World().AddDevice(
        SimDeviceSpec::Speaker("spk", "Speaker", Format(44100, 2, true, SampleEncoding::Int16)));
    auto sink = std::make_shared<DRAVSinkAudioRendererAudioUnit>();
    ASSERT_TRUE(sink->Init().Succeeded());
    ASSERT_EQ(sink->SetBufferSizeFrameCount(960), kDRAVResultOk);
    sink->SetDevicePath(std::to_string(speaker));
    ASSERT_TRUE(sink->SetUnitState(kDRAVUnitStateRunning).Succeeded());

    std::vector<std::shared_ptr<DRAVAudioBuffer>> blocks;
    for (int i = 0; i < 200; ++i)
    {
        blocks.push_back(deviceunits_test::MakePlanarBlock(960, 1000.0, int64_t{i} * 960));
    }
    std::vector<int16_t> output(882 * 2);
    void* buffers[1] = {output.data()};
    tidemix::platform::PlaybackRequest request;
    request.buffers = buffers;
    request.bufferCount = 1;
    request.frames = 882;

    ASSERT_TRUE(sink->SendFrame(blocks[0]).Succeeded());
    auto stream = platform_->Hand().Last();
    ASSERT_NE(stream, nullptr);
    int64_t news = 0;
    for (size_t i = 1; i < blocks.size(); ++i)
    {
        ASSERT_TRUE(sink->SendFrame(blocks[i]).Succeeded());
        OperatorNewCounter counter(OperatorNewCounter::Scope::ThisThread);
        stream->playback(request);
        news += counter.Stop();
    }
    EXPECT_EQ(news, 0);
    EXPECT_EQ(sink->GetUnderrunCount(), 0);
    EXPECT_GT(sink->GetFramesPlayed(), 150 * 960);
    // Underruns are answered without the heap too.
    {
        request.frames = 48000;
        output.resize(48000 * 2);
        buffers[0] = output.data();
        OperatorNewCounter counter(OperatorNewCounter::Scope::ThisThread);
        stream->playback(request);
        news = counter.Stop();
    }
    EXPECT_EQ(news, 0);
    EXPECT_EQ(sink->GetUnderrunCount(), 1);
}
}  // namespace
